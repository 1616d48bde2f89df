#include <gtest/gtest.h>

#include <vector>

#include "Shim/StatTable.h"

namespace {

using Shim::FieldStat;
using Shim::StatTable;

TEST(SimChipStatTable, AStatisticIsFoundAtItsIdAndNowhereElse) {
   StatTable t;
   EXPECT_EQ(t.find(1), nullptr);
   EXPECT_EQ(t.find(-1), nullptr);
   EXPECT_EQ(t.find(1 << 30), nullptr);
   FieldStat& s = t.make(7);
   s.id = 7;
   EXPECT_EQ(t.find(7), &s);
   EXPECT_EQ(t.find(6), nullptr);
   EXPECT_EQ(t.find(8), nullptr);
   EXPECT_EQ(t.find(7 + 256), nullptr);
   EXPECT_EQ(t.size(), 1u);
   StatTable const& c = t;
   EXPECT_EQ(c.find(7), &s);
}

TEST(SimChipStatTable, StatisticsStayWhereTheyAreWhileOthersComeAndGo) {
   StatTable t;
   std::vector<FieldStat*> made;
   for (int id = 1; id <= 1000; ++id) {
      FieldStat& s = t.make(id);
      s.id = id;
      made.push_back(&s);
   }
   for (int id = 2; id <= 1000; id += 2) {
      t.erase(id);
   }
   EXPECT_EQ(t.size(), 500u);
   for (int id = 1; id <= 1000; ++id) {
      if (id % 2 == 1) {
         ASSERT_EQ(t.find(id), made[static_cast<std::size_t>(id - 1)]);
         EXPECT_EQ(t.find(id)->id, id);
      } else {
         EXPECT_EQ(t.find(id), nullptr);
      }
   }
   // Erasing what is not there changes nothing.
   t.erase(2);
   t.erase(5000);
   t.erase(-3);
   EXPECT_EQ(t.size(), 500u);
}

TEST(SimChipStatTable, ABlockOfPlacesIsGivenBackWithItsLastStatistic) {
   StatTable t;
   for (int id = 1; id <= 600; ++id) {
      t.make(id);
   }
   EXPECT_EQ(t.blocksHeld(), 3u);
   for (int id = 256; id < 512; ++id) {
      t.erase(id);
   }
   EXPECT_EQ(t.blocksHeld(), 2u);
   EXPECT_EQ(t.find(300), nullptr);
   EXPECT_NE(t.find(255), nullptr);
   EXPECT_NE(t.find(512), nullptr);
   // A later statistic in that block's range makes it again.
   FieldStat& again = t.make(300);
   EXPECT_EQ(t.find(300), &again);
   EXPECT_EQ(t.blocksHeld(), 3u);
   EXPECT_EQ(t.size(), 600u - 256u + 1u);
}

}  // namespace
