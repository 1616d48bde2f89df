#pragma once

#include <limits>
#include <vector>

#include "Kiv/Entity.h"

namespace Kiv {

inline constexpr double never = std::numeric_limits<double>::infinity();

// Virtual time in seconds. Timer reactors wake at their timeMin; +infinity means never.
class Clock : public Entity {
  public:
   class Notifiee;

   double now() const { return now_; }
   // Moves time forward to `t`, waking due reactors in order of wake time.
   void nowIs(double t);
   void advance(double seconds) { nowIs(now_ + seconds); }
   // Back to time 0, for a simulation that starts again from nothing: no reactor may still
   // be bound to the clock, since its wake time would lie in the future of a past it forgot.
   void reset();
   // The earliest wake time of an active reactor, or never.
   double nextWake() const;

  private:
   // The active reactor that wakes first (the first listed among equals), or none.
   Notifiee* earliestTimer() const;
   double now_ = 0.0;
};

class Clock::Notifiee : public Kiv::Notifiee<Clock> {
  public:
   double timeMin() const { return timeMin_; }
   void timeMinIs(double t) { timeMin_ = t; }
   virtual void onTimeMin() {}

  private:
   double timeMin_ = never;
};

// The clock of the agent's event loop.
Ptr<Clock> activityClock();

}  // namespace Kiv
