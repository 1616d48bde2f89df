#include "NimbalQos/NimbalQosTcamProtectionHelper.h"

#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosSharedHelper.h"

namespace Nimbal {

QosTcamAclHelperV1::QosTcamAclHelperV1(
    Kiv::Ptr<Qos::Status const> const& qosStatus,
    Kiv::Ptr<Qos::AclSliceHwStatus> const& qosAclSliceHwStatus,
    Kiv::Ptr<Acl::Config const> const& mainAclConfig, Kiv::Ptr<MmuConfigSm> const& mmuSm,
    Kiv::Ptr<NimbalCommonSmData> const& scsd,
    Kiv::Ptr<NimbalTcamGroupManager> const& tcamGroupManager, Kiv::Ptr<PktDrv> const& pktDrv,
    Kiv::Ptr<NimbalCentral::AclHwStatus const> const& aclHwStatus,
    Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> const& vlanTopoSliceStatus,
    Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> const& scMiscConfig,
    Kiv::Ptr<NimbalL3::RoutingStatus const> const& routingStatus,
    Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> const& vxlanSliceConfig, U32 unit,
    Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus,
    Kiv::Ptr<Oskel::KernelCoPPConfig> const& kernelCoppConfig)
    : QosAclHelper(qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager,
                   pktDrv, aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus,
                   vxlanSliceConfig, unit, qosAclHwStatus),
      QosTcamAclHelper(qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager,
                       pktDrv, aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus,
                       vxlanSliceConfig, unit, qosAclHwStatus),
      QosAclHelperV1(qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager,
                     pktDrv, aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus,
                     vxlanSliceConfig, unit, qosAclHwStatus, kernelCoppConfig) {}

QosTcamAclHelperV1::~QosTcamAclHelperV1() = default;

Kiv::TypeDesc const* QosTcamAclHelperV1::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* QosTcamAclHelperV1::fwkTypeDesc() {
   // Everything reachable by name is QosAclHelperV1's.
   static Kiv::TypeDesc const desc("Nimbal::QosTcamAclHelperV1", QosAclHelperV1::fwkTypeDesc());
   return &desc;
}

bool QosTcamAclHelperV1::createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   return QosTcamAclHelper::createAndAttachPolicer(classData);
}

void QosTcamAclHelperV1::destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   QosTcamAclHelper::destroyPolicer(classData);
}

Oskel::QosClassCounterData QosTcamAclHelperV1::counterUpdateRequest(
    Kiv::Ptr<Oskel::QosClassData> const& classData, Oskel::AclKey const& aclKey) {
   return QosTcamAclHelper::counterUpdateRequest(classData, aclKey);
}

void QosTcamAclHelperV1::hwInit() {
   QosTcamAclHelper::hwInit();
}

void QosTcamAclHelperV1::setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                       Kiv::Ptr<Oskel::QosClassData> const& classData,
                                       Qos::ClassMapMatchOption matchOption,
                                       Oskel::AclKey const& aclKey, U32 unit, U64 const& entry) {
   // Only the factory builds this class, and only with the toggle on.
   KIV_ASSERT(toggleUseTcamAgentForPolicyQosEnabled());
   KIV_TRACE(tcamDefaultTraceHandle(), 4,
             "QosTcamAclHelperV1"
                 << "( " << classData->key() << " )::"
                 << "setEntryPorts"
                 << "( " << static_cast<U32>(matchOption) << "," << aclKey.aclType() << " )");
   // The base filed the request when it created the entry: a missing level is our bug.
   Kiv::Ptr<NimbalTcam::ClassRequestTable> classRequestTable =
       QosTcamAclHelper::classRequestTable(classData->key());
   KIV_ASSERT(classRequestTable);
   Kiv::Ptr<NimbalTcam::AclRequestTable> aclRequestTable =
       classRequestTable->aclRequestTable(aclKey);
   KIV_ASSERT(aclRequestTable);
   Kiv::Ptr<NimbalTcam::RequestConfig> requestConfig = aclRequestTable->requestConfig(unit);
   KIV_ASSERT_MSG(requestConfig, "RequestConfig is NULL");
   KIV_ASSERT(requestConfig->intfGroup());
   // Policy entries apply to every Ethernet interface, and to the CPU and loopback ports that
   // the Ethernet set leaves out.
   Kiv::Ptr<NimbalTcam::IntfGroup> intfGroup = requestConfig->intfGroup();
   intfGroup->ethernetIs(true);
   for (auto const& portIntf : scsd()->nimbalCpuPortToIntfCol()) {
      intfGroup->intfIs(portIntf.second);
   }
   for (auto const& portIntf : scsd()->nimbalPortToLoopbackIntfCol()) {
      intfGroup->intfIs(portIntf.second);
   }
   QosTcamAclHelper::setEntryPorts(pmapState, classData, matchOption, aclKey, unit, entry);
}

U32 QosTcamAclHelperV1::getFeatureGroupType(Kiv::Ptr<Oskel::AclData> const& aclData,
                                            Kiv::Ptr<Oskel::QosClassData> const& classData) {
   if (classData->key().pmapType() == Qos::mapControlPlane_) {
      // The IPv4 and IPv6 CoPP groups of policyCoppIpEntryMgr and policyCoppIp6EntryMgr.
      return aclData->aclType() == 0 ? coppIpFeatureGroupType : coppIp6FeatureGroupType;
   }
   return QosTcamAclHelper::getFeatureGroupType(aclData, classData);
}

}  // namespace Nimbal
