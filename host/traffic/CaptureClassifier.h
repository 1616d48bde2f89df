#pragma once

// Sorting a capture's packets into classes with tcpdump's filter language.

#include <pcap/pcap.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/traffic/CaptureReader.h"

namespace NimbalHost {

// Filters compiled against the capture's own link type (as tcpdump would read it); a packet
// belongs to the first filter that matches it.
class CaptureClassifier {
  public:
   // Throws TrafficError quoting libpcap's reason for the first filter that does not compile.
   CaptureClassifier(CaptureReader const& capture, std::vector<std::string> const& filters);
   ~CaptureClassifier();
   CaptureClassifier(CaptureClassifier const&) = delete;
   CaptureClassifier& operator=(CaptureClassifier const&) = delete;

   // The index of the first filter that matches the packet, if any.
   std::optional<std::size_t> match(pcap_pkthdr const& header, unsigned char const* data) const;
   std::size_t size() const { return programs_.size(); }

  private:
   std::vector<bpf_program> programs_;
};

}  // namespace NimbalHost
