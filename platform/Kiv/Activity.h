#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace Kiv {

// The agent's activity lock: held by the event loop while it runs handlers.
class ActivityLock {
  public:
   void lock();
   void unlock();
   bool held() const;
   int depth() const { return depth_; }

  private:
   friend class UnlockAnchor;
   // Every level at once, and back: one mutex operation each way around an SDK call.
   int releaseAll();
   void retake(int depth);

   std::mutex mutex_;
   // Read without the mutex by threads asking whether they hold the lock.
   std::atomic<std::thread::id> owner_{};
   int depth_ = 0;
};

ActivityLock& activityLock();

// Releases the lock for its scope and takes it back on every way out of the scope.
class UnlockAnchor {
  public:
   explicit UnlockAnchor(ActivityLock& lock);
   ~UnlockAnchor();
   UnlockAnchor(UnlockAnchor const&) = delete;
   UnlockAnchor& operator=(UnlockAnchor const&) = delete;

  private:
   ActivityLock& lock_;
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
