#include "Kiv/Activity.h"

namespace Kiv {

ActivityLock& activityLock() {
   static ActivityLock lock;
   return lock;
}

void ActivityLock::lock() {
   std::thread::id const me = std::this_thread::get_id();
   if (owner_.load(std::memory_order_relaxed) == me) {
      ++depth_;
      return;
   }
   mutex_.lock();
   owner_.store(me, std::memory_order_relaxed);
   depth_ = 1;
}

void ActivityLock::unlock() {
   if (--depth_ == 0) {
      owner_.store(std::thread::id(), std::memory_order_relaxed);
      mutex_.unlock();
   }
}

bool ActivityLock::held() const {
   return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

int ActivityLock::releaseAll() {
   int const depth = depth_;
   depth_ = 0;
   owner_.store(std::thread::id(), std::memory_order_relaxed);
   mutex_.unlock();
   return depth;
}

void ActivityLock::retake(int depth) {
   mutex_.lock();
   owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
   depth_ = depth;
}

UnlockAnchor::UnlockAnchor(ActivityLock& lock)
    : lock_(lock), released_(lock.held() ? lock.releaseAll() : 0) {}

UnlockAnchor::~UnlockAnchor() {
   if (released_ > 0) {
      lock_.retake(released_);
   }
}

}  // namespace Kiv
