#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "host/agent/PortQueueKeySet.h"

namespace {

using NimbalHost::PortQueueKeySet;
using Key = Oskel::ModIdPortQueueKey;

std::vector<Key> walked(PortQueueKeySet const& s) {
   std::vector<Key> keys;
   for (Key const& key : s) {
      keys.push_back(key);
   }
   return keys;
}

TEST(SimPortQueueKeySet, KeysOfOnePortAreBitsUnderItAndWalkInKeyOrder) {
   PortQueueKeySet s;
   EXPECT_TRUE(s.empty());
   EXPECT_TRUE(s.insert(Key(1, 7, 3)));
   EXPECT_TRUE(s.insert(Key(1, 7, 0)));
   EXPECT_TRUE(s.insert(Key(1, 7, 63)));
   EXPECT_FALSE(s.insert(Key(1, 7, 3)));
   EXPECT_TRUE(s.insert(Key(0, 9, 5)));
   EXPECT_TRUE(s.insert(Key(1, 6, 47)));
   EXPECT_EQ(s.size(), 5u);
   EXPECT_EQ(walked(s), (std::vector<Key>{Key(0, 9, 5), Key(1, 6, 47), Key(1, 7, 0), Key(1, 7, 3),
                                          Key(1, 7, 63)}));
   EXPECT_EQ(s.count(Key(1, 7, 63)), 1u);
   EXPECT_EQ(s.count(Key(1, 7, 62)), 0u);
   EXPECT_EQ(s.count(Key(1, 8, 3)), 0u);
   // A module id and a port are not confused with each other's bits.
   EXPECT_EQ(s.count(Key(7, 1, 3)), 0u);
}

TEST(SimPortQueueKeySet, QueuesAbove63AreKeptApartAndWalkedLast) {
   PortQueueKeySet s{Key(2, 1, 64), Key(2, 1, 1), Key(0, 0, 4000000000u)};
   EXPECT_EQ(s.size(), 3u);
   EXPECT_EQ(s.count(Key(2, 1, 64)), 1u);
   EXPECT_EQ(s.count(Key(2, 1, 0)), 0u);  // 64 is not bit 0
   EXPECT_EQ(walked(s), (std::vector<Key>{Key(2, 1, 1), Key(0, 0, 4000000000u), Key(2, 1, 64)}));
   EXPECT_EQ(s.erase(Key(2, 1, 64)), 1u);
   EXPECT_EQ(s.erase(Key(2, 1, 64)), 0u);
   EXPECT_EQ(s.size(), 2u);
}

TEST(SimPortQueueKeySet, APortEmptiedAndEnteredAgainIsFoundAgain) {
   PortQueueKeySet s{Key(1, 2, 3)};
   EXPECT_EQ(s.erase(Key(1, 2, 4)), 0u);  // another queue of the port entered last
   EXPECT_EQ(s.erase(Key(1, 2, 3)), 1u);
   EXPECT_TRUE(s.empty());
   EXPECT_EQ(s.count(Key(1, 2, 3)), 0u);
   EXPECT_EQ(s.erase(Key(1, 2, 3)), 0u);
   EXPECT_TRUE(s.insert(Key(1, 2, 5)));
   EXPECT_EQ(walked(s), std::vector<Key>{Key(1, 2, 5)});
   // An emptied port leaves nothing behind: the set equals one that never held it.
   EXPECT_EQ(s, (PortQueueKeySet{Key(1, 2, 5)}));
   EXPECT_TRUE(s.insert(Key(3, 3, 3)));
   EXPECT_EQ(s.erase(Key(3, 3, 3)), 1u);
   EXPECT_EQ(s, (PortQueueKeySet{Key(1, 2, 5)}));
}

TEST(SimPortQueueKeySet, ACopyIsEqualAndChangesApart) {
   PortQueueKeySet a{Key(1, 1, 1), Key(1, 1, 2)};
   PortQueueKeySet b = a;
   EXPECT_EQ(a, b);
   EXPECT_TRUE(b.insert(Key(1, 1, 3)));  // b's port entered last is its own
   EXPECT_EQ(a.count(Key(1, 1, 3)), 0u);
   EXPECT_FALSE(a == b);
   a = b;
   EXPECT_EQ(a.erase(Key(1, 1, 1)), 1u);
   EXPECT_EQ(b.count(Key(1, 1, 1)), 1u);
   EXPECT_EQ(a.size(), 2u);
   EXPECT_EQ(b.size(), 3u);
}

// Random keys, a few ports and queues on both sides of 63, against a standard set: every
// answer and every walk the same.
TEST(SimPortQueueKeySetRandom, MatchesAStandardSet) {
   std::mt19937 rng(17);
   PortQueueKeySet s;
   std::set<Key> model;
   for (int step = 0; step < 20000; ++step) {
      Key const key(rng() % 3, rng() % 4, rng() % 70);
      switch (rng() % 3) {
         case 0:
            ASSERT_EQ(s.insert(key), model.insert(key).second) << step;
            break;
         case 1:
            ASSERT_EQ(s.erase(key), model.erase(key)) << step;
            break;
         default:
            ASSERT_EQ(s.count(key), model.count(key)) << step;
      }
      ASSERT_EQ(s.size(), model.size()) << step;
      if (step % 500 == 0) {
         std::vector<Key> expected;
         for (Key const& k : model) {
            if (k.queue() < 64) {
               expected.push_back(k);
            }
         }
         for (Key const& k : model) {
            if (k.queue() >= 64) {
               expected.push_back(k);
            }
         }
         ASSERT_EQ(walked(s), expected) << step;
      }
   }
}

}  // namespace
