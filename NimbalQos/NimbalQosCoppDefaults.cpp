#include <algorithm>

#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

void QosAclHelperV1::createDefaultCoppRates() {
   KIV_ASSERT(mmuSm()->cpuQColl()->cpuQs() == 48);
   Kiv::Ptr<MmuCpuQColl> const cpuQColl = mmuSm()->cpuQColl();

   auto publish = [this, &cpuQColl](NimbalTypes::NimbalPort const& port) {
      for (auto const& [id, cpuQ] : cpuQColl->cpuQCol()) {
         // The drop queue is never policed; queues no class holds carry no traffic.
         if (cpuQ->allocated() == 0 || cpuQ->cpuQId() == cpuCosqDrop_) {
            continue;
         }
         U32 const rate = cpuQ->defaultCoppRate();
         U32 const burst = cpuQ->defaultCoppBurst();
         kernelCoppConfig()->coppInfoIs(
             Oskel::ModIdPortQueueKey(port.modId(), port.logicalPort(), cpuQ->cpuQId()),
             Oskel::CoppInfo(rate, burst * 2 / 3, burst, true));
      }
   };

   // Front-panel and fabric ports in one ascending walk; a port in both is published once.
   auto const& ports = scsd()->nimbalPortToIntfCol();
   auto const& fabricPorts = scsd()->nimbalFabricPortToIntfCol();
   auto it = ports.begin();
   auto fabricIt = fabricPorts.begin();
   while (it != ports.end() || fabricIt != fabricPorts.end()) {
      if (fabricIt == fabricPorts.end() || (it != ports.end() && it->first < fabricIt->first)) {
         publish(it->first);
         ++it;
      } else if (it == ports.end() || fabricIt->first < it->first) {
         publish(fabricIt->first);
         ++fabricIt;
      } else {
         publish(it->first);
         ++it;
         ++fabricIt;
      }
   }
}

void QosAclHelperV1::updatePortDefaultCoppPolicer(NimbalTypes::NimbalPort port) {
   Orvik::IntfId const intf = getIntfIdFromNimbalPort(scsd(), port);

   // Never below twice the largest class policer of the port, so the default does not throttle
   // what a class admits.
   U32 rate = scMiscConfig()->portDefaultCoppRate();
   if (Kiv::Ptr<NimbalQosCoppIntfPolicerData> const intfData = coppIntfPolicerData(intf)) {
      U32 largest = 0;
      for (auto const& [key, policerData] : intfData->policerDataColCol()) {
         largest = std::max(largest, policerData->policerRate());
      }
      rate = std::max(rate, 2 * largest);
   }

   NimbalQosPolicerHwData const hwData = portDefaultCoppPolicerHwData(intf);
   if (hwData.policerRate() == rate) {
      return;
   }
   // A tenth of a second of traffic at the rate.
   U32 const burst = rate * 100 / 1000;
   U32 const policer = updateCoppPolicer(port.unit(), hwData.entryId(), hwData.policerId(), rate,
                                         burst, tcamGroupManager(), efpCoppDefAndVxlanEntryMgr());
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelper::"
                 << "updatePortDefaultCoppPolicer"
                 << "intf: " << intf << " default policer"
                 << " CIR(pps): " << rate << " BC(packets): " << burst);
   portDefaultCoppPolicerHwDataIs(intf,
                                  NimbalQosPolicerHwData(rate, burst, hwData.entryId(), policer));

   // The VXLAN twin of the default entry polices the same traffic and follows the same rate.
   NimbalQosPolicerHwData const vxlanData = portDefaultCoppPolicerVxlanHwData(intf);
   if (vxlanData != NimbalQosPolicerHwData()) {
      U32 const vxlanPolicer =
          updateCoppPolicer(port.unit(), vxlanData.entryId(), vxlanData.policerId(), rate, burst,
                            tcamGroupManager(), efpCoppDefAndVxlanEntryMgr());
      portDefaultCoppPolicerVxlanHwDataIs(
          intf, NimbalQosPolicerHwData(rate, burst, vxlanData.entryId(), vxlanPolicer));
   }
}

}  // namespace Nimbal
