#include "Kiv/Clock.h"

#include <algorithm>

#include "Kiv/Assert.h"

namespace Kiv {

Ptr<Clock> activityClock() {
   static Ptr<Clock> clock = [] {
      Ptr<Clock> c(new Clock());
      c->hasNotificationActiveIs(true);
      return c;
   }();
   return clock;
}

// Walks the notifiee list in place: the clock is asked at every packet of a traffic step, and a
// list copied per call would cost an allocation each time.
Clock::Notifiee* Clock::earliestTimer() const {
   Notifiee* earliest = nullptr;
   for (NotifieeBase* n : notifieeList()) {
      auto* t = dynamic_cast<Notifiee*>(n);
      if (t && t->isActive() && (!earliest || t->timeMin() < earliest->timeMin())) {
         earliest = t;
      }
   }
   return earliest;
}

double Clock::nextWake() const {
   Notifiee const* const earliest = earliestTimer();
   return earliest ? earliest->timeMin() : never;
}

void Clock::reset() {
   KIV_ASSERT(notifieeList().empty());
   now_ = 0.0;
}

void Clock::nowIs(double t) {
   for (;;) {
      Notifiee* const due = earliestTimer();
      if (!due || !(due->timeMin() <= t)) {
         break;
      }
      double wake = due->timeMin();
      now_ = std::max(now_, wake);
      // A reactor that does not reschedule itself while it runs sleeps until told otherwise.
      due->timeMinIs(never);
      due->onTimeMin();
   }
   now_ = std::max(now_, t);
}

}  // namespace Kiv
