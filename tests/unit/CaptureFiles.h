#pragma once

// Small captures written for the tests: Ethernet frames of the protocols CoPP classes use.

#include <pcap/pcap.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "unit/TempDir.h"

namespace CaptureTest {

using Bytes = std::vector<std::uint8_t>;

inline Bytes ethernet(std::uint16_t type, Bytes const& payload) {
   Bytes f{0x00,
           0x1c,
           0x73,
           0x00,
           0x00,
           0x01,
           0x02,
           0x00,
           0x00,
           0x00,
           0x00,
           0x07,
           static_cast<std::uint8_t>(type >> 8),
           static_cast<std::uint8_t>(type)};
   f.insert(f.end(), payload.begin(), payload.end());
   while (f.size() < 60) {
      f.push_back(0);
   }
   return f;
}

// IPv4 with a TCP or UDP header carrying the ports.
inline Bytes ipv4(std::uint8_t protocol, std::uint16_t sport, std::uint16_t dport) {
   Bytes ip{0x45, 0, 0, 40, 0, 0, 0x40, 0, 64, protocol, 0, 0, 10, 0, 0, 2, 10, 0, 0, 1};
   Bytes l4{static_cast<std::uint8_t>(sport >> 8), static_cast<std::uint8_t>(sport),
            static_cast<std::uint8_t>(dport >> 8), static_cast<std::uint8_t>(dport)};
   l4.resize(protocol == 6 ? 20 : 8, 0);
   if (protocol == 6) {
      l4[12] = 0x50;
   }
   ip.insert(ip.end(), l4.begin(), l4.end());
   return ethernet(0x0800, ip);
}

inline Bytes bgp() {
   return ipv4(6, 40001, 179);
}
inline Bytes ssh() {
   return ipv4(6, 51000, 22);
}
inline Bytes dhcp() {
   return ipv4(17, 68, 67);
}
inline Bytes arp() {
   return ethernet(0x0806, Bytes{0, 1, 8, 0, 6, 4, 0, 1});
}
inline Bytes lldp() {
   return ethernet(0x88cc, Bytes{0x02, 0x07, 0x04});
}

struct Record {
   std::int64_t sec;
   std::int64_t usec;
   Bytes frame;
};

// A microsecond pcap file of Ethernet frames.
inline void writePcap(std::string const& path, std::vector<Record> const& records) {
   pcap_t* dead = pcap_open_dead(DLT_EN10MB, 65535);
   pcap_dumper_t* d = pcap_dump_open(dead, path.c_str());
   for (Record const& r : records) {
      pcap_pkthdr h{};
      h.ts.tv_sec = r.sec;
      h.ts.tv_usec = r.usec;
      h.caplen = h.len = static_cast<bpf_u_int32>(r.frame.size());
      pcap_dump(reinterpret_cast<unsigned char*>(d), &h, r.frame.data());
   }
   pcap_dump_close(d);
   pcap_close(dead);
}

inline void put32(Bytes& b, std::uint32_t v) {
   for (int i = 0; i < 4; ++i) {
      b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
   }
}

// A pcapng file: section header, one Ethernet interface in microseconds, enhanced packets.
inline Bytes pcapng(std::vector<Record> const& records) {
   Bytes b;
   put32(b, 0x0A0D0D0A);
   put32(b, 28);
   put32(b, 0x1A2B3C4D);
   put32(b, 0x00000001);  // version 1.0
   put32(b, 0xFFFFFFFF);  // section length unknown
   put32(b, 0xFFFFFFFF);
   put32(b, 28);
   put32(b, 1);  // interface description
   put32(b, 20);
   put32(b, 1);  // link type Ethernet, reserved 0
   put32(b, 65535);
   put32(b, 20);
   for (Record const& r : records) {
      std::uint32_t const padded = (static_cast<std::uint32_t>(r.frame.size()) + 3) & ~3u;
      std::uint32_t const length = 32 + padded;
      std::uint64_t const ts = static_cast<std::uint64_t>(r.sec) * 1000000 + r.usec;
      put32(b, 6);
      put32(b, length);
      put32(b, 0);
      put32(b, static_cast<std::uint32_t>(ts >> 32));
      put32(b, static_cast<std::uint32_t>(ts));
      put32(b, static_cast<std::uint32_t>(r.frame.size()));
      put32(b, static_cast<std::uint32_t>(r.frame.size()));
      b.insert(b.end(), r.frame.begin(), r.frame.end());
      b.resize(b.size() + padded - r.frame.size(), 0);
      put32(b, length);
   }
   return b;
}

inline void writeBytes(std::string const& path, Bytes const& bytes) {
   std::ofstream out(path, std::ios::binary | std::ios::trunc);
   out.write(reinterpret_cast<char const*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

inline Bytes readBytes(std::string const& path) {
   std::ifstream in(path, std::ios::binary);
   return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

using TestFiles::TempDir;

}  // namespace CaptureTest
