#pragma once

#include <atomic>

namespace Kiv {

namespace detail {
// Its address is a word unique to each live thread, found without a call.
extern constinit __attribute__((tls_model("initial-exec"))) thread_local char threadMark;
}  // namespace detail

using ThreadMark = char const*;
inline ThreadMark thisThreadMark() {
   return &detail::threadMark;
}

// The agent's activity lock: held by the event loop while it runs handlers. Released and taken
// back around every direct SDK call, tens of thousands of times a boot.
//
// The lock is biased to the first thread that takes it, the event loop: that thread enters and
// leaves with a plain store and a load, no locked instruction, because any other thread pays
// instead. Another thread announces itself, forces a memory barrier on every thread of the
// process (membarrier), and only then looks whether the biased thread is inside: either the
// biased thread sees the announcement when it next enters and steps aside until the others are
// done, or the other thread sees it inside and sleeps until it leaves. The other threads queue
// among themselves on a futex word. Without membarrier nobody is biased and every thread takes
// the futex word.
class ActivityLock {
  public:
   // A lock that may be biased, or one that never is (every thread then takes the futex word).
   constexpr explicit ActivityLock(bool mayBias = true) : biasAllowed_(mayBias) {}
   void lock();
   void unlock();
   bool held() const { return heldBy(thisThreadMark()); }
   int depth() const { return depth_; }
   // Whether a thread, or this one, enters without a locked instruction.
   bool biased() const { return bias_.load(std::memory_order_relaxed) != nullptr; }
   bool biasedHere() const { return bias_.load(std::memory_order_relaxed) == thisThreadMark(); }

  private:
   friend class UnlockAnchor;
   // Every level at once, and back.
   int releaseAll(ThreadMark self) {
      int const depth = depth_;
      depth_ = 0;
      owner_.store(nullptr, std::memory_order_relaxed);
      leave(self);
      return depth;
   }
   void retake(int depth, ThreadMark self) {
      enter(self);
      owner_.store(self, std::memory_order_relaxed);
      depth_ = depth;
   }
   bool heldBy(ThreadMark self) const { return owner_.load(std::memory_order_relaxed) == self; }

   void enter(ThreadMark self) {
      if (__builtin_expect(bias_.load(std::memory_order_relaxed) == self, 1)) {
         // The other thread's barrier orders this store before this load: either it sees this
         // thread inside, or this load sees its announcement.
         inside_.store(1, std::memory_order_relaxed);
         std::atomic_signal_fence(std::memory_order_seq_cst);
         if (__builtin_expect(others_.load(std::memory_order_acquire) == 0, 1)) {
            return;
         }
         stepAside();
      } else {
         enterOther();
      }
   }
   void leave(ThreadMark self) {
      if (__builtin_expect(bias_.load(std::memory_order_relaxed) == self, 1)) {
         inside_.store(0, std::memory_order_release);
         std::atomic_signal_fence(std::memory_order_seq_cst);
         if (__builtin_expect(others_.load(std::memory_order_relaxed) != 0, 0)) {
            wakeOthers();
         }
      } else {
         leaveOther();
      }
   }
   // The biased thread found others announced: out until they are all done, then in.
   void stepAside();
   void wakeOthers();
   void enterOther();
   void leaveOther();

   // Announced threads other than the biased one, from before they queue until they leave.
   std::atomic<int> others_{0};
   // 1 while the biased thread holds the lock.
   std::atomic<int> inside_{0};
   // The other threads' queue: 0 free, 1 taken, 2 taken and someone may be waiting.
   std::atomic<int> word_{0};
   std::atomic<ThreadMark> bias_{nullptr};
   bool const biasAllowed_;
   // Read without the lock by threads asking whether they hold it.
   std::atomic<ThreadMark> owner_{nullptr};
   int depth_ = 0;
};

namespace detail {
extern ActivityLock activityLock;  // constant-initialised: usable before any constructor ran
}  // namespace detail

inline ActivityLock& activityLock() {
   return detail::activityLock;
}
// Whether this process can force a memory barrier on all its threads, which biasing needs.
bool activityBiasPossible();

// Releases the lock for its scope and takes it back on every way out of the scope.
class UnlockAnchor {
  public:
   explicit UnlockAnchor(ActivityLock& lock)
       : lock_(lock),
         self_(thisThreadMark()),
         released_(lock.heldBy(self_) ? lock.releaseAll(self_) : 0) {}
   ~UnlockAnchor() {
      if (released_ > 0) {
         lock_.retake(released_, self_);
      }
   }
   UnlockAnchor(UnlockAnchor const&) = delete;
   UnlockAnchor& operator=(UnlockAnchor const&) = delete;

  private:
   ActivityLock& lock_;
   ThreadMark const self_;
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
