#include <gtest/gtest.h>

#include <any>
#include <optional>
#include <string>
#include <vector>

#include "Kiv/Collection.h"
#include "Kiv/KeyRef.h"
#include "Orvik/IntfId.h"
#include "Oskel/ModIdPortQueueKey.h"

namespace {

using Oskel::ModIdPortQueueKey;

struct Owner : Kiv::Entity {
   Owner() { hasNotificationActiveIs(true); }
   KIV_VALUE_MAP(ModIdPortQueueKey, int, rate)
};

// Keeps where each told key stood and a copy of it.
struct Watcher : Kiv::Notifiee<Owner> {
   std::vector<void const*> places;
   std::vector<std::any> copies;
   void onAttribute(Kiv::AttrId, Kiv::KeyRef const& key) override {
      places.push_back(&key.as<ModIdPortQueueKey>());
      copies.push_back(key.any());
   }
};

struct KivKeyRef : ::testing::Test {
   Kiv::Ptr<Owner> owner{new Owner()};
   Watcher watcher;
   void SetUp() override { watcher.notifierIs(owner); }
};

TEST_F(KivKeyRef, AReactorIsToldTheChangedKeyItselfNotACopy) {
   ModIdPortQueueKey const key(1, 2, 3);
   owner->rateIs(key, 10);
   owner->rateIs(key, 20);
   owner->rateDel(key);
   ASSERT_EQ(watcher.places.size(), 3u);
   for (void const* place : watcher.places) {
      EXPECT_EQ(place, &key);
   }
}

TEST_F(KivKeyRef, AKeptCopyOutlivesTheKey) {
   {
      std::optional<ModIdPortQueueKey> key(std::in_place, 7, 8, 9);
      owner->rateIs(*key, 1);
      key.reset();
   }
   ASSERT_EQ(watcher.copies.size(), 1u);
   EXPECT_TRUE(std::any_cast<ModIdPortQueueKey>(watcher.copies[0]) == ModIdPortQueueKey(7, 8, 9));
}

TEST(KivKeyRefTypes, AnotherTypeIsNullOrThrows) {
   Orvik::IntfId const intf("Ethernet5");
   Kiv::KeyRef const key(intf);
   EXPECT_TRUE(key.is<Orvik::IntfId>());
   EXPECT_FALSE(key.is<U32>());
   EXPECT_EQ(key.get<Orvik::IntfId>(), &intf);
   EXPECT_EQ(key.get<U32>(), nullptr);
   EXPECT_EQ(key.as<Orvik::IntfId>().stringValue(), "Ethernet5");
   EXPECT_THROW(key.as<U32>(), std::bad_any_cast);
   EXPECT_TRUE(key.type() == typeid(Orvik::IntfId));
   Kiv::KeyRef const copy(key);
   EXPECT_EQ(copy.get<Orvik::IntfId>(), &intf);
}

}  // namespace
