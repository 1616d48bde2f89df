#include "NimbalQos/NimbalQosTcamProtectionHelper.h"

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

// Built with the TCAM agent's interface groups; the TCAM base's behaviour meanwhile.
void QosTcamAclHelperV1::setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                       Kiv::Ptr<Oskel::QosClassData> const& classData,
                                       Qos::ClassMapMatchOption matchOption,
                                       Oskel::AclKey const& aclKey, U32 unit, U64 const& entry) {
   QosTcamAclHelper::setEntryPorts(pmapState, classData, matchOption, aclKey, unit, entry);
}

// Built with the CoPP feature groups; the TCAM base's behaviour meanwhile.
U32 QosTcamAclHelperV1::getFeatureGroupType(Kiv::Ptr<Oskel::AclData> const& aclData,
                                            Kiv::Ptr<Oskel::QosClassData> const& classData) {
   return QosTcamAclHelper::getFeatureGroupType(aclData, classData);
}

}  // namespace Nimbal
