#include "host/traffic/CaptureClassifier.h"

#include "host/traffic/TrafficError.h"

namespace NimbalHost {

CaptureClassifier::CaptureClassifier(CaptureReader const& capture,
                                     std::vector<std::string> const& filters) {
   programs_.reserve(filters.size());
   for (std::string const& f : filters) {
      bpf_program program{};
      // No netmask is known for a file; only filters on broadcast addresses need one.
      if (pcap_compile(capture.handle(), &program, f.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
         std::string const reason = pcap_geterr(capture.handle());
         for (bpf_program& p : programs_) {
            pcap_freecode(&p);
         }
         throw TrafficError("capture " + capture.name() + ": filter \"" + f +
                            "\" does not compile: " + reason);
      }
      programs_.push_back(program);
   }
}

CaptureClassifier::~CaptureClassifier() {
   for (bpf_program& p : programs_) {
      pcap_freecode(&p);
   }
}

std::optional<std::size_t> CaptureClassifier::match(pcap_pkthdr const& header,
                                                    unsigned char const* data) const {
   for (std::size_t i = 0; i < programs_.size(); ++i) {
      if (pcap_offline_filter(&programs_[i], &header, data) != 0) {
         return i;
      }
   }
   return std::nullopt;
}

}  // namespace NimbalHost
