#pragma once

#include <ostream>

#include "Kiv/Types.h"

namespace Qos {

enum MapType : U32 {
   mapControlPlane_ = 0,
   mapQos_ = 1,
   mapPdp_ = 2,
};

enum Direction : U32 {
   input_ = 0,
   output_ = 1,
};

enum RateUnit : U32 {
   rateUnitInvalid_ = 0,
   rateUnitPps_ = 1,
   rateUnitKbps_ = 2,
   rateUnitMbps_ = 3,
   rateUnitGbps_ = 4,
};

enum ClassMapMatchOption : U32 {
   matchIpAccessGroup_ = 0,
   matchIpv6AccessGroup_ = 1,
   matchMacAccessGroup_ = 2,
};

}  // namespace Qos
