#include "Qos/Status.h"

namespace Qos {

Kiv::Ptr<Action> ClassMapStatus::actionIs(ActionType type, ActionRate const& rate,
                                          ActionRateKind kind) {
   Kiv::Ptr<Action> a = actionIs(type);
   a->rateIs(rate);
   a->rateKindIs(kind);
   return a;
}

Kiv::Ptr<ClassMapStatus> Status::cmapStatus(MapType pmapType, Kiv::Name const& pmapName,
                                            MapType cmapType, Kiv::Name const& cmapName) const {
   Kiv::Ptr<PolicyMapStatus> pmap = pmapStatus(pmapType, pmapName);
   if (!pmap) {
      return nullptr;
   }
   return pmap->cmapStatus(cmapType, cmapName);
}

}  // namespace Qos
