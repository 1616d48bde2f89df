#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "Shim/Meter.h"
#include "TrafficArrivalsHelpers.h"
#include "host/traffic/SyntheticArrivals.h"

namespace {

using namespace NimbalHost;
using TrafficTest::timesOf;

// Packets through one meter created full at the flow's start, as a policer programmed before
// the traffic step; returns how many found a token.
std::uint64_t throughOneMeter(std::vector<double> const& times, double created, U32 rate,
                              U32 burst) {
   Shim::TokenBucket meter(created, burst);
   std::uint64_t allowed = 0;
   for (double t : times) {
      allowed += meter.take(t, rate, burst) ? 1 : 0;
   }
   return allowed;
}

TEST(ConstantPatternThroughOneMeter, KeepsBurstPlusRateTimesTime) {
   for (std::optional<std::uint64_t> seed :
        {std::optional<std::uint64_t>{}, std::optional<std::uint64_t>{1},
         std::optional<std::uint64_t>{2}, std::optional<std::uint64_t>{3}}) {
      for (U32 pps : {150u, 500u, 1000u, 2000u, 5000u}) {
         for (U32 rate : {100u, 300u, 600u, 900u, 1400u, 1900u}) {
            for (U32 burst : {2u, 5u, 10u, 60u, 90u, 140u}) {
               for (double seconds : {1.0, 2.0, 3.3}) {
                  FlowWindow const w{1.0, seconds, pps};
                  std::vector<double> const t = timesOf(ConstantPattern{seed}, w);
                  std::uint64_t const allowed = throughOneMeter(t, w.start, rate, burst);
                  if (rate >= pps) {
                     // A flow within its rate loses nothing.
                     EXPECT_EQ(allowed, t.size()) << pps << " " << rate << " " << burst;
                     continue;
                  }
                  // Bursts of under a few packets' worth of tokens lose whatever a longer gap
                  // brings beyond them; the arithmetic holds for the rest.
                  if (burst < 1 + 2.0 * rate / pps) {
                     continue;
                  }
                  double const expected =
                      std::min(static_cast<double>(t.size()), burst + rate * seconds);
                  EXPECT_NEAR(static_cast<double>(allowed), expected, 1.0)
                      << "seed " << (seed ? static_cast<int>(*seed) : -1) << " pps " << pps
                      << " rate " << rate << " burst " << burst << " seconds " << seconds;
               }
            }
         }
      }
   }
}

// The chip meters a packet with its class's meter and its port's default meter in parallel:
// each takes a token when it has one; the packet passes only if neither found it red.
struct TwoMeters {
   Shim::TokenBucket cls{0, 60};
   Shim::TokenBucket port{0, 100};
   std::uint64_t allowed = 0;
   void packet(double t) {
      bool const c = cls.take(t, 600, 60);
      bool const p = port.take(t, 1000, 100);
      allowed += c && p ? 1 : 0;
   }
};

// A 5,000 pps flood for 10 s on a class policed at 600 pps, its port's default policer at
// 1,000 pps; `shift` before the flood one unrelated packet of the port took a default token.
std::uint64_t floodAfterUnrelatedPacket(std::optional<std::uint64_t> jitterSeed, double shift,
                                        double flowShift = 0) {
   TwoMeters m;
   double const t0 = 1.0;
   m.port.take(t0 - shift, 1000, 100);
   m.cls.take(t0, 600, 60);
   for (double t : timesOf(ConstantPattern{jitterSeed}, FlowWindow{t0 + flowShift, 10, 5000})) {
      m.packet(t);
   }
   return m.allowed;
}

std::pair<std::uint64_t, std::uint64_t> lowestAndHighest(std::vector<std::uint64_t> const& v) {
   auto const [lo, hi] = std::minmax_element(v.begin(), v.end());
   return {*lo, *hi};
}

// Evenly spaced packets lock onto the meters' refill times: shifting the flood by a fraction of
// a millisecond flips the answer between two extremes. The jitter's wandering phase takes the
// lock away, so the answer no longer depends on where the flood happens to start.
TEST(ConstantPatternThroughTwoMeters, FloodNoLongerLocksOntoTheMetersPeriods) {
   for (std::uint64_t seed : {1u, 2u, 3u}) {
      std::vector<std::uint64_t> exact;
      std::vector<std::uint64_t> jittered;
      for (int k = 0; k < 10; ++k) {
         double const flowShift = k * 0.00005;
         exact.push_back(floodAfterUnrelatedPacket(std::nullopt, 0.0002, flowShift));
         jittered.push_back(floodAfterUnrelatedPacket(seed, 0.0002, flowShift));
      }
      auto const [exactLow, exactHigh] = lowestAndHighest(exact);
      auto const [low, high] = lowestAndHighest(jittered);
      // Without jitter: the burst alone, or a third of the class's rate on top of it.
      EXPECT_LT(exactLow, 100u);
      EXPECT_GT(exactHigh, 2000u);
      // With it: one answer, give or take the statistics of random coincidences.
      EXPECT_GT(low, 8 * exactLow) << seed;
      EXPECT_LT(static_cast<double>(high), 1.25 * static_cast<double>(low)) << seed;
   }
}

// Jitter cannot make a flood's answer independent of the two meters' own relative phase: each
// meter's refill times are fixed from the moment it was last full, whatever the arrivals, and
// whether a class token and a port token reach the same packet depends on how far apart those
// times are. An unrelated packet that drains the port's meter earlier moves them apart.
TEST(ConstantPatternThroughTwoMeters, AnswerStillDependsOnTheMetersRelativePhase) {
   std::vector<std::uint64_t> byShift;
   for (double shift : {0.0001, 0.0002, 0.0003, 0.0004, 0.0005, 0.0006, 0.0007, 0.0008}) {
      byShift.push_back(floodAfterUnrelatedPacket(1, shift));
   }
   auto const [low, high] = lowestAndHighest(byShift);
   EXPECT_GT(static_cast<double>(high), 1.5 * static_cast<double>(low));
   // Still never the aliased extremes of the exact pattern.
   EXPECT_GT(low, 500u);
   EXPECT_LT(high, 2000u);
}

}  // namespace
