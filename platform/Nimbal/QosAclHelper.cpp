#include "Nimbal/QosAclHelper.h"

#include <optional>

namespace Nimbal {

QosAclHelper::QosAclHelper(Kiv::Ptr<Qos::Status const> const& qosStatus,
                           Kiv::Ptr<Qos::AclSliceHwStatus> const& qosAclSliceHwStatus,
                           Kiv::Ptr<Acl::Config const> const& mainAclConfig,
                           Kiv::Ptr<MmuConfigSm> const& mmuSm,
                           Kiv::Ptr<NimbalCommonSmData> const& scsd,
                           Kiv::Ptr<NimbalTcamGroupManager> const& tcamGroupManager,
                           Kiv::Ptr<PktDrv> const& pktDrv,
                           Kiv::Ptr<NimbalCentral::AclHwStatus const> const& aclHwStatus,
                           Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> const& vlanTopoSliceStatus,
                           Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> const& scMiscConfig,
                           Kiv::Ptr<NimbalL3::RoutingStatus const> const& routingStatus,
                           Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> const& vxlanSliceConfig,
                           U32 unit, Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus)
    : qosStatus_(qosStatus),
      qosAclSliceHwStatus_(qosAclSliceHwStatus),
      mainAclConfig_(mainAclConfig),
      mmuSm_(mmuSm),
      scsd_(scsd),
      tcamGroupManager_(tcamGroupManager),
      pktDrv_(pktDrv),
      aclHwStatus_(aclHwStatus),
      vlanTopoSliceStatus_(vlanTopoSliceStatus),
      scMiscConfig_(scMiscConfig),
      routingStatus_(routingStatus),
      vxlanSliceConfig_(vxlanSliceConfig),
      unit_(unit),
      qosAclHwStatus_(qosAclHwStatus) {}

QosAclHelper::~QosAclHelper() = default;

void QosAclHelper::precreateAcl(Kiv::Ptr<Oskel::QosPolicyMapState> const&,
                                Kiv::Ptr<Oskel::QosClassData> const&, Qos::ClassMapMatchOption,
                                Oskel::AclKey const&, U32) {
   baseCallIs("QosAclHelper::precreateAcl");
}

S32 QosAclHelper::coppAllocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::coppAllocateCpuQ");
   return -1;
}

void QosAclHelper::coppDeallocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::coppDeallocateCpuQ");
}

bool QosAclHelper::checkUserCoppEntryExists(Oskel::ModIdPortQueueKey const&) {
   baseCallIs("QosAclHelper::checkUserCoppEntryExists");
   return false;
}

bool QosAclHelper::checkKernelCoppEntryExists(Oskel::ModIdPortQueueKey const&) {
   baseCallIs("QosAclHelper::checkKernelCoppEntryExists");
   return false;
}

void QosAclHelper::createDefaultCoppRates() {
   baseCallIs("QosAclHelper::createDefaultCoppRates");
}

bool QosAclHelper::createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::createAndAttachPolicer");
   return true;
}

void QosAclHelper::destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::destroyPolicer");
}

bool QosAclHelper::createAndAttachCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::createAndAttachCoppPolicer");
   return true;
}

void QosAclHelper::destroyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::destroyCoppPolicer");
}

bool QosAclHelper::createCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const&) {
   baseCallIs("QosAclHelper::createCoppPolicerByPortQueue");
   return true;
}

void QosAclHelper::destroyCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const&) {
   baseCallIs("QosAclHelper::destroyCoppPolicerByPortQueue");
}

Oskel::QosClassCounterData QosAclHelper::counterUpdateRequest(Kiv::Ptr<Oskel::QosClassData> const&,
                                                              Oskel::AclKey const&) {
   baseCallIs("QosAclHelper::counterUpdateRequest");
   return Oskel::QosClassCounterData();
}

void QosAclHelper::hwInit() {
   baseCallIs("QosAclHelper::hwInit");
   if (!tcamGroupManager_) {
      return;
   }
   policyQosIpEntryMgr_ = tcamGroupManager_->entryMgr(policyQosIpGroupId);
   egrPolicyQosIpEntryMgr_ = tcamGroupManager_->entryMgr(egrPolicyQosIpGroupId);
   policyQosIp6EntryMgr_ = tcamGroupManager_->entryMgr(policyQosIp6GroupId);
   policyQosSviIpEntryMgr_ = tcamGroupManager_->entryMgr(policyQosSviIpGroupId);
   policyQosSviIp6EntryMgr_ = tcamGroupManager_->entryMgr(policyQosSviIp6GroupId);
}

void QosAclHelper::verifyPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::verifyPolicer");
}

void QosAclHelper::setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const&,
                                 Kiv::Ptr<Oskel::QosClassData> const&, Qos::ClassMapMatchOption,
                                 Oskel::AclKey const&, U32, U64 const&) {
   baseCallIs("QosAclHelper::setEntryPorts");
}

void QosAclHelper::compressAllGroups() {
   baseCallIs("QosAclHelper::compressAllGroups");
}

void QosAclHelper::verifyRulePortsForUnit(Kiv::Ptr<Oskel::QosPolicyMapState> const&,
                                          Kiv::Ptr<Oskel::QosClassData> const&,
                                          Qos::ClassMapMatchOption, Oskel::AclKey const&, U32, U32,
                                          U32, U32, U32, Acl::Action) {
   baseCallIs("QosAclHelper::verifyRulePortsForUnit");
}

Kiv::String QosAclHelper::cpuQIdToClassMapName(U32 cpuQId) {
   if (!mmuSm_) {
      return "";
   }
   Kiv::Ptr<MmuCpuQ> cpuQ = mmuSm_->cpuQColl()->cpuQ(cpuQId);
   if (!cpuQ) {
      return "";
   }
   return cpuQ->cmapName().empty() ? cpuQ->name() : cpuQ->cmapName();
}

Kiv::String QosAclHelper::portToIntfName(U32 modId, U32 port) {
   if (!scsd_ || modId > ModId::null || port > NimbalTypes::NimbalPort::defaultPort) {
      return "";
   }
   std::optional<U16> unit = scsd_->nimbalModIdToUnitCol().value(static_cast<U16>(modId));
   if (!unit) {
      return "";
   }
   NimbalTypes::NimbalPort const sp(static_cast<U16>(modId), *unit, static_cast<U16>(port));
   Orvik::IntfId intf = scsd_->nimbalPortToIntf(sp);
   if (intf.empty()) {
      intf = scsd_->nimbalFabricPortToIntf(sp);
   }
   return intf.stringValue();
}

void QosAclHelper::verifyPolicerActions(U32, U32, Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosAclHelper::verifyPolicerActions");
}

Kiv::String QosAclHelper::getAclDesc(Oskel::AclKey const& aclKey,
                                     Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                     U32 seqNo) const {
   Kiv::String desc;
   if (pmapState) {
      desc = pmapState->name() + "/";
   }
   return desc + aclKey.aclName() + " seq " + std::to_string(seqNo);
}

}  // namespace Nimbal
