#include "Qos/PolicyMapHwStatus.h"

namespace Qos {

Kiv::Ptr<PolicyMapHwStatus> PolicyMapSliceHwStatus::pmapHwStatus(
    PolicyMapHwStatusKey const& key) const {
   Kiv::Ptr<PolicyMapTypeSliceHwStatus> typeStatus = pmapTypeSliceHwStatus(key.pmapType());
   if (!typeStatus) {
      return nullptr;
   }
   return typeStatus->pmapSliceHwStatus(key);
}

Kiv::Ptr<PolicyMapHwStatus> PolicyMapSliceHwStatus::pmapHwStatusIs(
    PolicyMapHwStatusKey const& key) {
   return pmapTypeSliceHwStatusIs(key.pmapType())->pmapSliceHwStatusIs(key);
}

}  // namespace Qos
