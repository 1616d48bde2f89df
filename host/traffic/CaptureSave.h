#pragma once

// Writing the replayed packets out again, split by what the chip did with them.

#include <pcap/pcap.h>

#include <memory>
#include <string>

#include "host/traffic/CaptureReader.h"

namespace NimbalHost {

// Two pcap files of the capture's link type and snapshot length, for tcpdump or Wireshark: the
// allowed and the dropped packets with their original capture times. An empty path writes none.
class CaptureSave {
  public:
   // Throws TrafficError when a file cannot be created.
   CaptureSave(CaptureReader const& like, std::string const& allowedPath,
               std::string const& droppedPath);

   void write(pcap_pkthdr const& header, unsigned char const* data, bool allowed);
   // Flushes and closes both files; the destructor does it too, quietly.
   void close();

  private:
   struct Close {
      void operator()(pcap_t* p) const { pcap_close(p); }
   };
   struct CloseDump {
      void operator()(pcap_dumper_t* d) const { pcap_dump_close(d); }
   };
   using Dumper = std::unique_ptr<pcap_dumper_t, CloseDump>;
   Dumper open(std::string const& path);

   std::unique_ptr<pcap_t, Close> dead_;
   Dumper allowed_;
   Dumper dropped_;
};

}  // namespace NimbalHost
