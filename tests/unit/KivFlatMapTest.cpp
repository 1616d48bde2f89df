#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "Kiv/FlatMap.h"

namespace {

template <class Key, class Value>
std::vector<std::pair<Key, Value>> contents(Kiv::FlatMap<Key, Value> const& m) {
   return {m.begin(), m.end()};
}
template <class Key, class Value>
std::vector<std::pair<Key, Value>> contents(std::map<Key, Value> const& m) {
   return {m.begin(), m.end()};
}

TEST(KivFlatMap, KeepsItsElementsInAscendingKeyOrderWhateverTheOrderTheyCameIn) {
   Kiv::FlatMap<unsigned, std::string> m;
   for (unsigned k : {7u, 3u, 9u, 1u, 5u}) {
      EXPECT_TRUE(m.try_emplace(k, std::to_string(k)).second);
   }
   std::vector<std::pair<unsigned, std::string>> const expected = {
       {1, "1"}, {3, "3"}, {5, "5"}, {7, "7"}, {9, "9"}};
   EXPECT_EQ(contents(m), expected);
   EXPECT_EQ(m.size(), 5u);
}

TEST(KivFlatMap, AKeyAlreadyThereKeepsItsValue) {
   Kiv::FlatMap<unsigned, std::string> m;
   m.try_emplace(4, "four");
   auto const [it, inserted] = m.try_emplace(4, "other");
   EXPECT_FALSE(inserted);
   EXPECT_EQ(it->second, "four");
   EXPECT_EQ(m.size(), 1u);
}

TEST(KivFlatMap, FindsOnlyKeysItHolds) {
   Kiv::FlatMap<int, int> m;
   for (int k = 0; k < 100; k += 2) {
      m.try_emplace(k, k * 10);
   }
   for (int k = -1; k <= 100; ++k) {
      auto const it = m.find(k);
      if (k >= 0 && k < 100 && k % 2 == 0) {
         ASSERT_NE(it, m.end()) << k;
         EXPECT_EQ(it->first, k);
         EXPECT_EQ(it->second, k * 10);
         EXPECT_EQ(m.count(k), 1u);
      } else {
         EXPECT_EQ(it, m.end()) << k;
         EXPECT_EQ(m.count(k), 0u);
      }
   }
}

TEST(KivFlatMap, ErasingAtAPlaceGivesTheNextElement) {
   Kiv::FlatMap<int, int> m;
   for (int k = 1; k <= 5; ++k) {
      m.try_emplace(k, k);
   }
   // Every odd key goes during one walk.
   for (auto it = m.begin(); it != m.end();) {
      it = it->first % 2 == 1 ? m.erase(it) : std::next(it);
   }
   std::vector<std::pair<int, int>> const expected = {{2, 2}, {4, 4}};
   EXPECT_EQ(contents(m), expected);
   EXPECT_EQ(m.erase(2), 1u);
   EXPECT_EQ(m.erase(3), 0u);
   EXPECT_EQ(m.size(), 1u);
   m.clear();
   EXPECT_TRUE(m.empty());
}

// A key that counts the comparisons made with it.
struct Counted {
   int value = 0;
   static inline int comparisons = 0;
   bool operator<(Counted const& o) const {
      ++comparisons;
      return value < o.value;
   }
};

TEST(KivFlatMap, ARunOfLookupsOfOneKeySearchesOnce) {
   Kiv::FlatMap<Counted, int> m;
   for (int k = 0; k < 1024; ++k) {
      m.try_emplace(Counted{k}, k);
   }
   Counted::comparisons = 0;
   ASSERT_NE(m.find(Counted{700}), m.end());
   int const search = Counted::comparisons;
   EXPECT_GE(search, 10);
   for (int i = 0; i < 46; ++i) {
      Counted::comparisons = 0;
      auto const it = m.find(Counted{700});
      ASSERT_NE(it, m.end());
      EXPECT_EQ(it->second, 700);
      EXPECT_EQ(Counted::comparisons, 2);
   }
}

TEST(KivFlatMap, AWalkInKeyOrderComparesAtMostFourTimesAKey) {
   Kiv::FlatMap<Counted, int> m;
   for (int k = 0; k < 1024; ++k) {
      m.try_emplace(Counted{k}, k);
   }
   ASSERT_NE(m.find(Counted{0}), m.end());
   for (int k = 1; k < 1024; ++k) {
      Counted::comparisons = 0;
      auto const it = m.find(Counted{k});
      ASSERT_NE(it, m.end());
      EXPECT_EQ(it->second, k);
      EXPECT_LE(Counted::comparisons, 4) << "key " << k;
   }
   // Out of order, it searches again, and finds.
   EXPECT_EQ(m.find(Counted{3})->second, 3);
   EXPECT_EQ(m.find(Counted{5000}), m.end());
}

// A key that says equality itself: the hint is checked with one equality, not two orderings.
struct Equated {
   int value = 0;
   static inline int equalities = 0;
   static inline int orderings = 0;
   bool operator==(Equated const& o) const {
      ++equalities;
      return value == o.value;
   }
   bool operator<(Equated const& o) const {
      ++orderings;
      return value < o.value;
   }
};

TEST(KivFlatMap, AKeyThatSaysEqualityIsCheckedAgainstTheHintOnce) {
   Kiv::FlatMap<Equated, int> m;
   for (int k = 0; k < 64; ++k) {
      m.try_emplace(Equated{k}, k);
   }
   ASSERT_EQ(m.find(Equated{40})->second, 40);
   Equated::equalities = 0;
   Equated::orderings = 0;
   EXPECT_EQ(m.find(Equated{40})->second, 40);
   EXPECT_EQ(Equated::equalities, 1);
   EXPECT_EQ(Equated::orderings, 0);
   EXPECT_EQ(m.find(Equated{41})->second, 41);  // the next place: one more equality
   EXPECT_EQ(Equated::equalities, 3);
   EXPECT_EQ(Equated::orderings, 0);
}

TEST(KivFlatMap, GetGivesTheElementOfAKeyOrNull) {
   Kiv::FlatMap<int, int> m;
   EXPECT_EQ(m.get(3), nullptr);
   for (int k : {1, 3, 5}) {
      m.try_emplace(k, k * 10);
   }
   for (int k = 0; k < 7; ++k) {
      auto const* const element = m.get(k);
      if (k % 2 == 1) {
         ASSERT_NE(element, nullptr) << k;
         EXPECT_EQ(element, &*m.find(k));
         EXPECT_EQ(element->second, k * 10);
      } else {
         EXPECT_EQ(element, nullptr) << k;
      }
   }
   m.erase(5);
   EXPECT_EQ(m.get(5), nullptr);  // under the hint of the last key found
}

// The place of the last key found is a hint only: whatever moved since, a lookup finds the key
// where it stands now, or nothing.
TEST(KivFlatMap, ALookupAfterAChangeFindsTheKeyWhereItStandsNow) {
   Kiv::FlatMap<int, int> m;
   for (int k : {1, 3, 5, 7}) {
      m.try_emplace(k, k * 10);
   }
   ASSERT_EQ(m.find(5)->second, 50);  // found at the third place
   m.try_emplace(4, 40);              // 4 now stands there, 5 one further
   EXPECT_EQ(m.find(5)->second, 50);
   EXPECT_EQ(m.find(4)->second, 40);
   EXPECT_EQ(m.erase(4), 1u);  // 5 is back at the third place, under the hint
   EXPECT_EQ(m.find(5)->second, 50);
   EXPECT_EQ(m.erase(5), 1u);
   EXPECT_EQ(m.find(5), m.end());
   ASSERT_EQ(m.find(7)->second, 70);  // the last place
   m.erase(7);
   m.erase(3);
   EXPECT_EQ(m.find(7), m.end());  // the hint now lies past the end
   EXPECT_EQ(m.find(1)->second, 10);
   Kiv::FlatMap<int, int> const copy = m;
   EXPECT_EQ(copy.find(1)->second, 10);
   EXPECT_EQ(copy.find(7), copy.end());
}

// Any history of inserts and erases leaves the same elements, in the same order, as the tree.
TEST(KivFlatMap, AnyHistoryLeavesWhatAnOrderedTreeHolds) {
   std::mt19937 random(17);
   Kiv::FlatMap<int, int> flat;
   std::map<int, int> tree;
   for (int step = 0; step < 20000; ++step) {
      int const key = static_cast<int>(random() % 300);
      // Lookups in runs, as after a change: the second may take the hint of the first.
      ASSERT_EQ(flat.count(key), tree.count(key));
      ASSERT_EQ(flat.count(key), tree.count(key));
      switch (random() % 4) {
         case 0:
         case 1: {
            auto const [fit, fin] = flat.try_emplace(key, step);
            auto const [tit, tin] = tree.try_emplace(key, step);
            ASSERT_EQ(fin, tin);
            ASSERT_EQ(fit->second, tit->second);
            break;
         }
         case 2:
            ASSERT_EQ(flat.erase(key), tree.erase(key));
            break;
         default: {
            auto const fit = flat.find(key);
            auto const tit = tree.find(key);
            ASSERT_EQ(fit == flat.end(), tit == tree.end());
            if (fit != flat.end()) {
               auto const fnext = flat.erase(fit);
               auto const tnext = tree.erase(tit);
               ASSERT_EQ(fnext == flat.end(), tnext == tree.end());
               if (fnext != flat.end()) {
                  ASSERT_EQ(fnext->first, tnext->first);
               }
            }
         }
      }
      ASSERT_EQ(flat.size(), tree.size());
   }
   EXPECT_EQ(contents(flat), contents(tree));
}

}  // namespace
