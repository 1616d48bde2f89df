#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

#include "Kiv/Collection.h"

namespace {

// A key whose hash counts its calls: a lookup that hashes searched the table.
struct Hashed {
   int value = 0;
   bool operator==(Hashed const&) const = default;
};

int hashes = 0;

}  // namespace

template <>
struct std::hash<Hashed> {
   std::size_t operator()(Hashed const& k) const {
      ++hashes;
      return std::hash<int>()(k.value);
   }
};

namespace {

struct Record : Kiv::Entity {
   explicit Record(Hashed const& k) : key(k) {}
   Hashed key;
};

struct Owner : Kiv::Entity {
   Owner() { hasNotificationActiveIs(true); }
   KIV_RECORD_COLLECTION(Hashed, Record, record)
   KIV_VALUE_MAP(Hashed, int, count)
};

struct KivCollectionLookup : ::testing::Test {
   Kiv::Ptr<Owner> owner{new Owner()};
   void SetUp() override {
      for (int k = 0; k < 200; ++k) {
         owner->recordIs(Hashed{k});
         owner->countIs(Hashed{k}, k);
      }
   }
};

TEST_F(KivCollectionLookup, ARunOfLookupsOfOneKeyHashesOnce) {
   hashes = 0;
   Kiv::Ptr<Record> const first = owner->record(Hashed{150});
   ASSERT_TRUE(first);
   EXPECT_EQ(hashes, 1);
   for (int i = 0; i < 46; ++i) {
      EXPECT_EQ(owner->record(Hashed{150}), first);
      EXPECT_TRUE(owner->recordHas(Hashed{150}));
      EXPECT_EQ(owner->recordIs(Hashed{150}), first);
   }
   EXPECT_EQ(hashes, 1);

   hashes = 0;
   EXPECT_EQ(owner->count(Hashed{70}), 70);
   EXPECT_EQ(owner->countCol().value(Hashed{70}), 70);
   EXPECT_FALSE(owner->countIs(Hashed{70}, 70));  // the same value changes nothing
   EXPECT_TRUE(owner->countIs(Hashed{70}, 71));
   EXPECT_EQ(owner->count(Hashed{70}), 71);
   EXPECT_EQ(hashes, 1);
}

TEST_F(KivCollectionLookup, ARemovedKeyIsNotFoundAgain) {
   Kiv::Ptr<Record> const gone = owner->record(Hashed{9});
   ASSERT_TRUE(gone);
   EXPECT_EQ(owner->recordDel(Hashed{9}), gone);
   EXPECT_FALSE(owner->record(Hashed{9}));
   EXPECT_FALSE(owner->recordHas(Hashed{9}));
   Kiv::Ptr<Record> const again = owner->recordIs(Hashed{9});
   EXPECT_NE(again, gone);
   EXPECT_EQ(owner->record(Hashed{9}), again);

   EXPECT_EQ(owner->count(Hashed{9}), 9);
   owner->countDel(Hashed{9});
   EXPECT_FALSE(owner->countHas(Hashed{9}));
   EXPECT_EQ(owner->count(Hashed{9}), 0);
   EXPECT_EQ(owner->countCol().value(Hashed{9}), std::nullopt);
   EXPECT_TRUE(owner->countIs(Hashed{9}, 90));
   EXPECT_EQ(owner->count(Hashed{9}), 90);

   EXPECT_TRUE(owner->recordHas(Hashed{10}));
   owner->recordDelAll();
   EXPECT_FALSE(owner->recordHas(Hashed{10}));
   EXPECT_EQ(owner->record(), 0u);
}

TEST_F(KivCollectionLookup, AValueIsNewOnlyWhereTheKeyHasNoneAndIsFoundInOneLookup) {
   hashes = 0;
   EXPECT_FALSE(owner->countIsNew(Hashed{7}, 70));  // the value it has is kept
   EXPECT_EQ(owner->count(Hashed{7}), 7);
   EXPECT_EQ(hashes, 1);

   hashes = 0;
   EXPECT_TRUE(owner->countIsNew(Hashed{700}, 5));
   EXPECT_EQ(hashes, 1);
   EXPECT_FALSE(owner->countIsNew(Hashed{700}, 6));
   EXPECT_EQ(owner->count(Hashed{700}), 5);
   EXPECT_EQ(hashes, 1);
   EXPECT_EQ(owner->count(), 201u);

   owner->countDel(Hashed{700});
   EXPECT_TRUE(owner->countIsNew(Hashed{700}, 8));
   EXPECT_EQ(owner->count(Hashed{700}), 8);
}

// Any mix of changes and repeated lookups finds what a standard map holds.
TEST(KivCollectionLookupRandom, LookupsMatchAStandardMap) {
   Kiv::Ptr<Owner> const owner(new Owner());
   std::map<int, int> model;
   std::mt19937 random(29);
   for (int step = 0; step < 20000; ++step) {
      int const key = static_cast<int>(random() % 64);
      int const value = static_cast<int>(random() % 4);
      switch (random() % 4) {
         case 0:
            owner->countIs(Hashed{key}, value);
            model[key] = value;
            break;
         case 1:
            owner->countDel(Hashed{key});
            model.erase(key);
            break;
         case 2:
            ASSERT_EQ(owner->countIsNew(Hashed{key}, value), model.emplace(key, value).second)
                << step;
            break;
         default:
            if (random() % 16 == 0) {
               owner->countDelAll();
               model.clear();
            }
            break;
      }
      for (int look = 0; look < 2; ++look) {
         auto const it = model.find(key);
         ASSERT_EQ(owner->countHas(Hashed{key}), it != model.end()) << step;
         ASSERT_EQ(owner->count(Hashed{key}), it != model.end() ? it->second : 0) << step;
      }
      ASSERT_EQ(owner->count(), model.size()) << step;
   }
}

}  // namespace
