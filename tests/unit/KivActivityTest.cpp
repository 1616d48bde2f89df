#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Kiv/Activity.h"

namespace {

TEST(KivActivity, AnotherThreadWaitsForTheLockAndTakesItWhileAnSdkCallHasItReleased) {
   Kiv::ActivityScope scope;
   ASSERT_TRUE(Kiv::activityLock().held());
   std::atomic<bool> taken{false};
   std::atomic<bool> heldThere{false};
   std::thread other([&] {
      Kiv::ActivityScope theirs;
      heldThere = Kiv::activityLock().held();
      taken = true;
   });
   // However long it tries, it cannot have the lock while this thread holds it.
   std::this_thread::sleep_for(std::chrono::milliseconds(20));
   EXPECT_FALSE(taken);
   {
      Kiv::UnlockAnchor released(Kiv::activityLock());
      EXPECT_FALSE(Kiv::activityLock().held());
      other.join();
   }
   EXPECT_TRUE(taken);
   EXPECT_TRUE(heldThere);
   EXPECT_TRUE(Kiv::activityLock().held());
}

TEST(KivActivity, AReleaseForACallGivesUpEveryLevelAndTakesThemAllBack) {
   Kiv::ActivityScope outer;
   int const before = Kiv::activityLock().depth();
   {
      Kiv::ActivityScope inner;
      EXPECT_EQ(Kiv::activityLock().depth(), before + 1);
      {
         Kiv::UnlockAnchor released(Kiv::activityLock());
         EXPECT_FALSE(Kiv::activityLock().held());
         // Another thread can take and give it in the meantime.
         std::thread([] { Kiv::ActivityScope theirs; }).join();
      }
      EXPECT_TRUE(Kiv::activityLock().held());
      EXPECT_EQ(Kiv::activityLock().depth(), before + 1);
   }
   EXPECT_EQ(Kiv::activityLock().depth(), before);
}

TEST(KivActivity, AnAnchorOnALockNotHeldTakesNothingBack) {
   Kiv::ActivityScope scope;
   Kiv::UnlockAnchor outer(Kiv::activityLock());
   ASSERT_FALSE(Kiv::activityLock().held());
   {
      Kiv::UnlockAnchor inner(Kiv::activityLock());
      EXPECT_FALSE(Kiv::activityLock().held());
   }
   EXPECT_FALSE(Kiv::activityLock().held());
}

TEST(KivActivity, ThreadsThatContendForTheLockNeverHoldItTogether) {
   Kiv::ActivityScope scope;
   Kiv::UnlockAnchor released(Kiv::activityLock());
   constexpr int threads = 4;
   constexpr int rounds = 20000;
   int shared = 0;  // unsynchronised but for the lock
   std::atomic<int> inside{0};
   std::atomic<bool> together{false};
   std::vector<std::thread> workers;
   for (int t = 0; t < threads; ++t) {
      workers.emplace_back([&] {
         for (int i = 0; i < rounds; ++i) {
            Kiv::ActivityScope mine;
            if (inside.fetch_add(1) != 0) {
               together = true;
            }
            ++shared;
            if (i % 64 == 0) {
               std::this_thread::yield();  // let the others queue up and sleep on the lock
            }
            inside.fetch_sub(1);
         }
      });
   }
   for (std::thread& w : workers) {
      w.join();
   }
   EXPECT_FALSE(together);
   EXPECT_EQ(shared, threads * rounds);
   EXPECT_FALSE(Kiv::activityLock().held());
}

}  // namespace
