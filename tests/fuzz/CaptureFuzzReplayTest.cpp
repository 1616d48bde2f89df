#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "SourceTree.h"
#include "fuzz/CaptureBytes.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

fs::path const source = SourceTree::dir();

Bytes fileBytes(fs::path const& path) {
   std::ifstream in(path, std::ios::binary);
   return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::vector<fs::path> filesIn(fs::path const& dir) {
   std::vector<fs::path> out;
   if (fs::is_directory(dir)) {
      for (auto const& e : fs::directory_iterator(dir)) {
         if (e.is_regular_file()) {
            out.push_back(e.path());
         }
      }
   }
   std::sort(out.begin(), out.end());
   return out;
}

TEST(CaptureFuzzTarget, ReplaysEverySeedCapture) {
   std::vector<fs::path> const seeds = filesIn(source / "fuzz/corpus/capture");
   ASSERT_GE(seeds.size(), 2u);
   for (fs::path const& p : seeds) {
      Bytes const b = fileBytes(p);
      EXPECT_TRUE(NimbalFuzz::replayCaptureBytes(b.data(), b.size())) << p;
   }
   Bytes const example = fileBytes(source / "examples/capture.pcap");
   EXPECT_TRUE(NimbalFuzz::replayCaptureBytes(example.data(), example.size()));
}

TEST(CaptureFuzzTarget, RefusesBrokenCapturesQuietly) {
   Bytes const seed = fileBytes(source / "fuzz/corpus/capture/example-head.pcap");
   ASSERT_GT(seed.size(), 100u);
   EXPECT_FALSE(NimbalFuzz::replayCaptureBytes(nullptr, 0));
   EXPECT_FALSE(NimbalFuzz::replayCaptureBytes(seed.data(), 10));
   // Every cut through the file either reads or ends in a refusal.
   int refused = 0;
   for (std::size_t n = 24; n < seed.size(); n += 7) {
      refused += NimbalFuzz::replayCaptureBytes(seed.data(), n) ? 0 : 1;
   }
   EXPECT_GT(refused, 0);
}

TEST(CaptureFuzzTarget, ReplaysEveryRegressionInput) {
   for (fs::path const& p : filesIn(source / "fuzz/regressions/capture")) {
      Bytes const b = fileBytes(p);
      NimbalFuzz::replayCaptureBytes(b.data(), b.size());
   }
}

}  // namespace
