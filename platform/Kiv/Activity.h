#pragma once

#include <atomic>
#include <thread>

namespace Kiv {

// The agent's activity lock: held by the event loop while it runs handlers. Released and taken
// back around every direct SDK call, tens of thousands of times a boot: the path with nobody
// waiting is a few inline instructions and one atomic operation each way.
class ActivityLock {
  public:
   void lock();
   void unlock();
   bool held() const { return heldBy(std::this_thread::get_id()); }
   int depth() const { return depth_; }

  private:
   friend class UnlockAnchor;
   // Every level at once, and back: one operation on the word each way around an SDK call.
   int releaseAll() {
      int const depth = depth_;
      depth_ = 0;
      owner_.store(std::thread::id(), std::memory_order_relaxed);
      give();
      return depth;
   }
   void retake(int depth, std::thread::id self) {
      take();
      owner_.store(self, std::memory_order_relaxed);
      depth_ = depth;
   }
   bool heldBy(std::thread::id self) const {
      return owner_.load(std::memory_order_relaxed) == self;
   }
   // The word: 0 free, 1 taken, 2 taken and someone may be waiting.
   void take() {
      int expected = 0;
      if (!word_.compare_exchange_strong(expected, 1, std::memory_order_acquire)) {
         wait(expected);
      }
   }
   void give() {
      if (word_.exchange(0, std::memory_order_release) == 2) {
         wake();
      }
   }
   void wait(int seen);
   void wake();

   std::atomic<int> word_{0};
   // Read without the lock by threads asking whether they hold it.
   std::atomic<std::thread::id> owner_{};
   int depth_ = 0;
};

ActivityLock& activityLock();

// Releases the lock for its scope and takes it back on every way out of the scope.
class UnlockAnchor {
  public:
   // The thread is asked for once: it is the same on the way out.
   explicit UnlockAnchor(ActivityLock& lock)
       : lock_(lock),
         self_(std::this_thread::get_id()),
         released_(lock.heldBy(self_) ? lock.releaseAll() : 0) {}
   ~UnlockAnchor() {
      if (released_ > 0) {
         lock_.retake(released_, self_);
      }
   }
   UnlockAnchor(UnlockAnchor const&) = delete;
   UnlockAnchor& operator=(UnlockAnchor const&) = delete;

  private:
   ActivityLock& lock_;
   std::thread::id const self_;
   int released_;
};

// Holds the lock for its scope, as the event loop does around a handler.
class ActivityScope {
  public:
   ActivityScope() { activityLock().lock(); }
   ~ActivityScope() { activityLock().unlock(); }
   ActivityScope(ActivityScope const&) = delete;
   ActivityScope& operator=(ActivityScope const&) = delete;
};

}  // namespace Kiv
