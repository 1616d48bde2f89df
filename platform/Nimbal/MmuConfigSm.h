#pragma once

#include <vector>

#include "Kiv/Entity.h"
#include "Nimbal/MmuCpuQ.h"
#include "Qos/PolicyMapHwStatus.h"
#include "Qos/Status.h"

namespace Nimbal {

// The MMU configuration state machine: CPU queues and their bandwidth.
class MmuConfigSm : public Kiv::Entity {
  public:
   // Starts with the switch's built-in table of CPU queues.
   MmuConfigSm();
   ~MmuConfigSm() override;

   Kiv::Ptr<MmuCpuQSm> cpuQSm() const { return cpuQSm_; }
   Kiv::Ptr<MmuCpuQColl> const& cpuQColl() const { return cpuQColl_; }

   Kiv::Name const& coppPMapName() const { return cpuQSm_->coppPMapName(); }
   void coppPMapNameIs(Kiv::Name const& name) { cpuQSm_->coppPMapNameIs(name); }

   // Replaces the CPU queue table; throws std::invalid_argument for a bad one.
   void cpuQTableIs(std::vector<MmuCpuQRow> const& rows) { cpuQSm_->cpuQTableIs(rows); }

   int allocateDynamicCpuQ(Kiv::Ptr<Qos::PolicyMapStatus const> const& pmapStatus,
                           Kiv::Ptr<Qos::ClassMapStatus const> const& cmapStatus) {
      return cpuQSm_->allocateDynamicCpuQ(pmapStatus, cmapStatus);
   }
   void deallocateDynamicCpuQ(int cpuQId) { cpuQSm_->deallocateDynamicCpuQ(cpuQId); }
   void programCpuQBandwidth(int cpuQId, Qos::ActionRateType minRate, Qos::ActionRateType maxRate,
                             Qos::RateUnit unit, bool copp) {
      cpuQSm_->programCpuQBandwidth(cpuQId, minRate, maxRate, unit, copp);
   }
   int staticClassToCpuQId(Kiv::Name const& pmapName, Qos::MapType pmapType,
                           Kiv::Name const& cmapName, Qos::MapType cmapType) const {
      return cpuQSm_->staticClassToCpuQId(pmapName, pmapType, cmapName, cmapType);
   }

   // The hardware status of the applied policy maps; null on platforms that keep none.
   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> pmapHwStatus() const { return pmapHwStatus_; }
   void pmapHwStatusIs(Kiv::Ptr<Qos::PolicyMapSliceHwStatus> const& s);

  private:
   Kiv::Ptr<MmuCpuQColl> cpuQColl_;
   Kiv::Ptr<MmuCpuQSm> cpuQSm_;
   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> pmapHwStatus_;
};

}  // namespace Nimbal
