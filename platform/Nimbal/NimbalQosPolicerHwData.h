#pragma once

#include <ostream>

#include "Kiv/Types.h"

namespace Nimbal {

// The hardware data of one installed policer; all zero means none.
class NimbalQosPolicerHwData {
  public:
   NimbalQosPolicerHwData() = default;
   NimbalQosPolicerHwData(U32 policerRate, U32 policerBurst, U32 entryId, U32 policerId)
       : policerRate_(policerRate),
         policerBurst_(policerBurst),
         entryId_(entryId),
         policerId_(policerId) {}
   U32 policerRate() const { return policerRate_; }
   U32 policerBurst() const { return policerBurst_; }
   U32 entryId() const { return entryId_; }
   U32 policerId() const { return policerId_; }
   bool operator==(NimbalQosPolicerHwData const& o) const = default;

  private:
   U32 policerRate_ = 0;
   U32 policerBurst_ = 0;
   U32 entryId_ = 0;
   U32 policerId_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, NimbalQosPolicerHwData const& d) {
   return os << d.policerRate() << " " << d.policerBurst() << " " << d.entryId() << " "
             << d.policerId();
}

}  // namespace Nimbal
