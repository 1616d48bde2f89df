#include "Kiv/Activity.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Kiv {

static_assert(sizeof(std::atomic<int>) == sizeof(int), "the futex word is the atomic's int");

ActivityLock& activityLock() {
   static ActivityLock lock;
   return lock;
}

void ActivityLock::lock() {
   if (held()) {
      ++depth_;
      return;
   }
   take();
   owner_.store(std::this_thread::get_id(), std::memory_order_relaxed);
   depth_ = 1;
}

void ActivityLock::unlock() {
   if (--depth_ == 0) {
      owner_.store(std::thread::id(), std::memory_order_relaxed);
      give();
   }
}

// Taken by another thread: mark the word as waited on and sleep until it is given.
void ActivityLock::wait(int seen) {
   if (seen != 2) {
      seen = word_.exchange(2, std::memory_order_acquire);
   }
   while (seen != 0) {
      ::syscall(SYS_futex, reinterpret_cast<int*>(&word_), FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr,
                0);
      seen = word_.exchange(2, std::memory_order_acquire);
   }
}

void ActivityLock::wake() {
   ::syscall(SYS_futex, reinterpret_cast<int*>(&word_), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace Kiv
