#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosCoppClass.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

namespace {

// Bytes are not measured for CoPP: every packet counts as 64 bytes.
constexpr unsigned coppPacketBytesShift = 6;

// A class counter record from the packet driver's (dropped, allowed) pair.
Oskel::QosClassCounterData ddeCounterData(std::pair<U64, U64> const& ddeCounters) {
   Oskel::QosClassCounterData counter;
   counter.pktHitsIs(ddeCounters.first + ddeCounters.second);
   counter.dropIs(ddeCounters.first);
   counter.byteHitsIs(counter.pktHits() << coppPacketBytesShift);
   counter.dropBytesIs(counter.drop() << coppPacketBytesShift);
   return counter;
}

}  // namespace

Oskel::QosClassCounterData QosAclHelperV1::coppCounterUpdateRequest(
    Kiv::Ptr<Oskel::QosClassData> const& classData) {
   KIV_TRACE(defaultTraceHandle(), 4, "coppCounterUpdateRequest");
   Oskel::QosClassDataKey const key = classData->key();
   NIMBAL_ASSERT_COPP_INPUT_KEY(key);
   // Only the class's first interface is counted.
   Orvik::IntfId const intf = coppClassIntf(classData);
   NimbalTypes::NimbalPort const port = getNimbalPortFromIntfId(scsd(), intf);

   Oskel::QosClassCounterData result;
   Kiv::Ptr<NimbalQosCoppIntfPolicerData> const intfPolicerData = coppIntfPolicerData(intf);
   if (!intfPolicerData) {
      return result;
   }
   Kiv::Ptr<NimbalQosCoppPolicerData> const policerData = intfPolicerData->policerDataCol(key);
   if (!policerData) {
      return result;
   }
   U32 const cpuQId = static_cast<U32>(policerData->cpuQId());
   result = ddeCounterData(pktDrv()->getDdeCoppCounters(port.unit(), port.logicalPort(), cpuQId));
   Oskel::QosClassCounterData const snapshot =
       lastClearCoppSwCfgCounterCol()
           .value(Oskel::ModIdPortQueueKey(port.modId(), port.logicalPort(), cpuQId))
           .value_or(Oskel::QosClassCounterData());
   KIV_TRACE(defaultTraceHandle(), 4,
             "coppCounterUpdateRequest"
                 << " ddeCounter.drop: " << result.drop() << " lastClearCoppSwCfgCounter.drop: "
                 << snapshot.drop() << " ddeCounter.pktHits: " << result.pktHits()
                 << " lastClearCoppSwCfgCounter.pktHits: " << snapshot.pktHits());

   // Unsigned and wrapping: a counter that restarted after the clear reads huge, as it should
   // rather than hide the restart.
   result.pktHitsIs(result.pktHits() - snapshot.pktHits());
   result.dropIs(result.drop() - snapshot.drop());
   result.byteHitsIs(result.byteHits() - snapshot.byteHits());
   result.dropBytesIs(result.dropBytes() - snapshot.dropBytes());
   result.exceedPktsIs(result.exceedPkts() - snapshot.exceedPkts());
   result.violatePktsIs(result.violatePkts() - snapshot.violatePkts());
   for (auto const& [snapshotIntf, drops] : snapshot.dropCountIntfSharedPolicer()) {
      result.dropCountIntfSharedPolicerIs(snapshotIntf,
                                          result.dropCountIntfSharedPolicer(snapshotIntf) - drops);
   }
   return result;
}

U64 QosAclHelperV1::getPortDefaultCoppPolicerPktHits(U16 unit, Orvik::IntfId intfId) {
   NimbalQosPolicerHwData const none;
   NimbalQosPolicerHwData const hwData =
       portDefaultCoppPolicerHwDataCol().value(intfId).value_or(none);
   if (hwData == none) {
      return 0;
   }
   U64 hits = efpCoppDefAndVxlanEntryMgr()->hitsForEntry(unit, hwData.entryId());
   NimbalQosPolicerHwData const vxlanHwData =
       portDefaultCoppPolicerVxlanHwDataCol().value(intfId).value_or(none);
   if (!(vxlanHwData == none)) {
      hits += efpCoppDefAndVxlanEntryMgr()->hitsForEntry(unit, vxlanHwData.entryId());
   }
   return hits;
}

U64 QosAclHelperV1::getIntfQueueCoppPolicerPktHits(NimbalTypes::NimbalPort const& port, U32 queue) {
   Oskel::ModIdPortQueueKey const key(port.modId(), port.logicalPort(), queue);
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const coppData = kernelDynamicCoppData(key);
   if (!coppData) {
      return 0;
   }
   U64 const hits = efpCoppEntryMgr()->hitsForEntry(port.unit(), coppData->entry());
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const vxlanCoppData = kernelDynamicCoppVxlanData(key);
   if (!vxlanCoppData) {
      return hits;
   }
   return hits + efpCoppDefAndVxlanEntryMgr()->hitsForEntry(port.unit(), vxlanCoppData->entry());
}

void QosAclHelperV1::updateCoppIntfCounterByPortQueue(Oskel::ModIdPortQueueKey const& key) {
   char const* const signature = __PRETTY_FUNCTION__;  // the trace formats out of line
   KIV_TRACE(defaultTraceHandle(), 4,
             signature << " modId: " << key.modId() << " port: " << key.port()
                       << " queue: " << key.queue());
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const coppData = kernelDynamicCoppData(key);
   KIV_ASSERT(coppData);
   ModId const modId(key.modId());
   U16 const unit = scsd()->nimbalModIdToUnitCol().value(modId.value()).value_or(0);
   // The entry's hits are read before the port is checked.
   U64 hits = efpCoppEntryMgr()->hitsForEntry(unit, coppData->entry());
   NimbalTypes::NimbalPort port(modId.value(), unit, NimbalTypes::checkedLogicalPort(key.port()),
                                0);
   Orvik::IntfId const intf = getIntfIdFromNimbalPort(scsd(), port);
   if (intf == Orvik::IntfId::emptyIntfId()) {
      return;
   }
   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const vxlanCoppData = kernelDynamicCoppVxlanData(key);
   if (vxlanCoppData) {
      hits += efpCoppDefAndVxlanEntryMgr()->hitsForEntry(unit, vxlanCoppData->entry());
   }
   // The port-queue code keeps a counter record per interface; it is made here if it is not.
   Kiv::Ptr<NimbalQosCoppIntfCounterData> const counterData = coppIntfCounterDataIs(intf);
   U64 const stored = counterData->qCounterColCol()
                          .value(key.queue())
                          .value_or(NimbalQosCoppQCounterData())
                          .pktHits();
   counterData->qCounterColIs(key.queue(), NimbalQosCoppQCounterData(stored + hits));
}

void QosAclHelperV1::clearCoppIntfSwCounterByPortQueue(Oskel::ModIdPortQueueKey const& key,
                                                       bool clearSwCfgOnly) {
   char const* const signature = __PRETTY_FUNCTION__;  // the trace formats out of line
   KIV_TRACE(defaultTraceHandle(), 4,
             signature << " modId: " << key.modId() << " port: " << key.port()
                       << " queue: " << key.queue());
   // The packet driver counts by the chip's own unit number, which an unknown module lacks
   // (its default chip information says 128).
   U32 const ddeUnit = scsd()->nimbalModId(static_cast<U16>(key.modId())).chipInfo().unit();
   ModId const modId(key.modId());
   U16 const unit = scsd()->nimbalModIdToUnitCol().value(modId.value()).value_or(0);
   NimbalTypes::NimbalPort port(modId.value(), unit, NimbalTypes::checkedLogicalPort(key.port()),
                                0);
   Orvik::IntfId const intf = getIntfIdFromNimbalPort(scsd(), port);
   if (intf == Orvik::IntfId::emptyIntfId()) {
      return;
   }
   Oskel::QosClassCounterData const snapshot =
       ddeCounterData(pktDrv()->getDdeCoppCounters(ddeUnit, key.port(), key.queue()));
   // A configuration clear restarts only the poll; the show keeps counting from the last full
   // clear.
   if (!clearSwCfgOnly) {
      lastClearCoppSwCounterIs(key, snapshot);
   }
   lastClearCoppSwCfgCounterIs(key, snapshot);
}

// Hardware hit counters of CoPP entries are never cleared on this platform: the clears below
// are deliberately empty, and the queue counters have no display of their own.

void QosAclHelperV1::clearPortDefaultCoppPolicerPktHits(U16, Orvik::IntfId) {}

void QosAclHelperV1::clearIntfQueueCoppPolicerPktHits(NimbalTypes::NimbalPort const&, U32) {}

void QosAclHelperV1::clearIntfCoppCounters() {}

void QosAclHelperV1::showCpuIntfCoppQueueCounters(U32) {}

}  // namespace Nimbal
