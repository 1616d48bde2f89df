#pragma once

#include <ostream>

#include "Kiv/Collection.h"
#include "Oskel/ModIdPortQueueKey.h"

namespace Oskel {

// The kernel CoPP configuration of one (module id, port, queue).
class CoppInfo {
  public:
   CoppInfo() = default;
   CoppInfo(U32 rateInPps, U32 burstTokens, U32 burstPkts, bool enabled)
       : rateInPps_(rateInPps),
         burstTokens_(burstTokens),
         burstPkts_(burstPkts),
         enabled_(enabled) {}
   U32 rateInPps() const { return rateInPps_; }
   // Two thirds of the burst: the kernel's refill threshold.
   U32 burstTokens() const { return burstTokens_; }
   U32 burstPkts() const { return burstPkts_; }
   bool enabled() const { return enabled_; }
   bool operator==(CoppInfo const& o) const = default;

  private:
   U32 rateInPps_ = 0;
   U32 burstTokens_ = 0;
   U32 burstPkts_ = 0;
   bool enabled_ = false;
};

inline std::ostream& operator<<(std::ostream& os, CoppInfo const& c) {
   return os << "rate " << c.rateInPps() << " burst " << c.burstPkts() << " tokens "
             << c.burstTokens() << (c.enabled() ? " enabled" : " disabled");
}

// The agent's kernel CoPP configuration: one CoppInfo per (module id, port, queue), held a port's
// queues to a block.
class KernelCoPPConfig : public Kiv::Entity {
  public:
   KernelCoPPConfig() { hasNotificationActiveIs(true); }
   KIV_GROUPED_VALUE_MAP(ModIdPortQueueKey, CoppInfo, coppInfo)
};

}  // namespace Oskel
