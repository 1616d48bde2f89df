#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Acl/Config.h"
#include "Kiv/Collection.h"
#include "Nimbal/MmuConfigSm.h"
#include "Nimbal/NimbalCommonSmData.h"
#include "Nimbal/PktDrv.h"
#include "Nimbal/TcamGroupManager.h"
#include "NimbalCentral/Status.h"
#include "NimbalL3/RoutingStatus.h"
#include "NimbalVlanTopo/VlanTopoSliceStatus.h"
#include "Oskel/AclTypes.h"
#include "Oskel/ModIdPortQueueKey.h"
#include "Oskel/QosClassCounterData.h"
#include "Oskel/QosClassData.h"
#include "Qos/Status.h"

namespace Nimbal {

// Key of the base helper's per-ACL-type state machines of policy maps.
class PmapAclTypeKey {
  public:
   PmapAclTypeKey() = default;
   PmapAclTypeKey(U32 aclType, U32 pmapType, bool egress)
       : aclType_(aclType), pmapType_(pmapType), egress_(egress) {}
   U32 aclType() const { return aclType_; }
   U32 pmapType() const { return pmapType_; }
   bool egress() const { return egress_; }
   bool operator==(PmapAclTypeKey const& o) const = default;
   bool operator<(PmapAclTypeKey const& o) const {
      return std::tie(aclType_, pmapType_, egress_) < std::tie(o.aclType_, o.pmapType_, o.egress_);
   }

  private:
   U32 aclType_ = 0;
   U32 pmapType_ = 0;
   bool egress_ = false;
};

// The agent's QoS ACL helper: turns policy maps into field entries. Subclasses add what a
// platform needs; this class's own implementations of the virtual operations are the
// agent's generic ones (they are recorded in baseCalls() so that dispatch can be observed).
class QosAclHelper : public Kiv::Entity {
  public:
   QosAclHelper(Kiv::Ptr<Qos::Status const> const& qosStatus,
                Kiv::Ptr<Qos::AclSliceHwStatus> const& qosAclSliceHwStatus,
                Kiv::Ptr<Acl::Config const> const& mainAclConfig,
                Kiv::Ptr<MmuConfigSm> const& mmuSm, Kiv::Ptr<NimbalCommonSmData> const& scsd,
                Kiv::Ptr<NimbalTcamGroupManager> const& tcamGroupManager,
                Kiv::Ptr<PktDrv> const& pktDrv,
                Kiv::Ptr<NimbalCentral::AclHwStatus const> const& aclHwStatus,
                Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> const& vlanTopoSliceStatus,
                Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> const& scMiscConfig,
                Kiv::Ptr<NimbalL3::RoutingStatus const> const& routingStatus,
                Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> const& vxlanSliceConfig, U32 unit,
                Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus);
   ~QosAclHelper() override;

   Kiv::Ptr<Qos::Status const> qosStatus() const { return qosStatus_; }
   Kiv::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus() const { return qosAclSliceHwStatus_; }
   Kiv::Ptr<Acl::Config const> mainAclConfig() const { return mainAclConfig_; }
   Kiv::Ptr<MmuConfigSm> const& mmuSm() const { return mmuSm_; }
   Kiv::Ptr<NimbalCommonSmData> const& scsd() const { return scsd_; }
   Kiv::Ptr<NimbalTcamGroupManager> const& tcamGroupManager() const { return tcamGroupManager_; }
   Kiv::Ptr<PktDrv> const& pktDrv() const { return pktDrv_; }
   Kiv::Ptr<NimbalCentral::AclHwStatus const> aclHwStatus() const { return aclHwStatus_; }
   Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> vlanTopoSliceStatus() const {
      return vlanTopoSliceStatus_;
   }
   Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> scMiscConfig() const { return scMiscConfig_; }
   Kiv::Ptr<NimbalL3::RoutingStatus const> routingStatus() const { return routingStatus_; }
   Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> vxlanSliceConfig() const {
      return vxlanSliceConfig_;
   }
   U32 unit() const { return unit_; }
   Kiv::Ptr<Qos::AclHwStatus const> qosAclHwStatus() const { return qosAclHwStatus_; }

   Kiv::Ptr<NimbalTcamEntryManager> policyQosIpEntryMgr() const { return policyQosIpEntryMgr_; }
   Kiv::Ptr<NimbalTcamEntryManager> egrPolicyQosIpEntryMgr() const {
      return egrPolicyQosIpEntryMgr_;
   }
   Kiv::Ptr<NimbalTcamEntryManager> policyQosIp6EntryMgr() const { return policyQosIp6EntryMgr_; }
   Kiv::Ptr<NimbalTcamEntryManager> policyQosSviIpEntryMgr() const {
      return policyQosSviIpEntryMgr_;
   }
   Kiv::Ptr<NimbalTcamEntryManager> policyQosSviIp6EntryMgr() const {
      return policyQosSviIp6EntryMgr_;
   }

   KIV_ORDERED_MAP(PmapAclTypeKey, Kiv::Ptr<NimbalTcamEntryManager>, pmapAclTypeSm)
   KIV_VALUE_MAP(Kiv::Name, Kiv::Ptr<Oskel::QosPolicyMapState>, pmapState)
   KIV_VALUE_MAP(Oskel::QosClassDataKey, Kiv::Ptr<Oskel::QosClassData>, qosClassData)

  public:
   // The operations that platform helpers override.
   virtual void precreateAcl(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                             Kiv::Ptr<Oskel::QosClassData> const& classData,
                             Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey,
                             U32 aclType);
   virtual S32 coppAllocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual void coppDeallocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual bool checkUserCoppEntryExists(Oskel::ModIdPortQueueKey const& key);
   virtual bool checkKernelCoppEntryExists(Oskel::ModIdPortQueueKey const& key);
   virtual void createDefaultCoppRates();
   virtual bool createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual void destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual bool createAndAttachCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual void destroyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual bool createCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key);
   virtual void destroyCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key);
   virtual Oskel::QosClassCounterData counterUpdateRequest(
       Kiv::Ptr<Oskel::QosClassData> const& classData, Oskel::AclKey const& aclKey);
   virtual void hwInit();
   virtual void verifyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData);
   virtual void setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                              Kiv::Ptr<Oskel::QosClassData> const& classData,
                              Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey,
                              U32 unit, U64 const& entry);
   virtual void compressAllGroups();
   virtual void verifyRulePortsForUnit(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                       Kiv::Ptr<Oskel::QosClassData> const& classData,
                                       Qos::ClassMapMatchOption matchOption,
                                       Oskel::AclKey const& aclKey, U32 unit, U32 entry, U32 seqNo,
                                       U32 aclType, U32 groupId, Acl::Action action);
   // Names for messages: the class map that holds a CPU queue (the queue's display name when
   // none does), and the interface of a chip port (empty when the port is unknown).
   virtual Kiv::String cpuQIdToClassMapName(U32 cpuQId);
   virtual Kiv::String portToIntfName(U32 modId, U32 port);

   // Checks the actions of a programmed policy entry against its class.
   void verifyPolicerActions(U32 unit, U32 entry, Kiv::Ptr<Oskel::QosClassData> const& classData);
   // A rule as an operator names it: "<policy map>/<ACL> seq <sequence number>".
   Kiv::String getAclDesc(Oskel::AclKey const& aclKey,
                          Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState, U32 seqNo) const;

   // The agent's generic implementations that ran, by name, in order.
   std::vector<std::string> const& baseCalls() const { return baseCalls_; }
   void baseCallsDelAll() { baseCalls_.clear(); }

  protected:
   void baseCallIs(std::string call) { baseCalls_.push_back(std::move(call)); }

  private:
   Kiv::Ptr<Qos::Status const> qosStatus_;
   Kiv::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus_;
   Kiv::Ptr<Acl::Config const> mainAclConfig_;
   Kiv::Ptr<MmuConfigSm> mmuSm_;
   Kiv::Ptr<NimbalCommonSmData> scsd_;
   Kiv::Ptr<NimbalTcamGroupManager> tcamGroupManager_;
   Kiv::Ptr<PktDrv> pktDrv_;
   Kiv::Ptr<NimbalCentral::AclHwStatus const> aclHwStatus_;
   Kiv::Ptr<NimbalVlanTopo::VlanTopoSliceStatus> vlanTopoSliceStatus_;
   Kiv::Ptr<NimbalCentral::NimbalMiscConfig const> scMiscConfig_;
   Kiv::Ptr<NimbalL3::RoutingStatus const> routingStatus_;
   Kiv::Ptr<NimbalCentral::VxlanSliceConfig const> vxlanSliceConfig_;
   U32 unit_;
   Kiv::Ptr<Qos::AclHwStatus const> qosAclHwStatus_;
   Kiv::Ptr<NimbalTcamEntryManager> policyQosIpEntryMgr_;
   Kiv::Ptr<NimbalTcamEntryManager> egrPolicyQosIpEntryMgr_;
   Kiv::Ptr<NimbalTcamEntryManager> policyQosIp6EntryMgr_;
   Kiv::Ptr<NimbalTcamEntryManager> policyQosSviIpEntryMgr_;
   Kiv::Ptr<NimbalTcamEntryManager> policyQosSviIp6EntryMgr_;
   std::vector<std::string> baseCalls_;
};

// Field-processor groups of the agent's QoS entries.
inline constexpr U32 policyQosIpGroupId = 30;
inline constexpr U32 egrPolicyQosIpGroupId = 31;
inline constexpr U32 policyQosIp6GroupId = 32;
inline constexpr U32 policyQosSviIpGroupId = 35;
inline constexpr U32 policyQosSviIp6GroupId = 36;

}  // namespace Nimbal
