#pragma once

#include "Nimbal/QosAclHelper.h"
#include "NimbalTcam/RequestConfig.h"

namespace Nimbal {

// The agent's helper for policy ACLs programmed through the TCAM agent: instead of writing
// field entries it fills TCAM-agent requests.
class QosTcamAclHelper : public virtual QosAclHelper {
  public:
   QosTcamAclHelper(Kiv::Ptr<Qos::Status const> const& qosStatus,
                    Kiv::Ptr<Qos::AclSliceHwStatus> const& qosAclSliceHwStatus,
                    Kiv::Ptr<Acl::Config const> const& mainAclConfig,
                    Kiv::Ptr<MmuConfigSm> const& mmuSm, Kiv::Ptr<NimbalCommonSmData> const& scsd,
                    Kiv::Ptr<NimbalTcamGroupManager> const& tcamGroupManager,
                    Kiv::Ptr<PktDrv> const& pktDrv,
                    Kiv::Ptr<NimbalCentral::AclHwStatus const> const& aclHwStatus,
                    Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> const& vlanTopoSliceStatus,
                    Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> const& scMiscConfig,
                    Kiv::Ptr<NimbalL3::RoutingStatus const> const& routingStatus,
                    Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> const& vxlanSliceConfig,
                    U32 unit, Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus);
   ~QosTcamAclHelper() override;

   bool createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   void destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   Oskel::QosClassCounterData counterUpdateRequest(Kiv::Ptr<Oskel::QosClassData> const& classData,
                                                   Oskel::AclKey const& aclKey) override;
   void hwInit() override;
   void setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                      Kiv::Ptr<Oskel::QosClassData> const& classData,
                      Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey, U32 unit,
                      U64 const& entry) override;

   // The TCAM agent's feature group of an ACL.
   virtual U32 getFeatureGroupType(Kiv::Ptr<Oskel::AclData> const& aclData,
                                   Kiv::Ptr<Oskel::QosClassData> const& classData);

   // The requests made for the TCAM agent: class key, then ACL key, then unit.
   KIV_RECORD_COLLECTION(Oskel::QosClassDataKey, NimbalTcam::ClassRequestTable, classRequestTable)

  public:
   // The request of one entry, or null when any level of the tables lacks it.
   Kiv::Ptr<NimbalTcam::RequestConfig> requestConfig(Oskel::QosClassDataKey const& classKey,
                                                     Oskel::AclKey const& aclKey, U32 unit) const;
   // Files a request, creating the levels of the tables as needed.
   void requestConfigIs(Oskel::QosClassDataKey const& classKey, Oskel::AclKey const& aclKey,
                        U32 unit, Kiv::Ptr<NimbalTcam::RequestConfig> const& config);
};

}  // namespace Nimbal
