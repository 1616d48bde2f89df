#include <gtest/gtest.h>

#include <vector>

#include "Kiv/Clock.h"

namespace {

struct Timer : Kiv::Clock::Notifiee {
   std::vector<double> fired;
   Kiv::Clock const* clock = nullptr;
   double every = 0;
   void onTimeMin() override {
      fired.push_back(clock->now());
      if (every > 0) {
         timeMinIs(clock->now() + every);
      }
   }
};

TEST(KivClock, TimerFiresAtItsWakeTimeAndNotBefore) {
   Kiv::Ptr<Kiv::Clock> clock(new Kiv::Clock());
   Timer t;
   t.clock = clock.ptr();
   t.notifierIs(clock);
   t.timeMinIs(60.0);
   clock->nowIs(59.5);
   EXPECT_TRUE(t.fired.empty());
   clock->nowIs(61.0);
   EXPECT_EQ(t.fired, std::vector<double>({60.0}));
   EXPECT_EQ(t.timeMin(), Kiv::never);
   EXPECT_DOUBLE_EQ(clock->now(), 61.0);
}

TEST(KivClock, NeverMeansNever) {
   Kiv::Ptr<Kiv::Clock> clock(new Kiv::Clock());
   Timer t;
   t.clock = clock.ptr();
   t.notifierIs(clock);
   clock->nowIs(1e12);
   EXPECT_TRUE(t.fired.empty());
   EXPECT_EQ(clock->nextWake(), Kiv::never);
}

TEST(KivClock, TimersFireInOrderOfWakeTimeAndMayReschedule) {
   Kiv::Ptr<Kiv::Clock> clock(new Kiv::Clock());
   Timer a, b;
   a.clock = b.clock = clock.ptr();
   a.notifierIs(clock);
   b.notifierIs(clock);
   a.timeMinIs(10);
   a.every = 10;
   b.timeMinIs(15);
   clock->advance(35);
   EXPECT_EQ(a.fired, std::vector<double>({10, 20, 30}));
   EXPECT_EQ(b.fired, std::vector<double>({15}));
   EXPECT_DOUBLE_EQ(a.timeMin(), 40);
}

TEST(KivClock, InactiveTimerSleeps) {
   Kiv::Ptr<Kiv::Clock> clock(new Kiv::Clock());
   Timer t;
   t.clock = clock.ptr();
   t.notifierIs(clock);
   t.timeMinIs(1);
   t.isActiveIs(false);
   clock->advance(5);
   EXPECT_TRUE(t.fired.empty());
}

TEST(KivClock, ResetGoesBackToZeroWhenNoTimerIsBound) {
   Kiv::Ptr<Kiv::Clock> clock(new Kiv::Clock());
   {
      Timer t;
      t.clock = clock.ptr();
      t.notifierIs(clock);
      t.timeMinIs(10);
      clock->nowIs(1e9);
      EXPECT_EQ(t.fired, std::vector<double>({10}));
   }
   clock->reset();
   EXPECT_EQ(clock->now(), 0.0);
   Timer t;
   t.clock = clock.ptr();
   t.notifierIs(clock);
   t.timeMinIs(0.5);
   clock->nowIs(1);
   EXPECT_EQ(t.fired, std::vector<double>({0.5}));
}

// A timer still bound would wake in a future that no longer comes.
TEST(KivClockDeathTest, ResetWithATimerBoundEndsTheProcess) {
   EXPECT_DEATH(
       {
          Kiv::Ptr<Kiv::Clock> clock(new Kiv::Clock());
          Timer t;
          t.notifierIs(clock);
          clock->reset();
       },
       "Assertion `notifieeList\\(\\)\\.empty\\(\\)' failed");
}

TEST(KivClock, ActivityClockIsOneClock) {
   EXPECT_EQ(Kiv::activityClock().ptr(), Kiv::activityClock().ptr());
}

}  // namespace
