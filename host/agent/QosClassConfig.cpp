#include "host/agent/QosClassConfig.h"

#include "Oskel/AclTypes.h"
#include "Qos/PolicyMapHwStatus.h"

namespace NimbalHost {

QosClassConfig::QosClassConfig(Switch& sw) : sw_(sw) {
   // The control-plane policy map is applied: the MMU keeps its hardware status, in which
   // dynamic queue allocation records the classes that hold a queue.
   Kiv::Ptr<Nimbal::MmuConfigSm> const mmu = sw_.mmuSm();
   if (!mmu->pmapHwStatus()) {
      mmu->pmapHwStatusIs(new Qos::PolicyMapSliceHwStatus());
   }
   mmu->pmapHwStatus()->pmapHwStatusIs(
       Qos::PolicyMapHwStatusKey(mmu->coppPMapName(), Qos::mapControlPlane_, Qos::input_));
}

Oskel::QosClassDataKey QosClassConfig::classKey(std::string const& cmapName) const {
   return Oskel::QosClassDataKey(sw_.mmuSm()->coppPMapName(), Qos::mapControlPlane_, Qos::input_,
                                 cmapName, Qos::mapControlPlane_);
}

QosClassConfig::PoliceOutcome QosClassConfig::police(std::string const& intf,
                                                     std::string const& cmapName, U32 cir, U32 bc) {
   auto const id = std::make_pair(intf, cmapName);
   auto it = policed_.find(id);
   PoliceOutcome outcome;
   // Only a class that was programmed has a rate to change.
   outcome.rateChange = it != policed_.end() && it->second.cpuQ.has_value();
   if (it == policed_.end()) {
      Policed p;
      p.classData = new Oskel::QosClassData(classKey(cmapName));
      p.classData->intfIdIs(Orvik::IntfId(intf));
      p.classData->policerDataIs(new Qos::PolicerData(cir, Qos::rateUnitPps_, bc));
      Kiv::Ptr<Nimbal::MmuConfigSm> const mmu = sw_.mmuSm();
      int const staticQ = mmu->staticClassToCpuQId(mmu->coppPMapName(), Qos::mapControlPlane_,
                                                   cmapName, Qos::mapControlPlane_);
      p.dynamic = staticQ < 0;
      if (!p.dynamic) {
         p.cpuQ = static_cast<U32>(staticQ);
      }
      // The QoS status of the applied class, which the queue allocation reads.
      sw_.qosStatus()
          ->pmapStatusIs(Qos::mapControlPlane_, mmu->coppPMapName())
          ->cmapStatusIs(Qos::mapControlPlane_, cmapName);
      it = policed_.emplace(id, p).first;
   }
   Policed& p = it->second;
   p.classData->policerData()->cirIs(cir);
   p.classData->policerData()->bcIs(bc);
   if (p.dynamic && !p.cpuQ) {
      S32 const cpuQId = sw_.helper()->coppAllocateCpuQ(p.classData);
      if (cpuQId >= 0) {
         p.cpuQ = static_cast<U32>(cpuQId);
         p.classData->cpuQIdIs(cpuQId);
      }
   }
   outcome.dynamic = p.dynamic;
   outcome.cpuQ = p.cpuQ;
   if (p.cpuQ) {
      sw_.helper()->createAndAttachPolicer(p.classData);
   }
   return outcome;
}

QosClassConfig::UnpoliceOutcome QosClassConfig::unpolice(std::string const& intf,
                                                         std::string const& cmapName) {
   UnpoliceOutcome outcome;
   auto it = policed_.find({intf, cmapName});
   if (it == policed_.end()) {
      return outcome;
   }
   Policed const p = it->second;
   policed_.erase(it);
   outcome.dynamic = p.dynamic;
   outcome.cpuQ = p.cpuQ;
   // A class that never got a queue was never programmed.
   if (p.cpuQ) {
      sw_.helper()->destroyPolicer(p.classData);
      if (p.dynamic) {
         sw_.helper()->coppDeallocateCpuQ(p.classData);
      }
   }
   return outcome;
}

Oskel::QosClassCounterData QosClassConfig::poll(std::string const& intf,
                                                std::string const& cmapName) {
   Policed const* p = policed(intf, cmapName);
   if (!p) {
      return Oskel::QosClassCounterData();
   }
   return sw_.helper()->counterUpdateRequest(p->classData, Oskel::AclKey());
}

void QosClassConfig::verifyAll() {
   for (auto const& [id, p] : policed_) {
      if (p.cpuQ) {
         sw_.helper()->verifyPolicer(p.classData);
      }
   }
}

std::optional<U32> QosClassConfig::queueOfClass(std::string const& cmapName) const {
   Kiv::Ptr<Nimbal::MmuConfigSm> const mmu = sw_.mmuSm();
   int const staticQ = mmu->staticClassToCpuQId(mmu->coppPMapName(), Qos::mapControlPlane_,
                                                cmapName, Qos::mapControlPlane_);
   if (staticQ >= 0) {
      return static_cast<U32>(staticQ);
   }
   for (auto const& [id, p] : policed_) {
      if (id.second == cmapName && p.cpuQ) {
         return p.cpuQ;
      }
   }
   return std::nullopt;
}

QosClassConfig::Policed const* QosClassConfig::policed(std::string const& intf,
                                                       std::string const& cmapName) const {
   auto it = policed_.find({intf, cmapName});
   return it == policed_.end() ? nullptr : &it->second;
}

}  // namespace NimbalHost
