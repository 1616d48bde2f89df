#pragma once

#include <map>

#include "Kiv/Types.h"
#include "Orvik/IntfId.h"

namespace Oskel {

// Counters of a QoS class, as the agent's counter poll reports them.
class QosClassCounterData {
  public:
   U64 pktHits() const { return pktHits_; }
   void pktHitsIs(U64 v) { pktHits_ = v; }
   U64 drop() const { return drop_; }
   void dropIs(U64 v) { drop_ = v; }
   U64 byteHits() const { return byteHits_; }
   void byteHitsIs(U64 v) { byteHits_ = v; }
   U64 dropBytes() const { return dropBytes_; }
   void dropBytesIs(U64 v) { dropBytes_ = v; }
   U64 exceedPkts() const { return exceedPkts_; }
   void exceedPktsIs(U64 v) { exceedPkts_ = v; }
   U64 violatePkts() const { return violatePkts_; }
   void violatePktsIs(U64 v) { violatePkts_ = v; }

   std::map<Orvik::IntfId, U64> const& dropCountIntfSharedPolicer() const {
      return dropCountIntfSharedPolicer_;
   }
   U64 dropCountIntfSharedPolicer(Orvik::IntfId const& i) const {
      auto it = dropCountIntfSharedPolicer_.find(i);
      return it == dropCountIntfSharedPolicer_.end() ? 0 : it->second;
   }
   void dropCountIntfSharedPolicerIs(Orvik::IntfId const& i, U64 v) {
      dropCountIntfSharedPolicer_[i] = v;
   }

   bool operator==(QosClassCounterData const& o) const = default;

  private:
   U64 pktHits_ = 0;
   U64 drop_ = 0;
   U64 byteHits_ = 0;
   U64 dropBytes_ = 0;
   U64 exceedPkts_ = 0;
   U64 violatePkts_ = 0;
   std::map<Orvik::IntfId, U64> dropCountIntfSharedPolicer_;
};

}  // namespace Oskel
