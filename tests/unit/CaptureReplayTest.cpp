#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "CaptureFiles.h"
#include "host/traffic/CaptureArrivals.h"
#include "host/traffic/CaptureSave.h"
#include "host/traffic/TrafficError.h"

namespace {

using namespace NimbalHost;
using namespace CaptureTest;

std::vector<Arrival> replayed(CaptureArrivals& source) {
   std::vector<Arrival> out;
   Arrival a;
   while (source.next(a)) {
      out.push_back(a);
   }
   return out;
}

// The message of the TrafficError that `f` throws, or "" when it throws none.
template <typename F>
std::string errorOf(F f) {
   try {
      f();
   } catch (TrafficError const& e) {
      return e.what();
   }
   return "";
}

// What libpcap itself says of a filter on an Ethernet capture.
std::string libpcapReason(std::string const& filter) {
   pcap_t* dead = pcap_open_dead(DLT_EN10MB, 65535);
   bpf_program p{};
   std::string reason = "compiles";
   if (pcap_compile(dead, &p, filter.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0) {
      reason = pcap_geterr(dead);
   } else {
      pcap_freecode(&p);
   }
   pcap_close(dead);
   return reason;
}

class CaptureReplay : public ::testing::Test {
  protected:
   TempDir dir;
   std::string const file = dir.file("c.pcap");
};

TEST_F(CaptureReplay, PacketsArriveAtCaptureTimeFromTheFirstPacketOverSpeed) {
   writePcap(file, {{1000, 500000, bgp()}, {1000, 750000, arp()}, {1001, 500000, bgp()}});
   CaptureArrivals source(CaptureFlow{file, {""}, std::nullopt, 2.0}, 3.0, 10);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 3u);
   EXPECT_DOUBLE_EQ(a[0].time, 3.0);
   EXPECT_DOUBLE_EQ(a[1].time, 3.125);
   EXPECT_DOUBLE_EQ(a[2].time, 3.5);
   EXPECT_EQ(source.counts().packets, 3u);
}

TEST_F(CaptureReplay, ReplayStopsAtTheEndOfTheStep) {
   writePcap(file, {{10, 0, bgp()}, {10, 250000, bgp()}, {11, 0, bgp()}, {12, 0, bgp()}});
   CaptureArrivals source(CaptureFlow{file, {""}, std::nullopt, 1.0}, 0, 1.0);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 2u);
   EXPECT_DOUBLE_EQ(a[1].time, 0.25);
   EXPECT_EQ(source.counts().packets, 2u);
   Arrival more;
   EXPECT_FALSE(source.next(more));
}

TEST_F(CaptureReplay, EachPacketGoesToTheFirstFilterThatMatchesIt) {
   writePcap(file, {{1, 0, bgp()}, {1, 1, ssh()}, {1, 2, arp()}, {1, 3, lldp()}, {1, 4, dhcp()}});
   CaptureArrivals source(CaptureFlow{file, {"tcp port 179", "tcp", "arp"}, std::nullopt, 1}, 0,
                          10);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 3u);
   EXPECT_EQ(a[0].slot, 0u);
   EXPECT_EQ(a[1].slot, 1u);
   EXPECT_EQ(a[2].slot, 2u);
   EXPECT_EQ(source.counts().packets, 5u);
   EXPECT_EQ(source.counts().classified, 3u);
   EXPECT_EQ(source.counts().otherwise, 0u);
   EXPECT_EQ(source.counts().ignored, 2u);
}

TEST_F(CaptureReplay, OtherwiseTakesWhatNoFilterMatches) {
   writePcap(file, {{1, 0, bgp()}, {1, 1, lldp()}, {1, 2, dhcp()}});
   CaptureArrivals source(CaptureFlow{file, {"tcp port 179"}, std::size_t{4}, 1}, 0, 10);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 3u);
   EXPECT_EQ(a[0].slot, 0u);
   EXPECT_EQ(a[1].slot, 4u);
   EXPECT_EQ(a[2].slot, 4u);
   EXPECT_EQ(source.counts().classified, 1u);
   EXPECT_EQ(source.counts().otherwise, 2u);
   EXPECT_EQ(source.counts().ignored, 0u);
}

TEST_F(CaptureReplay, ARecordOlderThanTheOneBeforeKeepsTimesOrder) {
   writePcap(file, {{5, 0, arp()}, {5, 400000, arp()}, {5, 100000, arp()}, {5, 600000, arp()}});
   CaptureArrivals source(CaptureFlow{file, {}, std::size_t{0}, 1}, 0, 10);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 4u);
   EXPECT_DOUBLE_EQ(a[2].time, 0.4);
   EXPECT_DOUBLE_EQ(a[3].time, 0.6);
}

TEST_F(CaptureReplay, ReadsPcapng) {
   std::string const ng = dir.file("c.pcapng");
   writeBytes(ng, pcapng({{100, 0, arp()}, {100, 20000, bgp()}, {100, 30000, lldp()}}));
   CaptureArrivals source(CaptureFlow{ng, {"arp", "tcp port 179"}, std::nullopt, 1}, 1, 10);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 2u);
   EXPECT_DOUBLE_EQ(a[0].time, 1.0);
   EXPECT_EQ(a[0].slot, 0u);
   EXPECT_DOUBLE_EQ(a[1].time, 1.02);
   EXPECT_EQ(a[1].slot, 1u);
   EXPECT_EQ(source.counts().ignored, 1u);
   EXPECT_EQ(validateCapture(CaptureFlow{ng, {"arp"}, std::nullopt, 1}).records, 3u);
}

TEST_F(CaptureReplay, TimesFarBeyondTheFirstEndTheReplay) {
   // pcapng holds 64-bit microseconds: far more seconds than nanoseconds in 64 bits can count.
   std::string const ng = dir.file("far.pcapng");
   writeBytes(ng, pcapng({{100, 0, arp()}, {4000000000000ll, 0, arp()}, {100, 5, arp()}}));
   CaptureArrivals source(CaptureFlow{ng, {}, std::size_t{0}, 1}, 0, 10);
   std::vector<Arrival> const a = replayed(source);
   ASSERT_EQ(a.size(), 1u);
   EXPECT_EQ(source.counts().packets, 1u);
}

TEST_F(CaptureReplay, MissingCaptureIsOneLine) {
   std::string const missing = dir.file("none.pcap");
   std::string const expected =
       "capture " + missing + ": cannot be opened: No such file or directory";
   EXPECT_EQ(errorOf([&] {
                CaptureArrivals(CaptureFlow{missing, {}, std::nullopt, 1}, 0, 1);
             }),
             expected);
   EXPECT_EQ(errorOf([&] {
                validateCapture(CaptureFlow{missing, {}, std::nullopt, 1});
             }),
             expected);
}

TEST_F(CaptureReplay, AFileThatIsNoCaptureIsOneLine) {
   writeBytes(file, Bytes{'{',  '"', 's', 't', 'e', 'p', 's', '"', ':', '[', ']', '}',
                          '\n', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '});
   std::string const e = errorOf([&] { validateCapture(CaptureFlow{file, {}, std::nullopt, 1}); });
   EXPECT_EQ(e.rfind("capture " + file + ": not a readable pcap or pcapng capture: ", 0), 0u) << e;
   EXPECT_NE(e.find("unknown file format"), std::string::npos) << e;
   EXPECT_EQ(e.find('\n'), std::string::npos);
}

TEST_F(CaptureReplay, ACorruptRecordIsNamed) {
   writePcap(file, {{1, 0, arp()}, {1, 1, arp()}, {1, 2, arp()}});
   Bytes b = readBytes(file);
   // The second record's captured length, far beyond any snapshot length.
   std::size_t const second = 24 + 16 + arp().size() + 8;
   b[second] = 0xF0;
   b[second + 1] = b[second + 2] = b[second + 3] = 0xFF;
   writeBytes(file, b);
   std::string const e = errorOf([&] { validateCapture(CaptureFlow{file, {}, std::nullopt, 1}); });
   EXPECT_EQ(e.rfind("capture " + file + ": record 2 is corrupt: ", 0), 0u) << e;
   EXPECT_NE(e.find("capture length"), std::string::npos) << e;

   CaptureArrivals source(CaptureFlow{file, {}, std::size_t{0}, 1}, 0, 10);
   Arrival a;
   EXPECT_TRUE(source.next(a));
   EXPECT_EQ(errorOf([&] { source.next(a); }), e);
}

TEST_F(CaptureReplay, ACaptureCutShortNamesItsLastRecord) {
   writePcap(file, {{1, 0, arp()}, {1, 1, arp()}, {1, 2, arp()}});
   Bytes b = readBytes(file);
   b.resize(b.size() - 10);
   writeBytes(file, b);
   std::string const e = errorOf([&] { validateCapture(CaptureFlow{file, {}, std::nullopt, 1}); });
   EXPECT_EQ(e.rfind("capture " + file + ": record 3 is corrupt: ", 0), 0u) << e;
   EXPECT_NE(e.find("truncated"), std::string::npos) << e;
}

TEST_F(CaptureReplay, AFilterThatDoesNotCompileQuotesLibpcap) {
   writePcap(file, {{1, 0, arp()}});
   for (std::string const bad : {"tcp port", "udp port 99999", "ether proto lldpx"}) {
      std::string const reason = libpcapReason(bad);
      ASSERT_NE(reason, "compiles");
      std::string const expected =
          "capture " + file + ": filter \"" + bad + "\" does not compile: " + reason;
      EXPECT_EQ(errorOf([&] {
                   validateCapture(CaptureFlow{file, {"arp", bad}, std::nullopt, 1});
                }),
                expected);
      EXPECT_EQ(errorOf([&] {
                   CaptureArrivals(CaptureFlow{file, {bad}, std::nullopt, 1}, 0, 1);
                }),
                expected);
   }
}

TEST_F(CaptureReplay, SpeedMustBePositive) {
   writePcap(file, {{1, 0, arp()}});
   for (double speed : {0.0, -1.0, std::nan("")}) {
      EXPECT_EQ(errorOf([&] {
                   validateCapture(CaptureFlow{file, {}, std::nullopt, speed});
                }),
                "capture " + file + ": speed must be a positive number");
   }
}

TEST_F(CaptureReplay, ValidationReadsTheWholeCapture) {
   std::vector<Record> records;
   for (int i = 0; i < 500; ++i) {
      records.push_back({7, i * 1000, i % 2 ? arp() : bgp()});
   }
   writePcap(file, records);
   CaptureSummary const s = validateCapture(CaptureFlow{file, {"arp", "tcp port 179"}, {}, 1});
   EXPECT_EQ(s.records, 500u);
   EXPECT_EQ(s.linkType, DLT_EN10MB);
   // A fault past what a short step would replay is still found.
   Bytes b = readBytes(file);
   b.resize(b.size() - 1);
   writeBytes(file, b);
   EXPECT_NE(errorOf([&] {
                validateCapture(CaptureFlow{file, {}, {}, 1});
             }).find("record 500"),
             std::string::npos);
}

TEST_F(CaptureReplay, SavedPacketsKeepTheirBytesAndCaptureTimes) {
   std::vector<Record> records;
   for (int i = 0; i < 10; ++i) {
      records.push_back({1700000000, 1000 * i + 7, i % 3 ? arp() : bgp()});
   }
   writePcap(file, records);
   std::string const allowedFile = dir.file("allowed.pcap");
   std::string const droppedFile = dir.file("dropped.pcap");
   {
      CaptureArrivals source(CaptureFlow{file, {""}, std::nullopt, 1}, 0, 10);
      CaptureSave save(source.reader(), allowedFile, droppedFile);
      Arrival a;
      int i = 0;
      while (source.next(a)) {
         save.write(source.header(), source.data(), i++ % 4 != 0);
      }
      save.close();
   }
   for (bool allowed : {true, false}) {
      CaptureReader r(allowed ? allowedFile : droppedFile);
      EXPECT_EQ(r.linkType(), DLT_EN10MB);
      EXPECT_EQ(r.snapLength(), 65535);
      std::vector<int> seen;
      while (r.next()) {
         EXPECT_EQ(r.timeSeconds(), 1700000000);
         int const i = static_cast<int>(r.timeNanoseconds() / 1000000);
         seen.push_back(i);
         EXPECT_EQ(r.timeNanoseconds(), (1000 * i + 7) * 1000ll);
         Bytes const got(r.data(), r.data() + r.header().caplen);
         EXPECT_EQ(got, records[static_cast<std::size_t>(i)].frame);
      }
      EXPECT_EQ(seen,
                allowed ? std::vector<int>({1, 2, 3, 5, 6, 7, 9}) : std::vector<int>({0, 4, 8}));
   }
}

TEST_F(CaptureReplay, SavingIntoAFolderThatDoesNotExistIsOneLine) {
   writePcap(file, {{1, 0, arp()}});
   CaptureReader r(file);
   std::string const bad = dir.file("no/such/allowed.pcap");
   std::string const e = errorOf([&] { CaptureSave(r, bad, ""); });
   EXPECT_EQ(e.rfind("capture save " + bad + ": cannot be written: ", 0), 0u) << e;
}

}  // namespace
