#include <gtest/gtest.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "Kiv/Collection.h"
#include "Orvik/IntfId.h"

namespace {

struct Record : Kiv::Entity {
   explicit Record(Orvik::IntfId const& k) : key(k) {}
   Orvik::IntfId key;
   int value = 0;
};

struct Owner : Kiv::Entity {
   Owner() { hasNotificationActiveIs(true); }
   KIV_RECORD_COLLECTION(Orvik::IntfId, Record, record)
   KIV_VALUE_MAP(Orvik::IntfId, int, count)
   KIV_ORDERED_MAP(U32, bool, inUse)
   KIV_INNER_VALUE_MAP(U32, U64, quiet)
};

// Records every notification it receives.
struct Observer : Kiv::Notifiee<Owner> {
   std::vector<std::string> seen;
   void onAttribute(Kiv::AttrId attr) override { seen.push_back(std::string(attr)); }
   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const& key) override {
      std::string k;
      if (auto const* i = key.get<Orvik::IntfId>()) {
         k = i->stringValue();
      } else if (auto const* u = key.get<U32>()) {
         k = std::to_string(*u);
      }
      seen.push_back(std::string(attr) + ":" + k);
   }
};

struct KivCollection : ::testing::Test {
   Kiv::Ptr<Owner> owner{new Owner()};
   Observer observer;
   void SetUp() override { observer.notifierIs(owner); }
};

TEST_F(KivCollection, RecordIsCreatesOnceAndReturnsTheSameRecord) {
   auto a = owner->recordIs("Ethernet1");
   a->value = 7;
   auto b = owner->recordIs("Ethernet1");
   EXPECT_EQ(a.ptr(), b.ptr());
   EXPECT_EQ(b->value, 7);
   EXPECT_TRUE(a->hasNotificationActive());
   EXPECT_EQ(observer.seen, std::vector<std::string>({"record:Ethernet1"}));
   EXPECT_EQ(owner->record(), 1u);
}

TEST_F(KivCollection, LookupOfAbsentKeyIsNullNotAnError) {
   EXPECT_FALSE(owner->record("Ethernet9"));
   EXPECT_FALSE(owner->recordHas("Ethernet9"));
   EXPECT_EQ(owner->count("Ethernet9"), 0);
   EXPECT_FALSE(owner->inUse(5));
}

TEST_F(KivCollection, DelDropsTheCollectionsReferenceAndNotifies) {
   auto r = owner->recordIs("Ethernet1");
   EXPECT_EQ(r->references(), 2);
   auto removed = owner->recordDel("Ethernet1");
   EXPECT_EQ(removed.ptr(), r.ptr());
   removed = nullptr;
   EXPECT_EQ(r->references(), 1);
   EXPECT_FALSE(owner->recordHas("Ethernet1"));
   EXPECT_EQ(observer.seen.back(), "record:Ethernet1");
   observer.seen.clear();
   EXPECT_FALSE(owner->recordDel("Ethernet1"));
   EXPECT_TRUE(observer.seen.empty());
}

TEST_F(KivCollection, EqualValueNotifiesNobodyAndChangeNotifiesWithTheKey) {
   EXPECT_TRUE(owner->countIs("Ethernet2", 5));
   EXPECT_EQ(observer.seen, std::vector<std::string>({"count:Ethernet2"}));
   EXPECT_FALSE(owner->countIs("Ethernet2", 5));
   EXPECT_EQ(observer.seen.size(), 1u);
   EXPECT_TRUE(owner->countIs("Ethernet2", 6));
   EXPECT_EQ(owner->count("Ethernet2"), 6);
   EXPECT_EQ(owner->count(), 1u);
   EXPECT_EQ(observer.seen, std::vector<std::string>({"count:Ethernet2", "count:Ethernet2"}));
}

TEST_F(KivCollection, DelAllDeletesEachKeyInTurn) {
   owner->recordIs("Ethernet1");
   owner->recordIs("Ethernet2");
   observer.seen.clear();
   owner->recordDelAll();
   EXPECT_EQ(owner->record(), 0u);
   EXPECT_EQ(observer.seen.size(), 2u);
}

TEST_F(KivCollection, OrderedMapIteratesInAscendingKeyOrder) {
   for (U32 k : {300u, 5u, 1024u, 17u}) {
      owner->inUseIs(k, true);
   }
   std::vector<U32> keys;
   for (auto const& kv : owner->inUseCol()) {
      keys.push_back(kv.first);
   }
   EXPECT_EQ(keys, std::vector<U32>({5, 17, 300, 1024}));
}

TEST_F(KivCollection, OrderedMapDelAtIteratorDuringAWalk) {
   for (U32 k : {1u, 2u, 3u, 4u}) {
      owner->inUseIs(k, true);
   }
   observer.seen.clear();
   for (auto it = owner->inUseBegin(); it != owner->inUseEnd();) {
      it = it->first % 2 == 0 ? owner->inUseDel(it) : std::next(it);
   }
   EXPECT_EQ(owner->inUse(), 2u);
   EXPECT_TRUE(owner->inUse(1));
   EXPECT_FALSE(owner->inUseHas(2));
   EXPECT_EQ(observer.seen, std::vector<std::string>({"inUse:2", "inUse:4"}));
}

TEST_F(KivCollection, ReserveKeepsWhatIsThereAndTellsNobody) {
   owner->countIs("Ethernet1", 1);
   owner->recordIs("Ethernet2");
   observer.seen.clear();
   owner->countReserve(1000);
   owner->recordReserve(1000);
   owner->inUseReserve(1000);  // an ordered map has no room to make
   EXPECT_EQ(owner->count("Ethernet1"), 1);
   EXPECT_TRUE(owner->recordHas("Ethernet2"));
   EXPECT_TRUE(observer.seen.empty());
}

// The order of a walk is that of the standard hash map given the same room and the same keys:
// a model that keeps one can tell which keys a walk reaches first.
TEST_F(KivCollection, WalkOrderIsTheStandardHashMapsForTheSameRoom) {
   for (std::size_t room : {0, 500}) {
      Kiv::Ptr<Owner> o(new Owner());
      std::unordered_map<Orvik::IntfId, int> model;
      o->countReserve(room);
      model.reserve(room);
      for (int i = 0; i < 300; ++i) {
         Orvik::IntfId const intf("Ethernet" + std::to_string(i * 7 % 301));
         o->countIs(intf, i);
         model[intf] = i;
      }
      std::vector<std::string> walked;
      std::vector<std::string> expected;
      for (auto const& [intf, v] : o->countCol()) {
         walked.push_back(intf.stringValue());
      }
      for (auto const& [intf, v] : model) {
         expected.push_back(intf.stringValue());
      }
      EXPECT_EQ(walked, expected) << room;
   }
}

TEST_F(KivCollection, InnerCollectionNotifiesNobody) {
   owner->quietIs(1, 10);
   owner->quietIs(1, 11);
   EXPECT_EQ(owner->quiet(1), 11u);
   EXPECT_TRUE(observer.seen.empty());
}

TEST_F(KivCollection, InactiveNotifieeIsNotTold) {
   observer.isActiveIs(false);
   owner->countIs("Ethernet1", 1);
   EXPECT_TRUE(observer.seen.empty());
   observer.isActiveIs(true);
   owner->countIs("Ethernet1", 2);
   EXPECT_EQ(observer.seen.size(), 1u);
}

TEST_F(KivCollection, NotificationsOffTellNobody) {
   owner->hasNotificationActiveIs(false);
   owner->countIs("Ethernet1", 1);
   owner->recordIs("Ethernet1");
   EXPECT_TRUE(observer.seen.empty());
}

TEST_F(KivCollection, NotifieeKeepsItsNotifierAlive) {
   int before = owner->references();
   Observer second;
   second.notifierIs(owner);
   EXPECT_EQ(owner->references(), before + 1);
   second.notifierIs(nullptr);
   EXPECT_EQ(owner->references(), before);
   EXPECT_EQ(owner->notifiees(), 1u);
}

// A reactor bound without a handle: the framework's own, below the typed one.
struct Unheld : Kiv::NotifieeBase {
   void watch(Kiv::Entity const* e) { notifierBaseIs(e); }
   Kiv::Entity const* watched() const { return notifierBase(); }
};

TEST_F(KivCollection, AReactorWithoutAHandleOutlivesItsNotifierUnbound) {
   Unheld unheld;
   Unheld never;
   {
      Kiv::Ptr<Owner> const dying(new Owner());
      unheld.watch(dying.ptr());
      EXPECT_EQ(unheld.watched(), dying.ptr());
      EXPECT_EQ(dying->notifiees(), 1u);
      Kiv::Ptr<Owner> const unwatched(new Owner());  // dies with no reactor list at all
   }
   EXPECT_EQ(unheld.watched(), nullptr);
   EXPECT_EQ(never.watched(), nullptr);
}

TEST_F(KivCollection, AnEntityThatNobodyWatchesHasNoReactorList) {
   // Records come by the ten thousand: what an entity holds for its reactors is one pointer
   // until one comes.
   EXPECT_LE(sizeof(Kiv::Entity), 4 * sizeof(void*));
   Kiv::Ptr<Owner> const quiet(new Owner());
   EXPECT_EQ(quiet->notifiees(), 0u);
   EXPECT_FALSE(quiet->hasObservers());
   quiet->countIs("Ethernet1", 1);  // told to nobody, and nothing breaks

   Observer first;
   Observer second;
   first.notifierIs(quiet);
   second.notifierIs(quiet);
   EXPECT_EQ(quiet->notifiees(), 2u);
   quiet->countIs("Ethernet1", 2);
   EXPECT_EQ(first.seen, (std::vector<std::string>{"count:Ethernet1"}));
   EXPECT_EQ(second.seen, first.seen);
   first.notifierIs(nullptr);
   second.notifierIs(nullptr);
   EXPECT_EQ(quiet->notifiees(), 0u);
   EXPECT_FALSE(quiet->hasObservers());
   quiet->countIs("Ethernet1", 3);
   EXPECT_EQ(first.seen.size(), 1u);
   // A list once made serves a later reactor.
   first.notifierIs(quiet);
   quiet->countIs("Ethernet1", 4);
   EXPECT_EQ(first.seen.size(), 2u);
}

}  // namespace
