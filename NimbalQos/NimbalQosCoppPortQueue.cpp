#include <string_view>

#include "Kiv/Assert.h"
#include "Kiv/Format.h"
#include "Kiv/Trace.h"
#include "NimbalCentral/ChipInfo.h"
#include "NimbalQos/NimbalQosCoppStatTypes.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

namespace {

// The exact source port; the CPU queue on its low six bits.
constexpr U32 srcPortMask = 0xFFFFFFFF;
constexpr U8 cpuQueueMask = 0x3F;
// What installCoppPolicer gives when no meter is left.
constexpr U32 noPolicer = 0xFFFFFFFF;

}  // namespace

bool QosAclHelperV1::createCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosHelper"
                 << "createCoppPolicerByPortQueue"
                 << " modId: " << key.modId() << " port : " << key.port()
                 << " queue: " << key.queue());
   Kiv::Ptr<MmuCpuQ> const cpuQ = mmuSm()->cpuQColl()->cpuQ(key.queue());
   if (createCoppPolicerAlwaysFalse()) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "createCoppPolicerByPortQueue"
                    << " debug attribute set, copp entries always full: ");
      return false;
   }
   KIV_ASSERT(cpuQ);
   KIV_ASSERT(cpuQ->cpuQId() != cpuCosqDrop_);

   // A module the agent does not know has no hardware here yet.
   bool const moduleKnown =
       key.modId() <= 0xFFFF &&
       !(scsd()->nimbalModId(static_cast<U16>(key.modId())) == NimbalModInfo());
   if (!moduleKnown) {
      return true;
   }
   // Rates change through the policer of the existing entry, never by programming it again.
   if (kernelDynamicCoppDataHas(key)) {
      return true;
   }
   NimbalTypes::NimbalPort port = getNimbalPortFromModIdPortQueueKey(scsd(), key);
   U32 const unit = port.unit();
   Orvik::IntfId const intf = getIntfIdFromNimbalPort(scsd(), port);
   if (intf == Orvik::IntfId::emptyIntfId()) {
      return true;
   }

   Kiv::Ptr<NimbalUnboundedTcamEntryManager> const entryMgr = efpCoppEntryMgr();
   // Made for every key of the switch: joined in one allocation rather than formatted.
   static constexpr std::string_view descriptionPrefix = "Dynamic Kernel Copp for ";
   Kiv::String description;
   description.reserve(descriptionPrefix.size() + intf.stringValue().size() + 2 +
                       cpuQ->cmapName().size());
   description.append(descriptionPrefix)
       .append(intf.stringValue())
       .append(", ")
       .append(cpuQ->cmapName());
   U32 const entry = entryMgr->getEntryWithStats(unit, std::move(description), RequestKey(),
                                                 coppEntryStatTypes());
   if (entry == 0) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "createCoppPolicerByPortQueue"
                    << " allocation failed for entry: " << entry);
      return false;
   }
   entryMgr->setPriorityForEntry(unit, entry, entryMgr->coppPriority());
   setCoppEntryQual(unit, entry, key.port(), srcPortMask, static_cast<U8>(key.queue()),
                    cpuQueueMask, 0, 0);
   Oskel::CoppInfo const info = kernelCoppConfig()->coppInfo(key);
   U32 const policer = installCoppPolicer(unit, entry, info.rateInPps(), info.burstPkts(),
                                          tcamGroupManager(), entryMgr);
   if (policer == noPolicer) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "createCoppPolicerByPortQueue"
                    << " meter allocation failed for entry: " << entry);
      // Nothing is left behind: the agent asks again later.
      entryMgr->destroyEntry(unit, entry);
      return false;
   }
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosHelper"
                 << "( " << cpuQ->pmapName() << "," << static_cast<U32>(cpuQ->pmapType()) << ","
                 << cpuQ->cmapName() << " )::"
                 << "createCoppPolicerByPortQueue"
                 << " on intf: " << intf << " allocate entry: " << entry
                 << " create policer: " << policer << " CIR(pps): " << info.rateInPps()
                 << " BC(packet): " << info.burstPkts());
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const coppData = kernelDynamicCoppDataIs(key);
   coppData->entryIs(entry);
   coppData->policerIdIs(policer);
   // Where the entry's hits go when it is destroyed; a count left by an earlier entry of the
   // same queue is kept.
   coppIntfCounterDataIs(intf)->qCounterColIsNew(key.queue(), NimbalQosCoppQCounterData(0));

   if (vxlanCoppSrcPortWorkAroundNeeded() && scsd()->vxlanEnabled() &&
       !createCoppVxlanSrcPortPolicerByPortQueue(key)) {
      // The port-keyed entry stands; the state machine retries the VXLAN one.
      if (QosIntfCoppSm* const sm = QosIntfCoppSm::machineOf(*this)) {
         sm->vxlanEntryExhaustedIs(true);
      }
      qosCoppHwResourceFullLog().log(
          coppEgressTcamText,
          Kiv::format(coppVxlanClassPolicerFormat, cpuQIdToClassMapName(key.queue()),
                      portToIntfName(key.modId(), key.port())));
   }
   return true;
}

void QosAclHelperV1::destroyCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosHelper"
                 << "destroyCoppPolicerByPortQueue"
                 << " modId: " << key.modId() << " port : " << key.port()
                 << " queue: " << key.queue());
   if (Kiv::Ptr<NimbalQosKernelDynamicCoppData> const coppData = kernelDynamicCoppData(key)) {
      // The entry's hits outlive it in the software counter.
      updateCoppIntfCounterByPortQueue(key);
      ModId const modId(key.modId());
      U32 const unit = scsd()->nimbalModIdToUnitCol().value(modId.value()).value_or(0);
      releaseCoppPolicer(unit, coppData->entry(), coppData->policerId(), tcamGroupManager(),
                         efpCoppEntryMgr());
      kernelDynamicCoppDataDel(key);
   }
   if (vxlanCoppSrcPortWorkAroundNeeded()) {
      destoryCoppVxlanSrcPortPolicerByPortQueue(key);
   }
}

}  // namespace Nimbal
