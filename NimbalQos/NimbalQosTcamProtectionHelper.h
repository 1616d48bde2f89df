#pragma once

#include "Nimbal/QosTcamAclHelper.h"
#include "NimbalQos/NimbalQosExport.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"

namespace Nimbal {

// The helper used when policy ACLs are programmed through the TCAM agent. Both bases share
// one QosAclHelper; CoPP comes from QosAclHelperV1, policy ACLs from QosTcamAclHelper.
class NIMBAL_QOS_EXPORT QosTcamAclHelperV1 : public QosTcamAclHelper, public QosAclHelperV1 {
  public:
   QosTcamAclHelperV1(Kiv::Ptr<Qos::Status const> const& qosStatus,
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
                      U32 unit, Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus,
                      Kiv::Ptr<Oskel::KernelCoPPConfig> const& kernelCoppConfig);
   ~QosTcamAclHelperV1() override;

   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   // Slots that both bases fill: the TCAM agent's policy handling wins.
   bool createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   void destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   Oskel::QosClassCounterData counterUpdateRequest(Kiv::Ptr<Oskel::QosClassData> const& classData,
                                                   Oskel::AclKey const& aclKey) override;
   void hwInit() override;

   // The TCAM agent's feature groups of CoPP ACLs, IPv4 and IPv6.
   static constexpr U32 coppIpFeatureGroupType = 92;
   static constexpr U32 coppIp6FeatureGroupType = 93;

   // The variant's own operations. setEntryPorts widens the entry's TCAM-agent request to every
   // Ethernet, CPU and loopback interface before the TCAM base handles it; CoPP ACLs get their
   // own feature groups.
   void setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                      Kiv::Ptr<Oskel::QosClassData> const& classData,
                      Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey, U32 unit,
                      U64 const& entry) override;
   U32 getFeatureGroupType(Kiv::Ptr<Oskel::AclData> const& aclData,
                           Kiv::Ptr<Oskel::QosClassData> const& classData) override;
};

}  // namespace Nimbal
