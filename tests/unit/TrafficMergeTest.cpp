#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "TrafficArrivalsHelpers.h"
#include "host/traffic/FlowMerge.h"
#include "host/traffic/SyntheticArrivals.h"

namespace {

using namespace NimbalHost;
using TrafficTest::ListedArrivals;

std::vector<std::pair<double, std::size_t>> merged(std::vector<ArrivalSource*> sources) {
   FlowMerge merge(std::move(sources));
   std::vector<std::pair<double, std::size_t>> out;
   MergedArrival m;
   while (merge.next(m)) {
      out.emplace_back(m.arrival.time, m.flow);
   }
   return out;
}

TEST(FlowMerge, PacketsComeInTimeOrderAndEqualTimesInListedOrder) {
   ListedArrivals a({0, 1, 1, 3});
   ListedArrivals b({1, 2});
   ListedArrivals c({0, 1});
   std::vector<std::pair<double, std::size_t>> const expected{{0, 0}, {0, 2}, {1, 0}, {1, 0},
                                                              {1, 1}, {1, 2}, {2, 1}, {3, 0}};
   EXPECT_EQ(merged({&a, &b, &c}), expected);
}

TEST(FlowMerge, ListedOrderDecidesTiesWhateverTheHeapDoes) {
   // Many flows at one instant: the heap must still hand them out by index.
   std::vector<std::unique_ptr<ListedArrivals>> flows;
   std::vector<ArrivalSource*> sources;
   for (int f = 0; f < 37; ++f) {
      flows.push_back(std::make_unique<ListedArrivals>(std::vector<double>{5, 5, 6}));
      sources.push_back(flows.back().get());
   }
   auto const out = merged(sources);
   ASSERT_EQ(out.size(), 37u * 3);
   for (std::size_t i = 0; i < 37 * 2; ++i) {
      EXPECT_EQ(out[i].second, i / 2);
   }
   for (std::size_t i = 0; i < 37; ++i) {
      EXPECT_EQ(out[37 * 2 + i], std::make_pair(6.0, i));
   }
}

TEST(FlowMerge, KeepsEachFlowsOwnPacketsAndOrder) {
   std::vector<std::unique_ptr<ArrivalSource>> flows;
   std::vector<std::vector<double>> own;
   std::vector<ArrivalSource*> sources;
   for (std::uint64_t f = 0; f < 20; ++f) {
      FlowWindow const w{0.5, 2, static_cast<std::uint32_t>(50 + 37 * f)};
      ArrivalPattern const p = f % 3 == 0   ? ArrivalPattern{PoissonPattern{f}}
                               : f % 3 == 1 ? ArrivalPattern{BurstPattern{f}}
                                            : ArrivalPattern{ConstantPattern{f}};
      own.push_back(TrafficTest::timesOf(p, w));
      flows.push_back(makeArrivals(p, w));
      sources.push_back(flows.back().get());
   }
   auto const out = merged(sources);
   std::vector<std::vector<double>> seen(20);
   for (std::size_t i = 0; i < out.size(); ++i) {
      if (i > 0) {
         ASSERT_TRUE(out[i - 1].first < out[i].first ||
                     (out[i - 1].first == out[i].first && out[i - 1].second <= out[i].second))
             << i;
      }
      seen[out[i].second].push_back(out[i].first);
   }
   EXPECT_EQ(seen, own);
}

TEST(FlowMerge, AFlowMovesOnOnlyAfterItsPacketWasTaken) {
   ListedArrivals a({1, 2});
   ListedArrivals b({1.5});
   FlowMerge merge({&a, &b});
   EXPECT_EQ(a.calls, 1);
   MergedArrival m;
   ASSERT_TRUE(merge.next(m));
   EXPECT_EQ(m.flow, 0u);
   EXPECT_EQ(m.arrival.slot, 0u);
   // Until the next call, flow 0 still holds the packet just returned.
   EXPECT_EQ(a.calls, 1);
   ASSERT_TRUE(merge.next(m));
   EXPECT_EQ(a.calls, 2);
   EXPECT_EQ(m.flow, 1u);
   ASSERT_TRUE(merge.next(m));
   EXPECT_EQ(m.flow, 0u);
   EXPECT_EQ(m.arrival.slot, 1u);
   EXPECT_FALSE(merge.next(m));
   EXPECT_FALSE(merge.next(m));
}

TEST(FlowMerge, EmptyAndMissingFlowsAreSkipped) {
   ListedArrivals empty({});
   ListedArrivals one({0.25});
   EXPECT_EQ(merged({&empty, nullptr, &one}),
             (std::vector<std::pair<double, std::size_t>>{{0.25, 2}}));
   EXPECT_TRUE(merged({}).empty());
}

}  // namespace
