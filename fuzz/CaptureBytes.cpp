#include "fuzz/CaptureBytes.h"

#include <pcap/pcap.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/traffic/CaptureArrivals.h"
#include "host/traffic/CaptureSave.h"
#include "host/traffic/FlowMerge.h"
#include "host/traffic/SyntheticArrivals.h"
#include "host/traffic/TrafficError.h"

namespace NimbalFuzz {

namespace {

// The filters of the example that compile for the capture's link type: "ether" filters do not
// on a raw IP capture, and the fuzzer should still reach the classifier there. Compiling is the
// slow part of an input, so each link type is tried once.
std::vector<std::string> const& filtersFor(NimbalHost::CaptureReader const& capture) {
   static char const* const candidates[] = {
       "tcp port 179", "ether proto 0x8809",         "ether proto 0x88cc",
       "arp",          "udp port 67 or udp port 68", "vlan and tcp"};
   static std::map<int, std::vector<std::string>> known;
   auto [it, fresh] = known.try_emplace(capture.linkType());
   if (fresh) {
      pcap_t* dead = pcap_open_dead(capture.linkType(), 65535);
      for (char const* f : candidates) {
         bpf_program p{};
         if (dead && pcap_compile(dead, &p, f, 1, PCAP_NETMASK_UNKNOWN) == 0) {
            pcap_freecode(&p);
            it->second.emplace_back(f);
         }
      }
      if (dead) {
         pcap_close(dead);
      }
   }
   return it->second;
}

}  // namespace

bool replayCaptureBytes(std::uint8_t const* data, std::size_t size) {
   // fmemopen wants a buffer of its own and refuses an empty one.
   std::vector<char> bytes(data, data + size);
   bytes.push_back(0);
   try {
      NimbalHost::CaptureReader reader(fmemopen(bytes.data(), size, "rb"), "fuzz input");
      NimbalHost::CaptureFlow flow{"fuzz input", filtersFor(reader), std::nullopt, 3.5};
      flow.otherwise = flow.filters.size();
      NimbalHost::CaptureArrivals capture(std::move(reader), flow, 1.0, 5.0);
      NimbalHost::CaptureSave save(capture.reader(), "/dev/null", "/dev/null");
      NimbalHost::ConstantArrivals beside(NimbalHost::FlowWindow{1.0, 5.0, 50}, 1);
      NimbalHost::FlowMerge merge({&beside, &capture});
      NimbalHost::MergedArrival m;
      double last = 0;
      std::uint64_t sent = 0;
      while (merge.next(m)) {
         if (m.arrival.time < last || m.arrival.time >= 6.0) {
            std::fprintf(stderr, "packet out of order or outside the step: %.17g\n",
                         m.arrival.time);
            std::abort();
         }
         last = m.arrival.time;
         if (m.flow == 1) {
            save.write(capture.header(), capture.data(), ++sent % 2 == 0);
         }
      }
      save.close();
      NimbalHost::CaptureCounts const& c = capture.counts();
      if (c.classified + c.otherwise + c.ignored != c.packets) {
         std::abort();
      }
      return true;
   } catch (NimbalHost::TrafficError const&) {
      return false;
   }
}

}  // namespace NimbalFuzz
