#pragma once

#include <algorithm>

#include "Kiv/Types.h"

namespace Shim {

// A packet-mode committed-rate meter: a token bucket of at most `burst` packets (at least one,
// so a burst of 0 still passes a packet per token), refilled at `rate` packets per second on
// virtual time. Rate and burst are read at each packet because the policer may be reprogrammed.
class TokenBucket {
  public:
   TokenBucket() = default;
   // Full at creation.
   TokenBucket(double now, U32 burst) : tokens_(capacity(burst)), last_(now) {}

   // Colours one packet arriving at `now`: true (green) when it found a token, which it takes.
   bool take(double now, U32 rate, U32 burst) {
      double cap = capacity(burst);
      if (now > last_) {
         tokens_ = std::min(cap, tokens_ + (now - last_) * rate);
         last_ = now;
      }
      tokens_ = std::min(tokens_, cap);
      // Virtual time far from zero loses a little in the subtraction: a token that is due by a
      // hair's breadth is due.
      if (tokens_ >= 1.0 - tokenTolerance) {
         tokens_ -= 1.0;
         return true;
      }
      return false;
   }
   double tokens() const { return tokens_; }

  private:
   static double capacity(U32 burst) { return burst == 0 ? 1.0 : static_cast<double>(burst); }

   static constexpr double tokenTolerance = 1e-6;
   double tokens_ = 1.0;
   double last_ = 0.0;
};

}  // namespace Shim
