#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <thread>

#include "Kiv/Activity.h"
#include "Kiv/Allocator.h"
#include "Kiv/Assert.h"
#include "Kiv/Exception.h"
#include "Kiv/Type.h"

namespace {

struct Widget : Kiv::Entity {
   U32 size = 3;
   bool on = false;
   std::string name = "w";
   Kiv::TypeDesc const* fwkType() const override;
};

Kiv::TypeDesc const* widgetType() {
   static Kiv::TypeDesc* desc = [] {
      auto* d = new Kiv::TypeDesc("Test::Widget", Kiv::entityTypeDesc());
      Kiv::readOnlyAttributeIs<Widget>(*d, "name", [](Widget const& w) { return w.name; });
      Kiv::attributeIs<Widget, U32>(
          *d, "size", [](Widget const& w) { return w.size; }, [](Widget& w, U32 v) { w.size = v; });
      Kiv::attributeIs<Widget, bool>(
          *d, "on", [](Widget const& w) { return w.on; }, [](Widget& w, bool v) { w.on = v; });
      Kiv::operationIs<Widget>(*d, "grow", 1, [](Widget& w, std::vector<Kiv::String> const& a) {
         w.size += Kiv::fromString<U32>(a[0]);
         return Kiv::toString(w.size);
      });
      Kiv::typeIs(d);
      return d;
   }();
   return desc;
}

Kiv::TypeDesc const* Widget::fwkType() const {
   return widgetType();
}

TEST(KivType, RegistryFindsTypeByFullName) {
   Kiv::Ptr<Widget> w(new Widget());
   // The type registers on first use: before the lookup, whatever order a compiler evaluates in.
   Kiv::TypeDesc const* const desc = w->fwkType();
   EXPECT_EQ(Kiv::type("Test::Widget"), desc);
   EXPECT_TRUE(w->fwkType()->isA(Kiv::entityTypeDesc()));
   EXPECT_EQ(Kiv::type("Test::Nothing"), nullptr);
}

TEST(KivType, AttributesAreReadAndSetByName) {
   Kiv::Ptr<Widget> w(new Widget());
   EXPECT_EQ(Kiv::attributeValue(*w, "size"), "3");
   Kiv::attributeValueIs(*w, "size", "12");
   EXPECT_EQ(w->size, 12u);
   Kiv::attributeValueIs(*w, "on", "true");
   EXPECT_TRUE(w->on);
   EXPECT_EQ(Kiv::attributeValue(*w, "on"), "true");
   EXPECT_EQ(w->fwkType()->attributeNames(), std::vector<std::string>({"name", "size", "on"}));
}

TEST(KivType, ReadOnlyUnknownAndMalformedAreRefused) {
   Kiv::Ptr<Widget> w(new Widget());
   EXPECT_THROW(Kiv::attributeValueIs(*w, "name", "x"), std::invalid_argument);
   EXPECT_THROW(Kiv::attributeValue(*w, "colour"), std::invalid_argument);
   EXPECT_THROW(Kiv::attributeValueIs(*w, "size", "-1"), std::invalid_argument);
   EXPECT_THROW(Kiv::attributeValueIs(*w, "on", "maybe"), std::invalid_argument);
   EXPECT_EQ(w->size, 3u);
}

TEST(KivType, NumbersThatDoNotFitTheirTypeAreRefusedNotWrapped) {
   EXPECT_EQ(Kiv::fromString<U16>("65535"), 65535u);
   EXPECT_THROW(Kiv::fromString<U16>("65536"), std::invalid_argument);
   EXPECT_THROW(Kiv::fromString<U16>("70000"), std::invalid_argument);
   EXPECT_EQ(Kiv::fromString<U32>("4294967295"), 4294967295u);
   EXPECT_THROW(Kiv::fromString<U32>("4294967296"), std::invalid_argument);
   EXPECT_THROW(Kiv::fromString<U64>("99999999999999999999"), std::invalid_argument);
   EXPECT_EQ(Kiv::fromString<S32>("-2147483648"), std::numeric_limits<S32>::min());
   EXPECT_THROW(Kiv::fromString<S32>("2147483648"), std::invalid_argument);
   EXPECT_THROW(Kiv::fromString<S32>("-99999999999999999999"), std::invalid_argument);
   EXPECT_THROW(Kiv::fromString<U32>("abc"), std::invalid_argument);
   EXPECT_THROW(Kiv::fromString<U32>(""), std::invalid_argument);
   EXPECT_THROW(Kiv::fromString<U32>("5x"), std::invalid_argument);
   try {
      Kiv::fromString<U16>("70000");
      ADD_FAILURE() << "70000 read as a U16";
   } catch (std::invalid_argument const& e) {
      EXPECT_STREQ(e.what(), "not an unsigned number: 70000");
   }
   Kiv::Ptr<Widget> w(new Widget());
   EXPECT_THROW(Kiv::attributeValueIs(*w, "size", "4294967299"), std::invalid_argument);
   EXPECT_EQ(w->size, 3u);
}

TEST(KivType, OperationsAreCalledByNameWithTextArguments) {
   Kiv::Ptr<Widget> w(new Widget());
   EXPECT_EQ(Kiv::invoke(*w, "grow", {"4"}), "7");
   EXPECT_THROW(Kiv::invoke(*w, "grow", {}), std::invalid_argument);
   EXPECT_THROW(Kiv::invoke(*w, "shrink", {"1"}), std::invalid_argument);
}

TEST(KivAssert, FailureEndsTheProcessWithTheExpressionText) {
   int cpuQId = -1;
   EXPECT_DEATH(KIV_ASSERT(cpuQId >= 0), "Assertion `cpuQId >= 0' failed");
   EXPECT_DEATH(KIV_ASSERT_MSG(cpuQId >= 0, "RequestConfig is NULL"),
                "Assertion `RequestConfig is NULL' failed");
}

TEST(KivRange, RangeExceptionCarriesItsText) {
   try {
      throw Kiv::RangeException(
          "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed");
   } catch (std::range_error const& e) {
      EXPECT_STREQ(e.what(),
                   "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed");
   }
}

TEST(KivActivity, UnlockAnchorReleasesAndRetakesTheLock) {
   auto& lock = Kiv::activityLock();
   Kiv::ActivityScope scope;
   lock.lock();
   EXPECT_TRUE(lock.held());
   EXPECT_EQ(lock.depth(), 2);
   {
      Kiv::UnlockAnchor anchor(lock);
      EXPECT_FALSE(lock.held());
   }
   EXPECT_TRUE(lock.held());
   EXPECT_EQ(lock.depth(), 2);
   lock.unlock();
}

// Released at every depth at once: another thread gets the lock while an SDK call runs.
TEST(KivActivity, WhileReleasedAnotherThreadTakesTheLock) {
   auto& lock = Kiv::activityLock();
   Kiv::ActivityScope scope;
   lock.lock();
   bool otherHeld = false;
   {
      Kiv::UnlockAnchor anchor(lock);
      std::thread other([&] {
         Kiv::ActivityScope otherScope;
         otherHeld = lock.held() && lock.depth() == 1;
      });
      other.join();
      EXPECT_FALSE(lock.held());
   }
   EXPECT_TRUE(otherHeld);
   EXPECT_TRUE(lock.held());
   EXPECT_EQ(lock.depth(), 2);
   lock.unlock();
}

TEST(KivActivity, UnlockAnchorRetakesOnException) {
   auto& lock = Kiv::activityLock();
   Kiv::ActivityScope scope;
   try {
      Kiv::UnlockAnchor anchor(lock);
      throw std::runtime_error("x");
   } catch (std::runtime_error const&) {
   }
   EXPECT_TRUE(lock.held());
}

}  // namespace

namespace {

struct Throwing {
   explicit Throwing(bool fail) {
      if (fail) {
         throw std::runtime_error("no");
      }
   }
};

TEST(KivAllocator, CountsWhatItConstructedAndNothingThatThrew) {
   U64 const before = Kiv::allocations<Throwing>();
   delete Kiv::allocate<Throwing>(false);
   EXPECT_EQ(Kiv::allocations<Throwing>(), before + 1);
   EXPECT_THROW(Kiv::allocate<Throwing>(true), std::runtime_error);
   EXPECT_EQ(Kiv::allocations<Throwing>(), before + 1);
}

}  // namespace
