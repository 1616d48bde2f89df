// B9: a capture replayed through a 64-port switch, against the chip's bare packet path for the
// same packets, and the program's resident memory: run once for 100,000 packets and once for
// 1,000,000, a replay that streams its capture takes the same memory for both.
//
//   nimbal_bench_capture PACKETS      prints: packets, replay ns per packet, bare ns per packet,
//                                     peak resident KB

#include <pcap/pcap.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Kiv/Activity.h"
#include "host/agent/SimAgent.h"
#include "host/scenario/Scenario.h"

namespace {

// Writes a capture of `packets` frames at 50,000 packets a second: BGP, ARP and LLDP in turn.
std::string writeCapture(long packets) {
   std::string const path = "/tmp/nimbal-bench-capture-" + std::to_string(getpid()) + ".pcap";
   pcap_t* dead = pcap_open_dead(DLT_EN10MB, 256);
   pcap_dumper_t* out = pcap_dump_open(dead, path.c_str());
   if (!out) {
      std::fprintf(stderr, "cannot write %s\n", path.c_str());
      std::exit(1);
   }
   unsigned char frame[64] = {};
   for (long i = 0; i < packets; ++i) {
      pcap_pkthdr h{};
      long const us = i * 20;
      h.ts.tv_sec = 1700000000 + us / 1000000;
      h.ts.tv_usec = us % 1000000;
      h.caplen = h.len = sizeof frame;
      switch (i % 3) {
         case 0:  // IPv4 TCP to port 179
            frame[12] = 0x08, frame[13] = 0x00, frame[14] = 0x45, frame[23] = 6;
            frame[36] = 0, frame[37] = 179;
            break;
         case 1:  // ARP
            frame[12] = 0x08, frame[13] = 0x06, frame[23] = 0;
            break;
         default:  // LLDP
            frame[12] = 0x88, frame[13] = 0xcc, frame[23] = 0;
            break;
      }
      pcap_dump(reinterpret_cast<unsigned char*>(out), &h, frame);
   }
   pcap_dump_close(out);
   pcap_close(dead);
   return path;
}

std::string scenarioText(std::string const& capture, double seconds) {
   std::string interfaces;
   for (int p = 1; p <= 64; ++p) {
      interfaces += std::string(p > 1 ? ", " : "") + "{\"name\": \"Ethernet" + std::to_string(p) +
                    "\", \"modId\": 0, \"port\": " + std::to_string(p) + "}";
   }
   return R"({"switch": {"interfaces": [)" + interfaces + R"(]}, "steps": [
      {"traffic": {"seconds": )" +
          std::to_string(seconds) + R"(, "flows": [
        {"interface": "Ethernet1", "pcap": ")" +
          capture + R"(", "classes": [
          {"class": "copp-system-bgp", "filter": "tcp port 179"},
          {"class": "copp-system-arp", "filter": "arp"},
          {"class": "copp-system-lldp", "filter": "ether proto 0x88cc"}]}]}}]})";
}

double secondsSince(std::chrono::steady_clock::time_point t) {
   return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

}  // namespace

int main(int argc, char** argv) {
   long const packets = argc > 1 ? std::atol(argv[1]) : 1000000;
   std::string const capture = writeCapture(packets);
   double const seconds = static_cast<double>(packets) * 20e-6 + 1;
   Kiv::ActivityScope activity;
   NimbalHost::Scenario const scenario =
       NimbalHost::scenarioFromText(scenarioText(capture, seconds), "bench.json");
   NimbalHost::SilentTranscript silent;
   NimbalHost::SimAgent agent(scenario, silent);
   agent.recordTrafficIs(false);
   auto const start = std::chrono::steady_clock::now();
   agent.run();
   double const replay = secondsSince(start);

   // The bare path: the same number of packets straight into the packet driver.
   auto const pktDrv = agent.sw().pktDrv();
   double t = agent.now();
   auto const bareStart = std::chrono::steady_clock::now();
   U32 const queues[] = {1, 8, 6};  // BGP, ARP, LLDP
   for (long i = 0; i < packets; ++i) {
      t += 20e-6;
      pktDrv->sendToCpu(0, 1, queues[i % 3], 0, t);
   }
   double const bare = secondsSince(bareStart);
   unlink(capture.c_str());
   rusage usage{};
   getrusage(RUSAGE_SELF, &usage);
   std::printf("%ld %.1f %.1f %ld\n", packets, replay * 1e9 / static_cast<double>(packets),
               bare * 1e9 / static_cast<double>(packets), usage.ru_maxrss);
   return 0;
}
