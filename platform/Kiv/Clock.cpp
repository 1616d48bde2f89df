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

std::vector<Clock::Notifiee*> Clock::timers() const {
   std::vector<Notifiee*> out;
   for (NotifieeBase* n : notifieeList()) {
      if (auto* t = dynamic_cast<Notifiee*>(n); t && t->isActive()) {
         out.push_back(t);
      }
   }
   return out;
}

double Clock::nextWake() const {
   double earliest = never;
   for (Notifiee* n : timers()) {
      earliest = std::min(earliest, n->timeMin());
   }
   return earliest;
}

void Clock::reset() {
   KIV_ASSERT(notifieeList().empty());
   now_ = 0.0;
}

void Clock::nowIs(double t) {
   for (;;) {
      Notifiee* due = nullptr;
      for (Notifiee* n : timers()) {
         if (n->timeMin() <= t && (!due || n->timeMin() < due->timeMin())) {
            due = n;
         }
      }
      if (!due) {
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
