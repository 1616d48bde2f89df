#include "Nimbal/MmuConfigSm.h"

namespace Nimbal {

MmuConfigSm::MmuConfigSm() : cpuQColl_(new MmuCpuQColl()), cpuQSm_(new MmuCpuQSm(cpuQColl_)) {
   hasNotificationActiveIs(true);
}

MmuConfigSm::~MmuConfigSm() = default;

void MmuConfigSm::pmapHwStatusIs(Kiv::Ptr<Qos::PolicyMapSliceHwStatus> const& s) {
   if (s == pmapHwStatus_) {
      return;
   }
   pmapHwStatus_ = s;
   notify("pmapHwStatus");
}

}  // namespace Nimbal
