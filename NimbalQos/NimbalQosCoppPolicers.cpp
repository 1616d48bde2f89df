#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosCoppClass.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

namespace {

// The kernel's refill threshold: two thirds of the burst, multiplied first.
U32 burstTokensOf(U32 burst) {
   return burst * 2 / 3;
}

// The applied policy map that a class belongs to, in the MMU's hardware status.
Kiv::Ptr<Qos::PolicyMapHwStatus> coppPmapSliceHwStatus(
    Kiv::Ptr<Qos::PolicyMapSliceHwStatus> const& pmapHwStatus, Oskel::QosClassDataKey const& key) {
   Kiv::Ptr<Qos::PolicyMapTypeSliceHwStatus> const pmapTypeSliceHwStatus =
       pmapHwStatus->pmapTypeSliceHwStatus(key.pmapType());
   KIV_ASSERT(pmapTypeSliceHwStatus);
   Kiv::Ptr<Qos::PolicyMapHwStatus> const pmapSliceHwStatus =
       pmapTypeSliceHwStatus->pmapSliceHwStatus(
           Qos::PolicyMapHwStatusKey(key.pmapName(), key.pmapType(), key.direction()));
   KIV_ASSERT(pmapSliceHwStatus);
   return pmapSliceHwStatus;
}

// The CPU queue of a CoPP class: its dynamic queue, which must be held for this very class,
// or else the queue that the MMU maps the class to for good.
S32 coppClassCpuQId(Kiv::Ptr<MmuConfigSm> const& mmuConfigSm,
                    Kiv::Ptr<Oskel::QosClassData> const& classData) {
   // Named as the helper's accessor, so that a failed check prints as it reads in the helper.
   auto mmuSm = [&mmuConfigSm]() -> MmuConfigSm const* { return mmuConfigSm.ptr(); };
   Oskel::QosClassDataKey const& key = classData->key();
   S32 cpuQId = classData->cpuQId();
   if (cpuQId < 0) {
      cpuQId = mmuSm()->staticClassToCpuQId(mmuSm()->coppPMapName(), key.pmapType(), key.cmapName(),
                                            key.cmapType());
      KIV_ASSERT(cpuQId >= 0);
   } else {
      Kiv::Ptr<MmuCpuQ> const cpuQ = mmuSm()->cpuQColl()->cpuQ(static_cast<U32>(cpuQId));
      KIV_ASSERT(cpuQ);
      KIV_ASSERT(cpuQ->allocated());
      KIV_ASSERT(cpuQ->pmapName() == mmuSm()->coppPMapName());
      KIV_ASSERT(cpuQ->cmapType() == key.cmapType());
      KIV_ASSERT(cpuQ->cmapName() == key.cmapName());
   }
   return cpuQId;
}

}  // namespace

S32 QosAclHelperV1::coppAllocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   Oskel::QosClassDataKey const& key = classData->key();
   Kiv::Ptr<Qos::PolicyMapStatus> const pmapStatus =
       qosStatus()->pmapStatus(key.pmapType(), key.pmapName());
   KIV_ASSERT(pmapStatus);
   Kiv::Ptr<Qos::ClassMapStatus> const cmapStatus =
       pmapStatus->cmapStatus(key.cmapType(), key.cmapName());
   KIV_ASSERT(cmapStatus);
   Kiv::Ptr<Qos::Action> const bandwidthAction = cmapStatus->action(Qos::actionSetBandwidth_);
   Kiv::Ptr<Qos::Action> const shapeAction = cmapStatus->action(Qos::actionSetShape_);

   S32 const cpuQId = mmuSm()->allocateDynamicCpuQ(pmapStatus, cmapStatus);
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << key << " )::"
                 << "coppAllocateCpuQ"
                 << "( " << cpuQId << " )");

   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> const pmapHwStatus = mmuSm()->pmapHwStatus();
   if (pmapHwStatus && cpuQId != -1) {
      coppPmapSliceHwStatus(pmapHwStatus, key)->cmapIs(key.cmapName());
   }
   if (cpuQId == -1) {
      return -1;
   }

   Kiv::Ptr<MmuCpuQ> const cpuQ = mmuSm()->cpuQColl()->cpuQ(static_cast<U32>(cpuQId));
   KIV_ASSERT(cpuQ);
   if (cpuQ->users() > 1) {
      // A shared queue keeps the bandwidth of the class that took it first.
      return cpuQId;
   }

   Qos::ActionRateType maxRate =
       shapeAction ? shapeAction->rate().value() : Qos::actionRateNotConfigured;
   Qos::ActionRateType minRate =
       bandwidthAction ? bandwidthAction->rate().value() : Qos::actionRateNotConfigured;
   // A percentage has no unit of its own; the bandwidth action's unit wins over the shape's.
   Qos::RateUnit unit = Qos::rateUnitInvalid_;
   for (Kiv::Ptr<Qos::Action> const& action : {shapeAction, bandwidthAction}) {
      if (action && action->rateKind() != Qos::actionRateKindPercent_) {
         unit = action->rate().unit();
      }
   }
   if (scsd()->cpuQRateFromQueue()) {
      minRate = cpuQ->cpuQRate();
      maxRate = Qos::actionRateNotConfigured;
   }
   mmuSm()->programCpuQBandwidth(cpuQId, minRate, maxRate, unit, true);
   return cpuQId;
}

void QosAclHelperV1::coppDeallocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   Oskel::QosClassDataKey const& key = classData->key();
   Qos::MapType const pmapType = key.pmapType();
   KIV_ASSERT(pmapType == classData->key().cmapType());
   S32 const cpuQId = classData->cpuQId();
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << key << " )::"
                 << "coppDeallocateCpuQ"
                 << "( " << cpuQId << " )");

   mmuSm()->deallocateDynamicCpuQ(cpuQId);
   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> const pmapHwStatus = mmuSm()->pmapHwStatus();
   if (pmapHwStatus) {
      coppPmapSliceHwStatus(pmapHwStatus, key)->cmapDel(key.cmapName());
   }
   if (cpuQId != -1 && pktDrv()) {
      // The next class on this queue starts counting from zero.
      pktDrv()->resetCpuQCounter(static_cast<unsigned int>(cpuQId));
   }
}

bool QosAclHelperV1::createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   if (classData->key().pmapType() == Qos::mapControlPlane_) {
      return createAndAttachCoppPolicer(classData);
   }
   return QosAclHelper::createAndAttachPolicer(classData);
}

void QosAclHelperV1::destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   if (classData->key().pmapType() == Qos::mapControlPlane_) {
      destroyCoppPolicer(classData);
      return;
   }
   QosAclHelper::destroyPolicer(classData);
}

bool QosAclHelperV1::createAndAttachCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   Orvik::IntfId const intf = coppClassIntf(classData);
   NimbalTypes::NimbalPort const port = getNimbalPortFromIntfId(scsd(), intf);
   if (port == NimbalTypes::NimbalPort::noPort()) {
      // The interface is not on this chip yet.
      return true;
   }
   Oskel::QosClassDataKey const key = classData->key();
   NIMBAL_ASSERT_COPP_INPUT_KEY(key);
   S32 const cpuQId = coppClassCpuQId(mmuSm(), classData);
   KIV_ASSERT(classData->intfIds() == 1);
   Kiv::Ptr<Qos::PolicerData> const policerData = classData->policerData();
   KIV_ASSERT(policerData);
   // CoPP rates are configured in packets per second only; nothing converts them.
   KIV_ASSERT(policerData->cirUnit() == Qos::rateUnitPps_);
   U32 const cir = static_cast<U32>(policerData->cir());
   U32 const bc = policerData->bc();

   Kiv::Ptr<NimbalQosCoppIntfPolicerData> const intfPolicerData = coppIntfPolicerDataIs(intf);
   Kiv::Ptr<NimbalQosCoppPolicerData> const coppPolicerData =
       intfPolicerData->policerDataColIs(key);
   coppPolicerData->policerRateIs(cir);
   coppPolicerData->cpuQIdIs(cpuQId);
   coppPolicerData->policerBurstIs(bc);
   coppPolicerData->isDynamicIs(true);

   updatePortDefaultCoppPolicer(port);
   Oskel::ModIdPortQueueKey const coppKey(port.modId(), port.logicalPort(),
                                          static_cast<U32>(cpuQId));
   kernelCoppConfig()->coppInfoIs(coppKey, Oskel::CoppInfo(cir, burstTokensOf(bc), bc, true));
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << key << " )::"
                 << "createAndAttachCoppPolicer"
                 << " on intf: " << intf << " update kernel copp with user policer: "
                 << " CIR(pps): " << policerData->cir() << " BC(packets): " << bc);
   clearCoppIntfSwCounterByPortQueue(coppKey, true);
   return true;
}

void QosAclHelperV1::destroyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   Oskel::QosClassDataKey const key = classData->key();
   NIMBAL_ASSERT_COPP_INPUT_KEY(key);
   Orvik::IntfId const intf = coppClassIntf(classData);
   NimbalTypes::NimbalPort const port = getNimbalPortFromIntfId(scsd(), intf);
   Kiv::Ptr<NimbalQosCoppIntfPolicerData> const intfPolicerData = coppIntfPolicerData(intf);
   if (!intfPolicerData || !intfPolicerData->policerDataColHas(key)) {
      return;
   }
   S32 const cpuQId = coppClassCpuQId(mmuSm(), classData);
   Kiv::Ptr<MmuCpuQ> const cpuQ = mmuSm()->cpuQColl()->cpuQ(static_cast<U32>(cpuQId));
   KIV_ASSERT(cpuQ);

   // Without its class policer the queue falls back to its own default; kernel CoPP stays on.
   U32 const rate = cpuQ->defaultCoppRate();
   U32 const burst = cpuQ->defaultCoppBurst();
   Oskel::ModIdPortQueueKey const coppKey(port.modId(), port.logicalPort(),
                                          static_cast<U32>(cpuQId));
   kernelCoppConfig()->coppInfoIs(coppKey,
                                  Oskel::CoppInfo(rate, burstTokensOf(burst), burst, true));
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << key << " )::"
                 << "destroyCoppPolicer"
                 << " on intf: " << intf << " update kernel copp with default policer: "
                 << " CIR(pps): " << rate << " BC(packets): " << burst);

   intfPolicerData->policerDataColDel(key);
   if (intfPolicerData->policerDataCol() == 0) {
      coppIntfPolicerDataDel(intf);
   }
   updatePortDefaultCoppPolicer(port);
   clearCoppIntfSwCounterByPortQueue(coppKey, true);
}

bool QosAclHelperV1::checkUserCoppEntryExists(Oskel::ModIdPortQueueKey const& key) {
   // (0, 0, 0) is never a programmed entry.
   if (key == Oskel::ModIdPortQueueKey()) {
      return false;
   }
   return userCoppDataHas(key);
}

bool QosAclHelperV1::checkKernelCoppEntryExists(Oskel::ModIdPortQueueKey const& key) {
   if (key == Oskel::ModIdPortQueueKey()) {
      return false;
   }
   return kernelDynamicCoppDataHas(key);
}

}  // namespace Nimbal
