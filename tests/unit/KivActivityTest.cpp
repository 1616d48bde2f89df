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

namespace {

// A lock of the test's own, biased to this thread when the process allows it, or never biased.
class KivActivityBias : public ::testing::TestWithParam<bool> {
  protected:
   void SetUp() override {
      if (GetParam() && !Kiv::activityBiasPossible()) {
         GTEST_SKIP() << "this kernel cannot force a barrier on every thread";
      }
   }
   bool biased() const { return GetParam(); }
};

TEST_P(KivActivityBias, TheFirstThreadToTakeItIsTheOneItIsBiasedTo) {
   Kiv::ActivityLock lock(biased());
   EXPECT_FALSE(lock.biased());
   lock.lock();
   EXPECT_EQ(lock.biased(), biased());
   EXPECT_EQ(lock.biasedHere(), biased());
   lock.unlock();
   // Another thread taking it later does not take the bias over.
   std::thread([&] {
      lock.lock();
      EXPECT_TRUE(lock.held());
      EXPECT_FALSE(lock.biasedHere());
      lock.unlock();
   }).join();
   EXPECT_EQ(lock.biasedHere(), biased());
}

TEST_P(KivActivityBias, AnotherThreadTakesItWhileACallHasItReleasedAndIsWaitedFor) {
   Kiv::ActivityLock lock(biased());
   lock.lock();
   std::atomic<bool> holding{false};
   std::atomic<bool> done{false};
   std::thread other;
   {
      Kiv::UnlockAnchor released(lock);
      ASSERT_FALSE(lock.held());
      other = std::thread([&] {
         lock.lock();
         holding = true;
         // The thread it was released for cannot take it back meanwhile.
         std::this_thread::sleep_for(std::chrono::milliseconds(30));
         done = true;
         lock.unlock();
      });
      while (!holding) {
         std::this_thread::yield();
      }
   }
   // Taken back only once the other thread gave it up.
   EXPECT_TRUE(done);
   EXPECT_TRUE(lock.held());
   other.join();
   lock.unlock();
}

TEST_P(KivActivityBias, AnOtherThreadWaitsForTheThreadItIsBiasedToAndGetsItWhenReleased) {
   Kiv::ActivityLock lock(biased());
   lock.lock();
   std::atomic<bool> taken{false};
   std::thread other([&] {
      lock.lock();
      taken = true;
      lock.unlock();
   });
   std::this_thread::sleep_for(std::chrono::milliseconds(20));
   EXPECT_FALSE(taken);
   {
      Kiv::UnlockAnchor released(lock);
      other.join();
   }
   EXPECT_TRUE(taken);
   EXPECT_TRUE(lock.held());
   lock.unlock();
}

// The biased thread releases and takes back the lock around many short calls while others
// take it too: nobody ever holds it together, and no increment is lost.
TEST_P(KivActivityBias, TheBiasedThreadAndOthersNeverHoldItTogether) {
   Kiv::ActivityLock lock(biased());
   lock.lock();
   constexpr int threads = 3;
   constexpr int rounds = 3000;
   constexpr int calls = 60000;
   long shared = 0;  // unsynchronised but for the lock
   std::atomic<int> inside{0};
   std::atomic<bool> together{false};
   auto critical = [&] {
      if (inside.fetch_add(1) != 0) {
         together = true;
      }
      ++shared;
      inside.fetch_sub(1);
   };
   std::vector<std::thread> workers;
   for (int t = 0; t < threads; ++t) {
      workers.emplace_back([&] {
         for (int i = 0; i < rounds; ++i) {
            lock.lock();
            critical();
            lock.unlock();
         }
      });
   }
   for (int i = 0; i < calls; ++i) {
      critical();
      Kiv::UnlockAnchor released(lock);  // the call, made without the lock
   }
   {
      Kiv::UnlockAnchor released(lock);
      for (std::thread& w : workers) {
         w.join();
      }
   }
   EXPECT_FALSE(together);
   EXPECT_EQ(shared, long{threads} * rounds + calls);
   EXPECT_TRUE(lock.held());
   lock.unlock();
   EXPECT_FALSE(lock.held());
}

INSTANTIATE_TEST_SUITE_P(BiasedOrNot, KivActivityBias, ::testing::Bool(),
                         [](::testing::TestParamInfo<bool> const& info) {
                            return info.param ? "Biased" : "Unbiased";
                         });

}  // namespace
