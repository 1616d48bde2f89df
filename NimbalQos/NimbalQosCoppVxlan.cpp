#include <optional>
#include <utility>
#include <vector>

#include "Kiv/Assert.h"
#include "Kiv/Format.h"
#include "Kiv/Trace.h"
#include "NimbalCentral/ChipInfo.h"
#include "NimbalQos/NimbalQosCoppStatTypes.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSdkCall.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

namespace {

// The source port sits in the inner VLAN id of recirculated tunnel traffic.
constexpr U16 innerVlanPortMask = 0xFFF;
constexpr U8 cpuQueueMask = 0x3F;
// What installCoppPolicer gives when no meter is left.
constexpr U32 noPolicer = 0xFFFFFFFF;

// Tells the state machine that a VXLAN entry could not be made, so that it retries later.
void vxlanEntryExhaustedRaise(QosAclHelperV1 const& helper) {
   if (QosIntfCoppSm* const sm = QosIntfCoppSm::machineOf(helper)) {
      sm->vxlanEntryExhaustedIs(true);
   }
}

}  // namespace

// The VXLAN entry pool

U32 QosAclHelperV1::allocateCoppVxlanDynEntry() {
   // Read at every allocation: the range moves with the manager's base.
   U32 const base = efpCoppDefAndVxlanEntryMgr()->baseIndex();
   U32 candidate = base + coppVxlanDynEntryOffset;
   // Every key lies in the range, so the first one that differs from the running candidate is
   // above it and the candidate is free.
   for (auto iter = coppVxlanDynEntryInUseCol().begin(); iter != coppVxlanDynEntryInUseCol().end();
        ++iter) {
      KIV_ASSERT_MSG(iter->second, "*iter");
      if (iter->first != candidate) {
         break;
      }
      ++candidate;
   }
   if (candidate >= base + coppVxlanDynEntryMax) {
      return coppVxlanDynEntryInvalid;
   }
   coppVxlanDynEntryInUseIs(candidate, true);
   return candidate;
}

void QosAclHelperV1::freeCoppVxlanEntry(U32 entry) {
   KIV_ASSERT_MSG(coppVxlanDynEntryInUse(entry), "coppVxlanDynEntryInUse( entry )");
   // A free index leaves the map; the map never holds false.
   coppVxlanDynEntryInUseDel(entry);
}

// VXLAN CoPP programming

bool QosAclHelperV1::vxlanCoppSrcPortWorkAroundNeeded() {
   return NimbalCentral::nimbalAttributes().vxlanCoppSrcPortWorkAroundNeeded();
}

void QosAclHelperV1::syncCoppVxlanEntries(bool retry) {
   // Only chips that recirculate tunnel traffic to the CPU need VXLAN entries.
   if (!vxlanCoppSrcPortWorkAroundNeeded()) {
      return;
   }
   bool const vxlanEnabled = scsd()->vxlanEnabled();
   KIV_TRACE(defaultTraceHandle(), 4,
             "syncCoppVxlanEntries"
                 << " vxlan enabled: " << vxlanEnabled);
   for (auto cDataIter = kernelDynamicCoppVxlanDataCol().begin();
        cDataIter != kernelDynamicCoppVxlanDataCol().end(); ++cDataIter) {
      KIV_ASSERT_MSG(kernelDynamicCoppDataHas(cDataIter->first),
                     "kernelDynamicCoppDataHas( cDataIter.key() )");
   }
   // Source-port entries wait while a port's VXLAN default entry is missing.
   if (!syncCoppVxlanDefaultPolicer(retry)) {
      return;
   }

   std::vector<Oskel::ModIdPortQueueKey> const keys = kernelDynamicCoppDataCol().keys();
   if (!vxlanEnabled) {
      for (Oskel::ModIdPortQueueKey const& key : keys) {
         if (kernelDynamicCoppVxlanDataHas(key)) {
            destoryCoppVxlanSrcPortPolicerByPortQueue(key);
         }
      }
      return;
   }
   for (Oskel::ModIdPortQueueKey const& key : keys) {
      if (kernelDynamicCoppVxlanDataHas(key)) {
         continue;
      }
      if (!createCoppVxlanSrcPortPolicerByPortQueue(key)) {
         // One failure does not stop the pass: the others may still find room.
         vxlanEntryExhaustedRaise(*this);
         qosCoppHwResourceFullLog().log(
             coppEgressTcamText,
             Kiv::format(coppVxlanClassPolicerFormat, cpuQIdToClassMapName(key.queue()),
                         portToIntfName(key.modId(), key.port())));
      } else if (retry) {
         qosCoppHwResourceNormalLog().log(
             Kiv::format(coppVxlanDefaultPolicerFormat, portToIntfName(key.modId(), key.port())),
             coppEgressTcamText);
      }
   }
}

bool QosAclHelperV1::syncCoppVxlanDefaultPolicer(bool retry) {
   KIV_ASSERT(vxlanCoppSrcPortWorkAroundNeeded());
   bool const vxlanEnabled = scsd()->vxlanEnabled();
   KIV_TRACE(defaultTraceHandle(), 4,
             "syncCoppVxlanDefaultPolicer"
                 << " vxlan enabled: " << vxlanEnabled);
   Kiv::Ptr<NimbalBoundedTcamEntryManager> const entryMgr = efpCoppDefAndVxlanEntryMgr();

   if (!vxlanEnabled) {
      std::vector<std::pair<Orvik::IntfId, NimbalQosPolicerHwData>> const vxlanDefaults(
          portDefaultCoppPolicerVxlanHwDataCol().begin(),
          portDefaultCoppPolicerVxlanHwDataCol().end());
      for (auto const& [intf, hwData] : vxlanDefaults) {
         NimbalTypes::NimbalPort const port = getNimbalPortFromIntfId(scsd(), intf);
         releaseCoppPolicer(port.unit(), hwData.entryId(), hwData.policerId(), tcamGroupManager(),
                            entryMgr);
         portDefaultCoppPolicerVxlanHwDataDel(intf);
      }
      return true;
   }

   std::vector<std::pair<Orvik::IntfId, NimbalQosPolicerHwData>> const defaults(
       portDefaultCoppPolicerHwDataCol().begin(), portDefaultCoppPolicerHwDataCol().end());
   for (auto const& slot : defaults) {
      // Named, not bound: the trace below reads it from out of line.
      Orvik::IntfId const& intf = slot.first;
      NimbalQosPolicerHwData const& hwData = slot.second;
      if (portDefaultCoppPolicerVxlanHwDataHas(intf)) {
         continue;
      }
      NimbalTypes::NimbalPort const port = getNimbalPortFromIntfId(scsd(), intf);
      U32 const unit = port.unit();
      U32 const entry = entryMgr->baseIndex() + coppVxlanDefaultOffset + port.logicalPort();
      Kiv::String const name = Kiv::format("Default Copp (vxlan): %s", intf.stringValue());
      bool made = false;
      if (entryMgr->getEntryWithStats(unit, entry, name, RequestKey(), coppEntryStatTypes()) != 0) {
         entryMgr->setPriorityForEntry(unit, entry, entryMgr->entryPriority());
         // Any in-port, any CPU queue: the source port is read from the inner VLAN id.
         setCoppEntryQual(unit, entry, 0, 0, 0, 0, port.logicalPort(), innerVlanPortMask);
         U32 const handle = installCoppPolicer(unit, entry, hwData.policerRate(),
                                               hwData.policerBurst(), tcamGroupManager(), entryMgr);
         if (handle == noPolicer) {
            entryMgr->destroyEntry(unit, entry);
         } else {
            portDefaultCoppPolicerVxlanHwDataIs(
                intf,
                NimbalQosPolicerHwData(hwData.policerRate(), hwData.policerBurst(), entry, handle));
            made = true;
         }
      }
      if (!made) {
         KIV_TRACE(defaultTraceHandle(), 4,
                   "syncCoppVxlanDefaultPolicer"
                       << " allocation failed for port default (vxlan): " << intf);
         vxlanEntryExhaustedRaise(*this);
         qosCoppHwResourceFullLog().log(
             coppEgressTcamText, Kiv::format(coppVxlanDefaultPolicerFormat, intf.stringValue()));
         return false;
      }
      if (retry) {
         qosCoppHwResourceNormalLog().log(
             Kiv::format(coppVxlanDefaultPolicerFormat, intf.stringValue()), coppEgressTcamText);
      }
   }
   return true;
}

bool QosAclHelperV1::createCoppVxlanSrcPortPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) {
   KIV_ASSERT(vxlanCoppSrcPortWorkAroundNeeded());
   KIV_ASSERT(scsd()->vxlanEnabled());
   // A key out of range is refused before a pool index is taken for it.
   NimbalTypes::NimbalPort port = getNimbalPortFromModIdPortQueueKey(scsd(), key);
   U32 const entry = allocateCoppVxlanDynEntry();
   if (entry == coppVxlanDynEntryInvalid) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "createCoppVxlanSrcPortPolicerByPortQueue"
                    << " allocation failed for entry: " << entry);
      return false;
   }

   U32 const unit = port.unit();
   Orvik::IntfId const intf = getIntfIdFromNimbalPort(scsd(), port);
   Kiv::Ptr<MmuCpuQ> const cpuQ = mmuSm()->cpuQColl()->cpuQ(key.queue());
   KIV_ASSERT(cpuQ);
   Kiv::Ptr<NimbalBoundedTcamEntryManager> const entryMgr = efpCoppDefAndVxlanEntryMgr();
   // Made for every key of the switch: joined rather than formatted.
   Kiv::String const name =
       "Dynamic Kernel Copp (Vxlan) for " + cpuQ->name() + ", " + intf.stringValue();
   U32 const vxlanEntry =
       entryMgr->getEntryWithStats(unit, entry, name, RequestKey(), coppEntryStatTypes());
   if (vxlanEntry == 0) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "createCoppVxlanSrcPortPolicerByPortQueue"
                    << " allocation failed for entry: " << entry);
      freeCoppVxlanEntry(entry);
      return false;
   }
   KIV_ASSERT(entry == vxlanEntry);

   entryMgr->setPriorityForEntry(unit, entry, entryMgr->entryPriority());
   // Any in-port; the queue as the port-keyed entry has it; the source port from the inner
   // VLAN id.
   setCoppEntryQual(unit, entry, 0, 0, static_cast<U8>(key.queue()), cpuQueueMask,
                    static_cast<U16>(key.port()), innerVlanPortMask);
   Oskel::CoppInfo const info = kernelCoppConfig()->coppInfo(key);
   U32 const handle = installCoppPolicer(unit, entry, info.rateInPps(), info.burstPkts(),
                                         tcamGroupManager(), entryMgr);
   if (handle == noPolicer) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "createCoppVxlanSrcPortPolicerByPortQueue"
                    << " meters allocation failed for entry: " << entry);
      entryMgr->destroyEntry(unit, entry);
      freeCoppVxlanEntry(entry);
      return false;
   }
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const coppData = kernelDynamicCoppVxlanDataIs(key);
   coppData->entryIs(entry);
   coppData->policerIdIs(handle);
   return true;
}

void QosAclHelperV1::destoryCoppVxlanSrcPortPolicerByPortQueue(
    Oskel::ModIdPortQueueKey const& key) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "destoryCoppVxlanSrcPortPolicerByPortQueue"
                 << " modId: " << key.modId() << " port : " << key.port()
                 << " queue: " << key.queue());
   KIV_ASSERT(vxlanCoppSrcPortWorkAroundNeeded());
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const coppData = kernelDynamicCoppVxlanData(key);
   if (!coppData) {
      return;
   }
   U32 const unit = getNimbalPortFromModIdPortQueueKey(scsd(), key).unit();
   releaseCoppPolicer(unit, coppData->entry(), coppData->policerId(), tcamGroupManager(),
                      efpCoppDefAndVxlanEntryMgr());
   freeCoppVxlanEntry(coppData->entry());
   kernelDynamicCoppVxlanDataDel(key);
}

void QosAclHelperV1::updateIntfCoppOnVxlanRecircIntfEnabled(Orvik::IntfId intf, bool enabled) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "updateIntfCoppOnVxlanRecircIntfEnabled"
                 << " intf: " << intf << " enabled: " << enabled);
   std::optional<NimbalQosPolicerHwData> const coppData =
       portDefaultCoppPolicerHwDataCol().value(intf);
   KIV_ASSERT(!!coppData);
   NimbalTypes::NimbalPort const sp = getNimbalPortFromIntfId(scsd(), intf);
   KIV_ASSERT_MSG(sp.valid(), "!!sp");
   // While the interface recirculates tunnel traffic its default entry keeps only the drop
   // queue, so the tunnel traffic falls to the VXLAN entries of its real source port.
   int const entry = static_cast<int>(coppData->entryId());
   U8 const mask = enabled ? cpuQueueMask : 0;
   NIMBAL_SDK_CALL("bcm_field_qualify_CpuQueue( sp.unit(), entry, cpuCosqDrop_, mask )",
                   ::Shim::sdk_->bcm_field_qualify_CpuQueue(sp.unit(), entry, cpuCosqDrop_, mask));
   efpCoppDefAndVxlanEntryMgr()->installEntry(sp.unit(), static_cast<U32>(entry));
}

}  // namespace Nimbal
