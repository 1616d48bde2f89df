#include "Nimbal/QosTcamAclHelper.h"

namespace Nimbal {

QosTcamAclHelper::QosTcamAclHelper(
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
    Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus)
    : QosAclHelper(qosStatus, qosAclSliceHwStatus, mainAclConfig, mmuSm, scsd, tcamGroupManager,
                   pktDrv, aclHwStatus, vlanTopoSliceStatus, scMiscConfig, routingStatus,
                   vxlanSliceConfig, unit, qosAclHwStatus) {}

QosTcamAclHelper::~QosTcamAclHelper() = default;

bool QosTcamAclHelper::createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosTcamAclHelper::createAndAttachPolicer");
   return true;
}

void QosTcamAclHelper::destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosTcamAclHelper::destroyPolicer");
}

Oskel::QosClassCounterData QosTcamAclHelper::counterUpdateRequest(
    Kiv::Ptr<Oskel::QosClassData> const&, Oskel::AclKey const&) {
   baseCallIs("QosTcamAclHelper::counterUpdateRequest");
   return Oskel::QosClassCounterData();
}

void QosTcamAclHelper::hwInit() {
   baseCallIs("QosTcamAclHelper::hwInit");
   QosAclHelper::hwInit();
}

void QosTcamAclHelper::setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const&,
                                     Kiv::Ptr<Oskel::QosClassData> const&, Qos::ClassMapMatchOption,
                                     Oskel::AclKey const&, U32, U64 const&) {
   baseCallIs("QosTcamAclHelper::setEntryPorts");
}

U32 QosTcamAclHelper::getFeatureGroupType(Kiv::Ptr<Oskel::AclData> const&,
                                          Kiv::Ptr<Oskel::QosClassData> const&) {
   baseCallIs("QosTcamAclHelper::getFeatureGroupType");
   return 7;
}

Kiv::Ptr<NimbalTcam::RequestConfig> QosTcamAclHelper::requestConfig(
    Oskel::QosClassDataKey const& classKey, Oskel::AclKey const& aclKey, U32 unit) const {
   Kiv::Ptr<NimbalTcam::ClassRequestTable> classTable = classRequestTable(classKey);
   if (!classTable) {
      return nullptr;
   }
   Kiv::Ptr<NimbalTcam::AclRequestTable> aclTable = classTable->aclRequestTable(aclKey);
   if (!aclTable) {
      return nullptr;
   }
   return aclTable->requestConfig(unit);
}

void QosTcamAclHelper::requestConfigIs(Oskel::QosClassDataKey const& classKey,
                                       Oskel::AclKey const& aclKey, U32 unit,
                                       Kiv::Ptr<NimbalTcam::RequestConfig> const& config) {
   classRequestTableIs(classKey)->aclRequestTableIs(aclKey)->requestConfigIs(unit, config);
}

}  // namespace Nimbal
