#include <gtest/gtest.h>

#include "Kiv/Collection.h"
#include "Kiv/Ptr.h"

namespace {

struct Counted : Kiv::Entity {
   explicit Counted(int k, int* alive) : key(k), alive_(alive) { ++*alive_; }
   ~Counted() override { --*alive_; }
   int key;
   int* alive_;
};

TEST(KivPtr, LastHandleDestroysObject) {
   int alive = 0;
   {
      Kiv::Ptr<Counted> a(new Counted(1, &alive));
      EXPECT_EQ(alive, 1);
      Kiv::Ptr<Counted const> b = a;
      EXPECT_EQ(a->references(), 2);
      a = nullptr;
      EXPECT_EQ(alive, 1);
      EXPECT_EQ(b->key, 1);
   }
   EXPECT_EQ(alive, 0);
}

}  // namespace
