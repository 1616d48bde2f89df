#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "CaptureFiles.h"
#include "SourceTree.h"
#include "host/traffic/CaptureArrivals.h"
#include "host/traffic/CaptureSave.h"

namespace {

using namespace NimbalHost;

std::string const example = SourceTree::path("examples/capture.pcap");

// The example's CoPP classes as an operator would write them.
std::vector<std::string> const classes{"tcp port 179", "ether proto 0x8809", "ether proto 0x88cc",
                                       "arp", "udp port 67 or udp port 68"};

// How many packets tcpdump prints for the filter: lines that start with a capture time.
long tcpdumpCount(std::string const& file, std::string const& filter) {
   std::string const cmd = "tcpdump -n -tt -r '" + file + "' '" + filter + "' 2>/dev/null";
   std::FILE* p = ::popen(cmd.c_str(), "r");
   if (!p) {
      ADD_FAILURE() << "cannot run: " << cmd;
      return -1;
   }
   long lines = 0;
   char buf[4096];
   bool atStart = true;
   while (std::fgets(buf, sizeof buf, p)) {
      if (atStart && std::isdigit(static_cast<unsigned char>(buf[0]))) {
         ++lines;
      }
      atStart = std::string(buf).back() == '\n';
   }
   int const status = ::pclose(p);
   EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
       << "tcpdump failed (is it installed? scripts/setup.sh installs it): " << cmd;
   return lines;
}

// Counts per slot of a whole replay of the file, with `otherwise` taking slot filters.size().
std::vector<long> engineCounts(std::string const& file, std::vector<std::string> const& filters,
                               CaptureCounts* counts = nullptr) {
   CaptureArrivals source(CaptureFlow{file, filters, filters.size(), 1}, 0, 1e9);
   std::vector<long> perSlot(filters.size() + 1, 0);
   Arrival a;
   while (source.next(a)) {
      ++perSlot[a.slot];
   }
   if (counts) {
      *counts = source.counts();
   }
   return perSlot;
}

TEST(ExampleCapture, EachClassFilterCountsWhatTcpdumpCounts) {
   long const all = tcpdumpCount(example, "");
   EXPECT_GT(all, 1000);
   for (std::string const& f : classes) {
      CaptureCounts counts;
      std::vector<long> const perSlot = engineCounts(example, {f}, &counts);
      long const expected = tcpdumpCount(example, f);
      EXPECT_GE(expected, 5) << f;
      EXPECT_EQ(perSlot[0], expected) << f;
      EXPECT_EQ(static_cast<long>(counts.classified), expected) << f;
      EXPECT_EQ(static_cast<long>(counts.packets), all) << f;
   }
}

TEST(ExampleCapture, FirstMatchingFilterWinsAsTcpdumpWouldSortThem) {
   // "tcp" overlaps BGP: listed after it, it takes only the rest of TCP.
   std::vector<std::string> filters = classes;
   filters.insert(filters.begin() + 1, "tcp");
   std::vector<long> const perSlot = engineCounts(example, filters);
   std::string earlier;
   for (std::size_t i = 0; i < filters.size(); ++i) {
      std::string const own = "(" + filters[i] + ")" + earlier;
      EXPECT_EQ(perSlot[i], tcpdumpCount(example, own)) << own;
      earlier += " and not (" + filters[i] + ")";
   }
   EXPECT_EQ(perSlot.back(), tcpdumpCount(example, earlier.substr(5))) << earlier;
   EXPECT_GT(perSlot[1], 0);
   EXPECT_GT(perSlot.back(), 0);
}

TEST(ExampleCapture, SavedAllowedAndDroppedFilesOpenInTcpdump) {
   CaptureTest::TempDir dir;
   std::string const allowed = dir.file("allowed.pcap");
   std::string const dropped = dir.file("dropped.pcap");
   long sentAllowed = 0;
   long sentDropped = 0;
   {
      CaptureArrivals source(CaptureFlow{example, {"arp"}, std::nullopt, 1}, 0, 1e9);
      CaptureSave save(source.reader(), allowed, dropped);
      Arrival a;
      long i = 0;
      while (source.next(a)) {
         bool const pass = i++ % 3 != 0;
         (pass ? sentAllowed : sentDropped) += 1;
         save.write(source.header(), source.data(), pass);
      }
      save.close();
   }
   EXPECT_EQ(tcpdumpCount(allowed, ""), sentAllowed);
   EXPECT_EQ(tcpdumpCount(dropped, ""), sentDropped);
   EXPECT_EQ(tcpdumpCount(allowed, "arp"), sentAllowed);
}

}  // namespace
