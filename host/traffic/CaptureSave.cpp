#include "host/traffic/CaptureSave.h"

#include "host/traffic/TrafficError.h"

namespace NimbalHost {

CaptureSave::CaptureSave(CaptureReader const& like, std::string const& allowedPath,
                         std::string const& droppedPath)
    // Records carry nanoseconds as read, so the files say so.
    : dead_(pcap_open_dead_with_tstamp_precision(like.linkType(), like.snapLength(),
                                                 PCAP_TSTAMP_PRECISION_NANO)) {
   if (!dead_) {
      throw TrafficError("capture " + like.name() + ": cannot prepare a file to save into");
   }
   allowed_ = open(allowedPath);
   dropped_ = open(droppedPath);
}

CaptureSave::Dumper CaptureSave::open(std::string const& path) {
   if (path.empty()) {
      return nullptr;
   }
   Dumper d(pcap_dump_open(dead_.get(), path.c_str()));
   if (!d) {
      throw TrafficError("capture save " + path +
                         ": cannot be written: " + pcap_geterr(dead_.get()));
   }
   return d;
}

void CaptureSave::write(pcap_pkthdr const& header, unsigned char const* data, bool allowed) {
   pcap_dumper_t* d = (allowed ? allowed_ : dropped_).get();
   if (d) {
      pcap_dump(reinterpret_cast<unsigned char*>(d), &header, data);
   }
}

void CaptureSave::close() {
   for (Dumper* d : {&allowed_, &dropped_}) {
      if (*d && pcap_dump_flush(d->get()) != 0) {
         throw TrafficError("capture save: cannot finish writing a file");
      }
      d->reset();
   }
}

}  // namespace NimbalHost
