#include "Kiv/Activity.h"

namespace Kiv {

ActivityLock& activityLock() {
   static ActivityLock lock;
   return lock;
}

void ActivityLock::lock() {
   mutex_.lock();
   owner_ = std::this_thread::get_id();
   ++depth_;
}

void ActivityLock::unlock() {
   if (--depth_ == 0) {
      owner_ = std::thread::id();
   }
   mutex_.unlock();
}

bool ActivityLock::held() const {
   return depth_ > 0 && owner_ == std::this_thread::get_id();
}

UnlockAnchor::UnlockAnchor(ActivityLock& lock) : lock_(lock), released_(0) {
   while (lock_.held()) {
      lock_.unlock();
      ++released_;
   }
}

UnlockAnchor::~UnlockAnchor() {
   for (int i = 0; i < released_; ++i) {
      lock_.lock();
   }
}

}  // namespace Kiv
