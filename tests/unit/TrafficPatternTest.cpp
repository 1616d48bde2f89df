#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include "TrafficArrivalsHelpers.h"
#include "host/traffic/SeededRandom.h"
#include "host/traffic/SyntheticArrivals.h"
#include "host/traffic/TrafficError.h"

namespace {

using namespace NimbalHost;
using TrafficTest::timesOf;

TEST(ConstantPattern, ExactFlowFallsOnItsNominalTimes) {
   FlowWindow const w{2.5, 0.3, 10};
   std::vector<double> const t = timesOf(ConstantPattern{}, w);
   ASSERT_EQ(t.size(), 3u);
   for (std::size_t i = 0; i < t.size(); ++i) {
      EXPECT_EQ(t[i], 2.5 + static_cast<double>(i) / 10);
   }
}

TEST(ConstantPattern, SendsFloorOfPpsTimesSecondsPackets) {
   EXPECT_EQ(packetCount(10, 0.3), 3u);
   EXPECT_EQ(packetCount(1000, 2), 2000u);
   EXPECT_EQ(packetCount(7, 1.99), 13u);
   EXPECT_EQ(packetCount(0, 5), 0u);
   EXPECT_EQ(timesOf(ConstantPattern{5}, FlowWindow{0, 1.99, 7}).size(), 13u);
   EXPECT_TRUE(timesOf(ConstantPattern{5}, FlowWindow{0, 4, 0}).empty());
}

TEST(ConstantPattern, JitterKeepsEveryPacketInItsOwnSlotInsideTheStep) {
   for (std::uint32_t pps : {3u, 10u, 997u, 5000u}) {
      for (double seconds : {0.5, 1.0, 2.3}) {
         FlowWindow const w{1.25, seconds, pps};
         std::vector<double> const t = timesOf(ConstantPattern{7}, w);
         ASSERT_EQ(t.size(), packetCount(pps, seconds));
         for (std::size_t i = 0; i < t.size(); ++i) {
            EXPECT_GE(t[i], w.start + static_cast<double>(i) / pps) << pps << " " << i;
            EXPECT_LE(t[i], w.start + static_cast<double>(i + 1) / pps) << pps << " " << i;
            EXPECT_LT(t[i], w.start + seconds);
            if (i > 0) {
               EXPECT_LE(t[i - 1], t[i]);
            }
         }
      }
   }
}

TEST(ConstantPattern, JitterWandersOverTheWholeSlotWithGapsNearOnePeriod) {
   FlowWindow const w{0, 20, 1000};
   std::vector<double> const t = timesOf(ConstantPattern{3}, w);
   double lo = 1;
   double hi = 0;
   for (std::size_t i = 0; i < t.size(); ++i) {
      double const phase = t[i] * 1000 - static_cast<double>(i);
      lo = std::min(lo, phase);
      hi = std::max(hi, phase);
      if (i > 0) {
         double const gap = (t[i] - t[i - 1]) * 1000;
         EXPECT_GE(gap, 1 - 2 * ConstantArrivals::jitterStep - 1e-6);
         EXPECT_LE(gap, 1 + 2 * ConstantArrivals::jitterStep + 1e-6);
      }
   }
   EXPECT_LT(lo, 0.05);
   EXPECT_GT(hi, 0.95);
}

TEST(ConstantPattern, JitterIsReproducibleAndDependsOnTheSeed) {
   FlowWindow const w{0, 1, 500};
   EXPECT_EQ(timesOf(ConstantPattern{11}, w), timesOf(ConstantPattern{11}, w));
   EXPECT_NE(timesOf(ConstantPattern{11}, w), timesOf(ConstantPattern{12}, w));
   EXPECT_NE(timesOf(ConstantPattern{11}, w), timesOf(ConstantPattern{}, w));
}

TEST(BurstPattern, BurstsHoldTheirSizeAndKeepTheMeanRate) {
   FlowWindow const w{0.5, 1, 1000};
   std::vector<double> const t = timesOf(BurstPattern{64}, w);
   ASSERT_EQ(t.size(), 1000u);
   std::map<double, int> bursts;
   for (double x : t) {
      ++bursts[x];
   }
   // 15 full bursts and the remainder of 40 in a last one, each at its first packet's time.
   ASSERT_EQ(bursts.size(), 16u);
   int j = 0;
   for (auto const& [time, size] : bursts) {
      EXPECT_EQ(time, 0.5 + static_cast<double>(j * 64) / 1000);
      EXPECT_EQ(size, j < 15 ? 64 : 40);
      ++j;
   }
   EXPECT_TRUE(std::is_sorted(t.begin(), t.end()));
}

TEST(BurstPattern, SizeThatDividesTheCountLeavesNoRemainder) {
   std::vector<double> const t = timesOf(BurstPattern{50}, FlowWindow{0, 2, 100});
   ASSERT_EQ(t.size(), 200u);
   EXPECT_EQ(std::count(t.begin(), t.end(), t.back()), 50);
   EXPECT_EQ(t.back(), 1.5);
}

TEST(BurstPattern, BurstLargerThanTheFlowSendsItAllAtOnce) {
   std::vector<double> const t = timesOf(BurstPattern{1000}, FlowWindow{3, 1, 100});
   EXPECT_EQ(t, std::vector<double>(100, 3.0));
}

TEST(BurstPattern, BurstOfNoPacketsIsRefused) {
   EXPECT_THROW(makeArrivals(BurstPattern{0}, FlowWindow{0, 1, 10}), TrafficError);
}

TEST(FlowWindow, NegativeOrInfiniteTimeIsRefused) {
   EXPECT_THROW(makeArrivals(ConstantPattern{}, FlowWindow{0, -1, 10}), TrafficError);
   EXPECT_THROW(makeArrivals(PoissonPattern{1}, FlowWindow{0, INFINITY, 10}), TrafficError);
   EXPECT_THROW(makeArrivals(ConstantPattern{}, FlowWindow{NAN, 1, 10}), TrafficError);
}

TEST(PoissonPattern, GapsHaveTheMeanAndVarianceOfTheRate) {
   for (std::uint64_t seed : {1u, 2u, 3u}) {
      FlowWindow const w{4, 100, 1000};
      std::vector<double> const t = timesOf(PoissonPattern{seed}, w);
      // 100,000 expected; the count of a Poisson process has a standard deviation of 316.
      EXPECT_NEAR(static_cast<double>(t.size()), 100000, 1300) << seed;
      double sum = 0;
      double sumSq = 0;
      double prev = w.start;
      for (double x : t) {
         double const gap = x - prev;
         EXPECT_GE(gap, 0);
         sum += gap;
         sumSq += gap * gap;
         prev = x;
      }
      double const n = static_cast<double>(t.size());
      double const mean = sum / n;
      double const variance = sumSq / n - mean * mean;
      EXPECT_NEAR(mean, 1e-3, 1.5e-5) << seed;
      EXPECT_NEAR(variance, 1e-6, 4e-8) << seed;
      EXPECT_LT(t.back(), w.start + w.seconds);
   }
}

TEST(PoissonPattern, SameSeedSameGapsWhateverTheStart) {
   std::vector<double> const a = timesOf(PoissonPattern{9}, FlowWindow{0, 5, 200});
   std::vector<double> const b = timesOf(PoissonPattern{9}, FlowWindow{0, 5, 200});
   std::vector<double> const c = timesOf(PoissonPattern{10}, FlowWindow{0, 5, 200});
   std::vector<double> const d = timesOf(PoissonPattern{9}, FlowWindow{7, 5, 200});
   EXPECT_EQ(a, b);
   EXPECT_NE(a, c);
   ASSERT_EQ(a.size(), d.size());
   for (std::size_t i = 0; i < a.size(); ++i) {
      EXPECT_EQ(d[i], 7 + a[i]);
   }
}

// The engine's raw output is fixed by the standard; the conversions are ours, so these times
// are the same on every machine.
TEST(PoissonPattern, FixedSeedGivesFixedTimes) {
   std::mt19937_64 engine;
   engine.discard(9999);
   EXPECT_EQ(engine(), 9981545732273789042ull);

   std::vector<double> const t = timesOf(PoissonPattern{42}, FlowWindow{0, 10, 100});
   ASSERT_GE(t.size(), 4u);
   // -ln(1 - u) / pps summed, u the top 53 bits of each raw output of mt19937_64(42).
   EXPECT_DOUBLE_EQ(t[0], 0.014071320984121439);
   EXPECT_DOUBLE_EQ(t[1], 0.024260963864293716);
   EXPECT_DOUBLE_EQ(t[2], 0.03821008577598108);
   EXPECT_DOUBLE_EQ(t[3], 0.039675067436463235);
}

TEST(SeededRandom, UniformIsTheTop53BitsOfTheRawOutput) {
   SeededRandom a(5);
   std::mt19937_64 raw(5);
   for (int i = 0; i < 100; ++i) {
      std::uint64_t const r = raw();
      double const u = a.uniform();
      EXPECT_EQ(u, static_cast<double>(r >> 11) / 9007199254740992.0);
      EXPECT_GE(u, 0);
      EXPECT_LT(u, 1);
   }
}

TEST(PatternName, NamesEachPattern) {
   EXPECT_EQ(patternName(ConstantPattern{}), "constant");
   EXPECT_EQ(patternName(BurstPattern{3}), "bursts");
   EXPECT_EQ(patternName(PoissonPattern{3}), "poisson");
}

}  // namespace
