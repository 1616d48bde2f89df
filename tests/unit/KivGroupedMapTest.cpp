#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/Collection.h"
#include "Kiv/GroupedMap.h"
#include "Oskel/ModIdPortQueueKey.h"

namespace {

// A key whose group is counted: a lookup that asks for the group searched the index.
struct Slotted {
   int group = 0;
   unsigned slot = 0;
   bool operator==(Slotted const&) const = default;
   bool operator<(Slotted const& o) const {
      return group != o.group ? group < o.group : slot < o.slot;
   }
};

int groupsAsked = 0;

}  // namespace

template <>
struct Kiv::KeyGroups<Slotted> {
   static Slotted group(Slotted const& k) {
      ++groupsAsked;
      return {k.group, 0};
   }
   static unsigned slot(Slotted const& k) { return k.slot; }
};

namespace {

using Key = Oskel::ModIdPortQueueKey;
using Map = Kiv::GroupedMap<Key, int>;

std::vector<std::pair<Key, int>> contents(Map const& m) {
   return {m.begin(), m.end()};
}
std::vector<std::pair<Key, int>> contents(std::map<Key, int> const& m) {
   return {m.begin(), m.end()};
}

TEST(KivGroupedMap, WalksInKeyOrderAcrossQueuesModulesAndGroupsOf64) {
   Map m;
   std::map<Key, int> expected;
   int n = 0;
   for (Key const k : {Key(1, 0, 5), Key(0, 7, 64), Key(0, 7, 63), Key(0, 7, 0), Key(0, 2, 130),
                       Key(1, 0, 4), Key(0, 7, 127), Key(0, 7, 128)}) {
      EXPECT_TRUE(m.try_emplace(k, ++n).second);
      expected.emplace(k, n);
   }
   EXPECT_EQ(contents(m), contents(expected));
   EXPECT_EQ(m.size(), expected.size());
}

TEST(KivGroupedMap, AKeyAlreadyThereKeepsItsValue) {
   Map m;
   m.try_emplace(Key(0, 1, 2), 4);
   auto const [it, inserted] = m.try_emplace(Key(0, 1, 2), 9);
   EXPECT_FALSE(inserted);
   EXPECT_EQ(it->second, 4);
   EXPECT_EQ(m.size(), 1u);
}

TEST(KivGroupedMap, FindsOnlyKeysItHolds) {
   Map m;
   for (U32 q = 0; q < 140; q += 3) {
      m.try_emplace(Key(2, 9, q), static_cast<int>(q));
   }
   for (U32 q = 0; q < 200; ++q) {
      for (Key const k : {Key(2, 9, q), Key(2, 8, q), Key(3, 9, q)}) {
         bool const held = k.modId() == 2 && k.port() == 9 && q < 140 && q % 3 == 0;
         auto const it = m.find(k);
         ASSERT_EQ(it != m.end(), held) << k;
         EXPECT_EQ(m.count(k), held ? 1u : 0u);
         if (held) {
            EXPECT_EQ(it->first, k);
            EXPECT_EQ(it->second, static_cast<int>(q));
         }
      }
   }
}

TEST(KivGroupedMap, ErasingAtAPlaceGivesTheNextElementEvenInTheNextGroup) {
   Map m;
   m.try_emplace(Key(0, 1, 62), 1);
   m.try_emplace(Key(0, 1, 63), 2);
   m.try_emplace(Key(0, 1, 70), 3);
   m.try_emplace(Key(0, 2, 0), 4);
   auto it = m.erase(m.find(Key(0, 1, 62)));
   ASSERT_NE(it, m.end());
   EXPECT_EQ(it->first, Key(0, 1, 63));
   it = m.erase(it);
   ASSERT_NE(it, m.end());
   EXPECT_EQ(it->first, Key(0, 1, 70));
   it = m.erase(it);
   ASSERT_NE(it, m.end());
   EXPECT_EQ(it->first, Key(0, 2, 0));
   EXPECT_EQ(m.erase(it), m.end());
   EXPECT_TRUE(m.empty());
   EXPECT_EQ(m.begin(), m.end());
   EXPECT_EQ(m.erase(Key(0, 1, 62)), 0u);
}

TEST(KivGroupedMap, GetGivesTheElementOfAKeyOrNullAndEraseByKeyOnlyWhatItHolds) {
   Map m;
   EXPECT_EQ(m.get(Key(0, 1, 2)), nullptr);
   EXPECT_EQ(m.erase(Key(0, 1, 2)), 0u);
   m.try_emplace(Key(0, 1, 2), 12);
   m.try_emplace(Key(0, 1, 70), 170);
   auto* const element = m.get(Key(0, 1, 2));
   ASSERT_NE(element, nullptr);
   EXPECT_EQ(element, &*m.find(Key(0, 1, 2)));
   EXPECT_EQ(element->second, 12);
   EXPECT_EQ(m.get(Key(0, 1, 70))->second, 170);
   EXPECT_EQ(m.get(Key(0, 1, 3)), nullptr);  // a group it has, a slot it has not
   EXPECT_EQ(m.get(Key(0, 2, 2)), nullptr);  // a group it has not
   EXPECT_EQ(m.erase(Key(0, 1, 3)), 0u);
   EXPECT_EQ(m.erase(Key(0, 2, 2)), 0u);
   EXPECT_EQ(m.size(), 2u);
   EXPECT_EQ(m.erase(Key(0, 1, 2)), 1u);
   EXPECT_EQ(m.get(Key(0, 1, 2)), nullptr);
   EXPECT_EQ(m.size(), 1u);
   EXPECT_EQ(m.blocks(), 2u);
   EXPECT_EQ(m.erase(Key(0, 1, 70)), 1u);
   EXPECT_EQ(m.blocks(), 0u);
   EXPECT_EQ(m.get(Key(0, 1, 70)), nullptr);
   EXPECT_TRUE(m.empty());
}

TEST(KivGroupedMap, AnElementStaysWhereItIsWhateverElseIsMadeOrErased) {
   Map m;
   auto const [it, inserted] = m.try_emplace(Key(5, 500, 17), 17);
   ASSERT_TRUE(inserted);
   std::pair<Key const, int>* const element = &*it;
   for (U32 port = 0; port < 1000; ++port) {
      for (U32 q = 0; q < 70; q += 7) {
         m.try_emplace(Key(port % 7, port, q), 1);
      }
   }
   for (U32 port = 0; port < 1000; port += 2) {
      m.erase(Key(port % 7, port, 14));
   }
   EXPECT_EQ(&*m.find(Key(5, 500, 17)), element);
   EXPECT_EQ(element->second, 17);
}

// A value that counts the live ones, and that throws when made from a negative number.
int alive = 0;
struct Counted {
   explicit Counted(int v) : value(v) {
      if (v < 0) {
         throw std::runtime_error("negative");
      }
      ++alive;
   }
   Counted(Counted const& o) : value(o.value) { ++alive; }
   ~Counted() { --alive; }
   int value;
};

TEST(KivGroupedMap, EveryValueMadeIsDestroyedOnceAndAValueThatThrowsLeavesNothing) {
   alive = 0;
   {
      Kiv::GroupedMap<Key, Counted> m;
      for (U32 q = 0; q < 100; ++q) {
         m.try_emplace(Key(0, 3, q), static_cast<int>(q));
      }
      EXPECT_EQ(alive, 100);
      EXPECT_THROW(m.try_emplace(Key(0, 3, 200), -1), std::runtime_error);
      EXPECT_THROW(m.try_emplace(Key(0, 4, 1), -1), std::runtime_error);
      EXPECT_EQ(m.size(), 100u);
      EXPECT_EQ(m.blocks(), 2u);
      EXPECT_EQ(m.find(Key(0, 3, 200)), m.end());
      EXPECT_EQ(m.find(Key(0, 4, 1)), m.end());
      for (U32 q = 0; q < 100; q += 2) {
         EXPECT_EQ(m.erase(Key(0, 3, q)), 1u);
      }
      EXPECT_EQ(alive, 50);
      EXPECT_EQ(m.try_emplace(Key(0, 3, 0), 7).first->second.value, 7);
      EXPECT_EQ(alive, 51);
   }
   EXPECT_EQ(alive, 0);
}

TEST(KivGroupedMap, AGroupLeftEmptyKeepsItsBlockUntilTheMapIsEmpty) {
   Map m;
   for (U32 port = 0; port < 3; ++port) {
      for (U32 q = 60; q < 70; ++q) {
         m.try_emplace(Key(0, port, q), 1);
      }
   }
   EXPECT_EQ(m.blocks(), 6u);
   for (U32 q = 64; q < 70; ++q) {
      m.erase(Key(0, 1, q));
   }
   EXPECT_EQ(m.blocks(), 6u);
   // A walk steps over the empty group.
   std::vector<Key> keys;
   for (auto const& [key, value] : m) {
      keys.push_back(key);
   }
   EXPECT_EQ(keys.size(), 24u);
   EXPECT_EQ(keys[9], Key(0, 0, 69));
   EXPECT_EQ(keys[10], Key(0, 1, 60));
   EXPECT_EQ(keys[14], Key(0, 2, 60));
   for (int round = 0; round < 1000; ++round) {
      m.try_emplace(Key(0, 1, 65), round);
      EXPECT_EQ(m.find(Key(0, 1, 65))->second, round);
      m.erase(Key(0, 1, 65));
   }
   EXPECT_EQ(m.blocks(), 6u);
   for (auto it = m.begin(); it != m.end();) {
      it = m.erase(it);
   }
   EXPECT_EQ(m.blocks(), 0u);
   EXPECT_TRUE(m.empty());
}

TEST(KivGroupedMap, TwentyThousandRandomStepsMatchAnOrderedMap) {
   std::mt19937 rng(20261126);
   Map m;
   std::map<Key, int> model;
   auto randomKey = [&] { return Key(rng() % 3, rng() % 6, rng() % 140); };
   for (int step = 0; step < 20000; ++step) {
      Key const k = randomKey();
      switch (rng() % 5) {
         case 0:
         case 1: {
            auto const [it, inserted] = m.try_emplace(k, step);
            auto const [mit, minserted] = model.try_emplace(k, step);
            ASSERT_EQ(inserted, minserted) << k;
            ASSERT_EQ(it->second, mit->second) << k;
            break;
         }
         case 2:
            ASSERT_EQ(m.erase(k), model.erase(k)) << k;
            break;
         case 3: {
            auto const it = m.find(k);
            auto const mit = model.find(k);
            ASSERT_EQ(it == m.end(), mit == model.end()) << k;
            ASSERT_EQ(m.get(k), it == m.end() ? nullptr : &*it) << k;
            if (mit != model.end()) {
               ASSERT_EQ(it->second, mit->second);
               it->second = step;
               mit->second = step;
            }
            break;
         }
         default: {
            // Erase every element of one queue parity during a walk.
            U32 const parity = rng() % 2;
            for (auto it = m.begin(); it != m.end();) {
               it = it->first.queue() % 2 == parity ? m.erase(it) : std::next(it);
            }
            std::erase_if(model, [&](auto const& e) { return e.first.queue() % 2 == parity; });
            break;
         }
      }
      ASSERT_EQ(m.size(), model.size());
      if (step % 97 == 0) {
         ASSERT_EQ(contents(m), contents(model)) << step;
         std::set<Key> groups;
         for (auto const& [key, value] : model) {
            groups.insert(Kiv::KeyGroups<Key>::group(key));
         }
         ASSERT_GE(m.blocks(), groups.size()) << step;
         ASSERT_EQ(m.blocks() == 0, model.empty()) << step;
      }
   }
   ASSERT_EQ(contents(m), contents(model));
}

struct Owner : Kiv::Entity {
   Owner() { hasNotificationActiveIs(true); }
   KIV_GROUPED_VALUE_MAP(Key, int, rate)
};

struct Told : Kiv::Notifiee<Owner> {
   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) override {
      told.emplace_back(std::string(attr), key.as<Key>());
   }
   std::vector<std::pair<std::string, Key>> told;
};

TEST(KivGroupedMap, AsACollectionItNotifiesEveryChangeOnlyAndWalksInKeyOrder) {
   Kiv::Ptr<Owner> const owner(new Owner());
   Told told;
   told.notifierIs(owner);
   EXPECT_TRUE(owner->rateIs(Key(0, 2, 65), 10));
   EXPECT_TRUE(owner->rateIs(Key(0, 2, 1), 20));
   EXPECT_FALSE(owner->rateIs(Key(0, 2, 1), 20));
   EXPECT_TRUE(owner->rateIs(Key(0, 2, 1), 30));
   EXPECT_EQ(owner->rate(Key(0, 2, 1)), 30);
   EXPECT_EQ(owner->rate(Key(0, 2, 2)), 0);
   EXPECT_TRUE(owner->rateHas(Key(0, 2, 65)));
   EXPECT_EQ(owner->rate(), 2u);
   EXPECT_EQ(owner->rateCol().keys(), (std::vector<Key>{Key(0, 2, 1), Key(0, 2, 65)}));
   EXPECT_TRUE(owner->rateDel(Key(0, 2, 65)));
   EXPECT_FALSE(owner->rateDel(Key(0, 2, 65)));
   owner->rateDelAll();
   EXPECT_EQ(owner->rate(), 0u);
   std::vector<std::pair<std::string, Key>> const expected = {{"rate", Key(0, 2, 65)},
                                                              {"rate", Key(0, 2, 1)},
                                                              {"rate", Key(0, 2, 1)},
                                                              {"rate", Key(0, 2, 65)},
                                                              {"rate", Key(0, 2, 1)}};
   EXPECT_EQ(told.told, expected);
}

struct Port : Kiv::Entity {
   explicit Port(Key const& k) : key(k) {
      if (k.queue() == 99) {
         throw std::runtime_error("queue 99");
      }
   }
   Key key;
};

struct Ports : Kiv::Entity {
   Ports() { hasNotificationActiveIs(true); }
   KIV_GROUPED_RECORD_COLLECTION(Key, Port, port)
};

TEST(KivGroupedMap, AsARecordCollectionItMakesARecordOnceAndHandsItBackOnRemoval) {
   Kiv::Ptr<Ports> const ports(new Ports());
   Kiv::Ptr<Port> const made = ports->portIs(Key(1, 4, 70));
   ASSERT_TRUE(made);
   EXPECT_EQ(made->key, Key(1, 4, 70));
   EXPECT_EQ(ports->portIs(Key(1, 4, 70)), made);
   EXPECT_EQ(ports->port(Key(1, 4, 70)), made);
   ports->portIs(Key(1, 4, 3));
   ports->portIs(Key(0, 9, 5));
   EXPECT_EQ(ports->portCol().keys(),
             (std::vector<Key>{Key(0, 9, 5), Key(1, 4, 3), Key(1, 4, 70)}));
   // A record that cannot be made leaves no element behind.
   EXPECT_THROW(ports->portIs(Key(1, 4, 99)), std::runtime_error);
   EXPECT_FALSE(ports->portHas(Key(1, 4, 99)));
   EXPECT_EQ(ports->port(), 3u);
   EXPECT_EQ(ports->portDel(Key(1, 4, 70)), made);
   EXPECT_FALSE(ports->port(Key(1, 4, 70)));
   EXPECT_FALSE(ports->portDel(Key(1, 4, 70)));
   EXPECT_EQ(ports->port(), 2u);
}

struct Slot : Kiv::Entity {
   explicit Slot(Slotted const& k) : key(k) {}
   Slotted key;
};

struct Slots : Kiv::Entity {
   Slots() { hasNotificationActiveIs(true); }
   KIV_GROUPED_RECORD_COLLECTION(Slotted, Slot, slot)
   KIV_GROUPED_VALUE_MAP(Slotted, int, count)
};

struct KivGroupedCollection : ::testing::Test {
   Kiv::Ptr<Slots> owner{new Slots()};
   void SetUp() override {
      for (int group = 0; group < 3; ++group) {
         for (unsigned slot = 0; slot < 10; ++slot) {
            owner->slotIs({group, slot});
            owner->countIs({group, slot}, group * 100 + static_cast<int>(slot));
         }
      }
   }
};

TEST_F(KivGroupedCollection, ARunOfLookupsOfOneKeyAsksForItsGroupOnce) {
   groupsAsked = 0;
   Kiv::Ptr<Slot> const first = owner->slot({1, 7});
   ASSERT_TRUE(first);
   EXPECT_EQ(groupsAsked, 1);
   for (int i = 0; i < 46; ++i) {
      EXPECT_EQ(owner->slot({1, 7}), first);
      EXPECT_TRUE(owner->slotHas({1, 7}));
      EXPECT_EQ(owner->slotIs({1, 7}), first);
   }
   EXPECT_EQ(groupsAsked, 1);

   groupsAsked = 0;
   EXPECT_EQ(owner->count({2, 3}), 203);
   EXPECT_EQ(owner->countCol().value({2, 3}), 203);
   EXPECT_FALSE(owner->countIs({2, 3}, 203));  // the same value changes nothing
   EXPECT_TRUE(owner->countIs({2, 3}, 204));
   EXPECT_EQ(owner->count({2, 3}), 204);
   EXPECT_EQ(groupsAsked, 1);
}

TEST_F(KivGroupedCollection, ARemovedKeyIsNotFoundAgainEvenOnceTheBlocksAreGone) {
   Kiv::Ptr<Slot> const gone = owner->slot({0, 4});
   ASSERT_TRUE(gone);
   EXPECT_EQ(owner->slotDel({0, 4}), gone);
   EXPECT_FALSE(owner->slot({0, 4}));
   EXPECT_FALSE(owner->slotHas({0, 4}));
   Kiv::Ptr<Slot> const again = owner->slotIs({0, 4});
   EXPECT_NE(again, gone);
   EXPECT_EQ(owner->slot({0, 4}), again);

   EXPECT_EQ(owner->count({0, 4}), 4);
   EXPECT_TRUE(owner->countDel({0, 4}));
   EXPECT_FALSE(owner->countHas({0, 4}));
   EXPECT_EQ(owner->countCol().value({0, 4}), std::nullopt);

   // Every key but one removed, the last one found and then removed: the map gives its blocks
   // back, and the lookups after it must not read them.
   for (Slotted const& k : owner->slotCol().keys()) {
      if (!(k == Slotted{2, 9})) {
         owner->slotDel(k);
      }
   }
   Kiv::Ptr<Slot> const last = owner->slot({2, 9});
   ASSERT_TRUE(last);
   EXPECT_EQ(owner->slotDel({2, 9}), last);
   EXPECT_FALSE(owner->slotHas({2, 9}));
   EXPECT_FALSE(owner->slot({2, 9}));
   EXPECT_EQ(owner->slot(), 0u);
   EXPECT_TRUE(owner->slotIs({2, 9}));
   EXPECT_EQ(owner->slot(), 1u);
}

}  // namespace
