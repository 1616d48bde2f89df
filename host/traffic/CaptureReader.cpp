#include "host/traffic/CaptureReader.h"

#include <cerrno>
#include <cstring>

#include "host/traffic/TrafficError.h"

namespace NimbalHost {

namespace {

std::string prefix(std::string const& name) {
   return "capture " + name + ": ";
}

}  // namespace

CaptureReader::CaptureReader(std::string const& path) : name_(path) {
   std::FILE* file = std::fopen(path.c_str(), "rb");
   if (!file) {
      throw TrafficError(prefix(name_) + "cannot be opened: " + std::strerror(errno));
   }
   // Records are small: a large buffer reads the capture in a few hundred calls, not thousands.
   std::setvbuf(file, nullptr, _IOFBF, 1 << 18);
   open(file);
}

CaptureReader::CaptureReader(std::FILE* file, std::string name) : name_(std::move(name)) {
   if (!file) {
      throw TrafficError(prefix(name_) + "cannot be opened");
   }
   open(file);
}

void CaptureReader::open(std::FILE* file) {
   char err[PCAP_ERRBUF_SIZE] = {};
   pcap_t* p = pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, err);
   if (!p) {
      // libpcap leaves the stream to us when it refuses it.
      std::fclose(file);
      throw TrafficError(prefix(name_) + "not a readable pcap or pcapng capture: " + err);
   }
   pcap_.reset(p);
}

bool CaptureReader::next() {
   int const rc = pcap_next_ex(pcap_.get(), &header_, &data_);
   if (rc == 1) {
      ++records_;
      return true;
   }
   if (rc == PCAP_ERROR_BREAK) {
      header_ = nullptr;
      data_ = nullptr;
      return false;
   }
   throw TrafficError(prefix(name_) + "record " + std::to_string(records_ + 1) +
                      " is corrupt: " + pcap_geterr(pcap_.get()));
}

int CaptureReader::linkType() const {
   return pcap_datalink(pcap_.get());
}

int CaptureReader::snapLength() const {
   return pcap_snapshot(pcap_.get());
}

}  // namespace NimbalHost
