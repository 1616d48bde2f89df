#pragma once

// Reading a capture file (pcap or pcapng) one record at a time, with libpcap.

#include <pcap/pcap.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace NimbalHost {

// A capture opened for reading. Records stream through libpcap's one buffer, so memory does not
// grow with the capture. Times are read in nanoseconds whatever the file's own precision.
class CaptureReader {
  public:
   // Opens the file; `path` names it in messages. Throws TrafficError when it cannot be read
   // or is not a capture.
   explicit CaptureReader(std::string const& path);
   // Reads from a stream that it takes over (closed with the reader, or here on failure).
   CaptureReader(std::FILE* file, std::string name);

   // Moves to the next record; false at the end of the file. Throws TrafficError naming the
   // record (1 for the first) when it is corrupt or cut short.
   bool next();

   // The current record, valid until next() is called again.
   pcap_pkthdr const& header() const { return *header_; }
   unsigned char const* data() const { return data_; }
   // Capture time of the current record: whole seconds, and nanoseconds within them (as the
   // file has them; a corrupt file may hold any value).
   std::int64_t timeSeconds() const { return header_->ts.tv_sec; }
   std::int64_t timeNanoseconds() const { return header_->ts.tv_usec; }
   // Records read so far; the current record's number.
   std::uint64_t records() const { return records_; }

   std::string const& name() const { return name_; }
   int linkType() const;
   int snapLength() const;
   // For compiling filters against the capture's own link type.
   pcap_t* handle() const { return pcap_.get(); }

  private:
   struct Close {
      void operator()(pcap_t* p) const { pcap_close(p); }
   };
   void open(std::FILE* file);

   std::string name_;
   std::unique_ptr<pcap_t, Close> pcap_;
   pcap_pkthdr* header_ = nullptr;
   unsigned char const* data_ = nullptr;
   std::uint64_t records_ = 0;
};

}  // namespace NimbalHost
