#include "Kiv/Activity.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace Kiv {

static_assert(sizeof(std::atomic<int>) == sizeof(int), "the futex word is the atomic's int");

namespace {

void futexWait(std::atomic<int>& word, int seen) {
   ::syscall(SYS_futex, reinterpret_cast<int*>(&word), FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr,
             0);
}

void futexWake(std::atomic<int>& word, int threads) {
   ::syscall(SYS_futex, reinterpret_cast<int*>(&word), FUTEX_WAKE_PRIVATE, threads, nullptr,
             nullptr, 0);
}

// Whether this process may force a memory barrier on all its threads; asked once.
bool barrierAvailable() {
   static bool const available =
       ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
   return available;
}

void barrierOnEveryThread() {
   ::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
}

}  // namespace

bool activityBiasPossible() {
   return barrierAvailable();
}

namespace detail {
constinit thread_local char threadMark;
constinit ActivityLock activityLock;
}  // namespace detail

void ActivityLock::lock() {
   ThreadMark const self = thisThreadMark();
   if (heldBy(self)) {
      ++depth_;
      return;
   }
   if (bias_.load(std::memory_order_relaxed) == nullptr && biasAllowed_ && barrierAvailable()) {
      ThreadMark none = nullptr;
      bias_.compare_exchange_strong(none, self);
   }
   enter(self);
   owner_.store(self, std::memory_order_relaxed);
   depth_ = 1;
}

void ActivityLock::unlock() {
   if (--depth_ == 0) {
      owner_.store(nullptr, std::memory_order_relaxed);
      leave(thisThreadMark());
   }
}

void ActivityLock::stepAside() {
   for (;;) {
      inside_.store(0, std::memory_order_release);
      futexWake(inside_, INT_MAX);  // one of them may have seen this thread inside
      for (int n; (n = others_.load(std::memory_order_acquire)) != 0;) {
         futexWait(others_, n);
      }
      inside_.store(1, std::memory_order_relaxed);
      std::atomic_signal_fence(std::memory_order_seq_cst);
      if (others_.load(std::memory_order_acquire) == 0) {
         return;
      }
   }
}

void ActivityLock::wakeOthers() {
   futexWake(inside_, INT_MAX);
}

void ActivityLock::enterOther() {
   others_.fetch_add(1);
   if (barrierAvailable()) {
      // Now the biased thread either sees the count on its next entry or is seen inside.
      barrierOnEveryThread();
   }
   // The other threads in turn: 0 free, 1 taken, 2 taken and someone may be waiting.
   int seen = 0;
   if (!word_.compare_exchange_strong(seen, 1, std::memory_order_acquire)) {
      if (seen != 2) {
         seen = word_.exchange(2, std::memory_order_acquire);
      }
      while (seen != 0) {
         futexWait(word_, 2);
         seen = word_.exchange(2, std::memory_order_acquire);
      }
   }
   for (int in; (in = inside_.load(std::memory_order_acquire)) != 0;) {
      futexWait(inside_, in);
   }
}

void ActivityLock::leaveOther() {
   if (word_.exchange(0, std::memory_order_release) == 2) {
      futexWake(word_, 1);
   }
   if (others_.fetch_sub(1, std::memory_order_release) == 1) {
      futexWake(others_, INT_MAX);  // the biased thread may be waiting for none
   }
}

}  // namespace Kiv
