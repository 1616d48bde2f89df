#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "Kiv/BlockArray.h"

namespace {

using Pairs = Kiv::BlockArray<std::pair<int, double>>;

std::vector<int> firsts(Pairs const& a) {
   std::vector<int> out;
   for (auto const& p : a) {
      out.push_back(p.first);
   }
   return out;
}

TEST(KivBlockArray, InsertsAnywhereAndKeepsTheRest) {
   Pairs a;
   EXPECT_TRUE(a.empty());
   EXPECT_EQ(a.size(), 0u);
   EXPECT_EQ(a.begin(), a.end());
   a.insert(a.end(), {5, 0.5});
   a.insert(a.begin(), {1, 0.1});
   a.insert(a.begin() + 1, {3, 0.3});
   a.insert(a.end(), {9, 0.9});
   EXPECT_EQ(firsts(a), (std::vector<int>{1, 3, 5, 9}));
   EXPECT_EQ(a.begin()[2].second, 0.5);
   a.begin()[2].second = 5.5;  // items are changed in place
   EXPECT_EQ(a.begin()[2].second, 5.5);
}

TEST(KivBlockArray, CopiesAreTheirOwnAndMovesLeaveItEmpty) {
   Pairs a;
   a.insert(a.end(), {1, 1.0});
   Pairs b(a);
   b.insert(b.end(), {2, 2.0});
   EXPECT_EQ(firsts(a), (std::vector<int>{1}));
   EXPECT_EQ(firsts(b), (std::vector<int>{1, 2}));
   a = b;
   b.begin()->second = 7.0;
   EXPECT_EQ(a.begin()->second, 1.0);
   Pairs c(std::move(a));
   EXPECT_EQ(firsts(c), (std::vector<int>{1, 2}));
   EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move): moved-from is empty
   c = Pairs();
   EXPECT_TRUE(c.empty());
   Pairs const& same = b;
   b = same;
   EXPECT_EQ(firsts(b), (std::vector<int>{1, 2}));
}

}  // namespace
