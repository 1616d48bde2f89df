#pragma once

#include <ostream>

#include "Kiv/Entity.h"
#include "Qos/QosTypes.h"

namespace Qos {

// Rates of policy-map actions travel as plain unsigned numbers; their unit goes beside them.
using ActionRateType = U32;

// The rate value that stands for "not configured".
inline constexpr ActionRateType actionRateNotConfigured = 10000002;

// What a class of a policy map does. The first two carry a rate: the ceiling (shape) and the
// guaranteed share (bandwidth) of the queue the class is sent to.
enum ActionType : U32 {
   actionSetShape_ = 0,
   actionSetBandwidth_ = 1,
   actionSetCos_ = 2,
   actionSetDscp_ = 3,
   actionSetDropPrecedence_ = 4,
   actionPolice_ = 5,
};

// How a rate is expressed. A percentage has no unit of its own.
enum ActionRateKind : U32 {
   actionRateKindNone_ = 0,
   actionRateKindAbsolute_ = 1,
   actionRateKindPercent_ = 4,
};

// A rate value and its unit.
class ActionRate {
  public:
   ActionRate() = default;
   ActionRate(ActionRateType value, RateUnit unit) : value_(value), unit_(unit) {}
   ActionRateType value() const { return value_; }
   RateUnit unit() const { return unit_; }
   bool operator==(ActionRate const& o) const = default;

  private:
   ActionRateType value_ = 0;
   RateUnit unit_ = rateUnitInvalid_;
};

inline std::ostream& operator<<(std::ostream& os, ActionRate const& r) {
   return os << r.value() << "/" << static_cast<U32>(r.unit());
}

// One action of a class of a policy map, keyed by its type.
class Action : public Kiv::Entity {
  public:
   explicit Action(ActionType type) : type_(type) {}

   ActionType type() const { return type_; }

   ActionRate const& rate() const { return rate_; }
   void rateIs(ActionRate const& r) {
      if (r == rate_) {
         return;
      }
      rate_ = r;
      notify("rate");
   }

   ActionRateKind rateKind() const { return rateKind_; }
   void rateKindIs(ActionRateKind k) {
      if (k == rateKind_) {
         return;
      }
      rateKind_ = k;
      notify("rateKind");
   }

  private:
   ActionType type_;
   ActionRate rate_;
   ActionRateKind rateKind_ = actionRateKindAbsolute_;
};

}  // namespace Qos
