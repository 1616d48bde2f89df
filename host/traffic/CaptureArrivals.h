#pragma once

// Replaying a capture as a flow: its packets at their capture times, each in the class of the
// first filter that matches it.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/traffic/Arrivals.h"
#include "host/traffic/CaptureClassifier.h"
#include "host/traffic/CaptureReader.h"

namespace NimbalHost {

struct CaptureFlow {
   std::string path;                      // as the caller resolved it; messages name it so
   std::vector<std::string> filters;      // filter i sends its packets to slot i
   std::optional<std::size_t> otherwise;  // the slot of packets no filter matches; none: ignored
   double speed = 1;                      // capture seconds per replay second, times this
};

struct CaptureCounts {
   std::uint64_t packets = 0;     // records replayed before the step ended
   std::uint64_t classified = 0;  // of them, matched by a filter
   std::uint64_t otherwise = 0;   // sent to the `otherwise` slot
   std::uint64_t ignored = 0;     // not sent at all
};

// Packets at start + (capture time - first record's time) / speed, until start + seconds.
// Ignored packets are counted but not returned. A record older than the one before it (captures
// merged from several taps) is sent at the time of the one before, to keep time's order.
class CaptureArrivals final : public ArrivalSource {
  public:
   // Opens the file and compiles the filters; throws TrafficError.
   CaptureArrivals(CaptureFlow const& flow, double start, double seconds);
   // Replays an already open capture.
   CaptureArrivals(CaptureReader reader, CaptureFlow const& flow, double start, double seconds);

   // Throws TrafficError for a corrupt record.
   bool next(Arrival& out) override;

   CaptureCounts const& counts() const { return counts_; }
   // The record last returned by next(), valid until next() is called again.
   pcap_pkthdr const& header() const { return reader_.header(); }
   unsigned char const* data() const { return reader_.data(); }
   CaptureReader const& reader() const { return reader_; }

  private:
   CaptureReader reader_;
   CaptureClassifier classifier_;
   std::optional<std::size_t> otherwise_;
   double speed_;
   double start_;
   double end_;
   std::optional<std::pair<std::int64_t, std::int64_t>> first_;  // seconds, nanoseconds
   double last_;
   bool done_ = false;
   CaptureCounts counts_;
};

struct CaptureSummary {
   std::uint64_t records = 0;
   int linkType = 0;
};

// Checks a capture flow without playing it: the file opens, every record reads, every filter
// compiles, the speed is positive. Throws TrafficError with the first fault.
CaptureSummary validateCapture(CaptureFlow const& flow);

}  // namespace NimbalHost
