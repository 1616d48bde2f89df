#pragma once

#include "Kiv/Collection.h"
#include "Nimbal/NimbalQosPolicerHwData.h"
#include "Nimbal/QosAclHelper.h"
#include "Nimbal/TcamEntryManager.h"
#include "Nimbal/TcamGroupManager.h"
#include "NimbalQos/NimbalQosCoppState.h"
#include "NimbalQos/NimbalQosExport.h"
#include "NimbalQos/NimbalQosIntfCoppSm.h"
#include "NimbalTypes/NimbalPort.h"
#include "Orvik/IntfId.h"
#include "Oskel/KernelCoPPConfig.h"
#include "Oskel/ModIdPortQueueKey.h"
#include "Oskel/QosClassCounterData.h"

namespace Nimbal {

// The QoS ACL helper of this platform: the agent's helper plus Control-Plane Policing.
class NIMBAL_QOS_EXPORT QosAclHelperV1 : public virtual QosAclHelper {
  public:
   QosAclHelperV1(Kiv::Ptr<Qos::Status const> const& qosStatus,
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
                  Kiv::Ptr<Qos::AclHwStatus const> const& qosAclHwStatus,
                  Kiv::Ptr<Oskel::KernelCoPPConfig> const& kernelCoppConfig);
   ~QosAclHelperV1() override;

   Kiv::TypeDesc const* fwkType() const override;
   static Kiv::TypeDesc const* fwkTypeDesc();

   // Lifecycle and the handles the agent hands over.
   void hwInit() override;
   void initEfpCoppDefault();
   Kiv::Ptr<Oskel::KernelCoPPConfig> const& kernelCoppConfig() const { return kernelCoppConfig_; }
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& policyCoppIpEntryMgr() const {
      return policyCoppIpEntryMgr_;
   }
   void policyCoppIpEntryMgrIs(Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& entryMgr);
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& policyCoppIp6EntryMgr() const {
      return policyCoppIp6EntryMgr_;
   }
   void policyCoppIp6EntryMgrIs(Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& entryMgr);
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& efpCoppEntryMgr() const {
      return efpCoppEntryMgr_;
   }
   void efpCoppEntryMgrIs(Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& entryMgr);
   Kiv::Ptr<NimbalBoundedTcamEntryManager> const& efpCoppDefAndVxlanEntryMgr() const {
      return efpCoppDefAndVxlanEntryMgr_;
   }
   void efpCoppDefAndVxlanEntryMgrIs(Kiv::Ptr<NimbalBoundedTcamEntryManager> const& entryMgr);
   Kiv::Ptr<QosIntfCoppSm> qosIntfCoppSm() const { return qosIntfCoppSm_; }
   Kiv::Ptr<QosIntfCoppSm> qosIntfCoppSmIs(Kiv::Ptr<NimbalCommonSmData const> const& scsd,
                                           QosAclHelperV1* qosAclHelper);
   Kiv::Ptr<QosIntfCoppSm> qosIntfCoppSmDel();
   bool createCoppPolicerAlwaysFalse() const { return createCoppPolicerAlwaysFalse_; }
   void createCoppPolicerAlwaysFalseIs(bool createCoppPolicerAlwaysFalse);

   // CPU queue allocation for CoPP classes.
   S32 coppAllocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   void coppDeallocateCpuQ(Kiv::Ptr<Oskel::QosClassData> const& classData) override;

   // Class CoPP policers.
   bool createAndAttachPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   void destroyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   bool createAndAttachCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   void destroyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   bool checkUserCoppEntryExists(Oskel::ModIdPortQueueKey const& key) override;
   bool checkKernelCoppEntryExists(Oskel::ModIdPortQueueKey const& key) override;

   // Port-queue and kernel CoPP policers.
   bool createCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) override;
   void destroyCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key) override;

   // Default CoPP rates and per-port default policers.
   void createDefaultCoppRates() override;
   void updatePortDefaultCoppPolicer(NimbalTypes::NimbalPort port);

   // The VXLAN CoPP entry pool.
   U32 allocateCoppVxlanDynEntry();
   void freeCoppVxlanEntry(U32 entry);

   // VXLAN CoPP programming.
   bool vxlanCoppSrcPortWorkAroundNeeded();
   void syncCoppVxlanEntries(bool retry);
   bool syncCoppVxlanDefaultPolicer(bool retry);
   bool createCoppVxlanSrcPortPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key);
   void destoryCoppVxlanSrcPortPolicerByPortQueue(Oskel::ModIdPortQueueKey const& key);
   void updateIntfCoppOnVxlanRecircIntfEnabled(Orvik::IntfId intf, bool enabled);

   // CoPP counters.
   Oskel::QosClassCounterData coppCounterUpdateRequest(
       Kiv::Ptr<Oskel::QosClassData> const& classData);
   U64 getPortDefaultCoppPolicerPktHits(U16 unit, Orvik::IntfId intfId);
   U64 getIntfQueueCoppPolicerPktHits(NimbalTypes::NimbalPort const& port, U32 queue);
   void updateCoppIntfCounterByPortQueue(Oskel::ModIdPortQueueKey const& key);
   void clearCoppIntfSwCounterByPortQueue(Oskel::ModIdPortQueueKey const& key, bool clearSwCfgOnly);
   void clearPortDefaultCoppPolicerPktHits(U16 unit, Orvik::IntfId intfId);
   void clearIntfQueueCoppPolicerPktHits(NimbalTypes::NimbalPort const& port, U32 queue);
   void clearIntfCoppCounters();
   void showCpuIntfCoppQueueCounters(U32 unit);

   // CoPP counter display.
   void showCoppIntfCountersHw(U32 socket);
   void showCoppIntfCountersSw(U32 socket);

   // CoPP policer verification.
   void verifyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) override;
   void verifyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData);
   void verifyCoppPerPortDefaultPolicer();
   void verifyCoppPolicerData(U16 unit, U32 entry, U32 expPolicerId, U32 expCir, U32 expBc);

   // Policy ACL entry ports, group maintenance and dispatch.
   void precreateAcl(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                     Kiv::Ptr<Oskel::QosClassData> const& classData,
                     Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey,
                     U32 aclType) override;
   void setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                      Kiv::Ptr<Oskel::QosClassData> const& classData,
                      Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey, U32 unit,
                      U64 const& entry) override;
   void compressAllGroups() override;
   Oskel::QosClassCounterData counterUpdateRequest(Kiv::Ptr<Oskel::QosClassData> const& classData,
                                                   Oskel::AclKey const& aclKey) override;
   void verifyRulePortsForUnit(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                               Kiv::Ptr<Oskel::QosClassData> const& classData,
                               Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey,
                               U32 unit, U32 entry, U32 seqNo, U32 aclType, U32 groupId,
                               Acl::Action action) override;

  private:
   Kiv::Ptr<Oskel::KernelCoPPConfig> kernelCoppConfig_;
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> policyCoppIpEntryMgr_;
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> policyCoppIp6EntryMgr_;
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> efpCoppEntryMgr_;
   Kiv::Ptr<NimbalBoundedTcamEntryManager> efpCoppDefAndVxlanEntryMgr_;

  public:
   // CoPP state; the collections notify the helper's observers under their names.
   KIV_VALUE_MAP(Orvik::IntfId, NimbalQosPolicerHwData, portDefaultCoppPolicerHwData)
   KIV_RECORD_COLLECTION(Orvik::IntfId, NimbalQosCoppIntfPolicerData, coppIntfPolicerData)
   // A port's queues come and go together: one block of slots a port, walked in key order.
   KIV_GROUPED_RECORD_COLLECTION(Oskel::ModIdPortQueueKey, NimbalQosKernelDynamicCoppData,
                                 kernelDynamicCoppData)
   KIV_GROUPED_RECORD_COLLECTION(Oskel::ModIdPortQueueKey, NimbalQosKernelDynamicCoppData,
                                 kernelDynamicCoppVxlanData)
   KIV_VALUE_MAP(Orvik::IntfId, NimbalQosPolicerHwData, portDefaultCoppPolicerVxlanHwData)
   KIV_ORDERED_MAP(U32, bool, coppVxlanDynEntryInUse)

  public:
   // Offsets in efpCoppDefAndVxlanEntryMgr, relative to its base index. The VXLAN default
   // entries start right where the dynamic range ends.
   static constexpr U32 coppVxlanDynEntryOffset = 0x100;
   static constexpr U32 coppVxlanDynEntryMax = 0x300;
   static constexpr U32 coppVxlanDefaultOffset = 0x300;
   static constexpr U32 coppVxlanDynEntryInvalid = 0xFFFFFFFF;

   KIV_RECORD_COLLECTION(Oskel::ModIdPortQueueKey, NimbalQosKernelDynamicCoppData, userCoppData)
   KIV_VALUE_MAP(Oskel::ModIdPortQueueKey, Oskel::QosClassCounterData, lastClearCoppSwCounter)
   KIV_VALUE_MAP(Oskel::ModIdPortQueueKey, Oskel::QosClassCounterData, lastClearCoppSwCfgCounter)
   KIV_RECORD_COLLECTION(Orvik::IntfId, NimbalQosCoppIntfCounterData, coppIntfCounterData)

  private:
   Kiv::Ptr<QosIntfCoppSm> qosIntfCoppSm_;
   bool createCoppPolicerAlwaysFalse_;
};

// Writes the qualifiers of a CoPP entry: source port, CPU queue, inner VLAN and the CPU port
// class.
NIMBAL_QOS_EXPORT void setCoppEntryQual(U32 unit, U32 entry, U32 srcPortVal, U32 srcPortMask,
                                        U8 cpuQVal, U8 cpuQMask, U16 innerVlanVal,
                                        U16 innerVlanMask);
// Meters an entry in packets per second and installs it; 0xFFFFFFFF when no meter is left.
NIMBAL_QOS_EXPORT U32 installCoppPolicer(U32 unit, U32 entry, U32 cir, U32 bc,
                                         Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                                         Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr);
// Swaps the meter of an installed entry; returns the new policer.
NIMBAL_QOS_EXPORT U32 updateCoppPolicer(U32 unit, U32 entry, U32 oldPolicer, U32 cir, U32 bc,
                                        Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                                        Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr);
// Detaches and frees the meter, then takes the entry out of hardware and frees it.
NIMBAL_QOS_EXPORT void releaseCoppPolicer(U32 unit, U32 entry, U32 policer,
                                          Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                                          Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr);

// The chip port of an interface, front-panel first, then fabric; the no-port value when the
// interface has none.
NIMBAL_QOS_EXPORT NimbalTypes::NimbalPort getNimbalPortFromIntfId(
    Kiv::Ptr<NimbalCommonSmData const> const& scsd, Orvik::IntfId const& intfId);
// The interface of a chip port, front-panel first, then fabric; the empty interface id when
// no interface has the port.
NIMBAL_QOS_EXPORT Orvik::IntfId getIntfIdFromNimbalPort(
    Kiv::Ptr<NimbalCommonSmData const> const& scsd, NimbalTypes::NimbalPort& port);
// The chip port of a (module id, port, queue) key, on the unit of its module (0 when the
// module is unknown). Throws the range error for a module id above 64, then for a port above
// 1023.
NIMBAL_QOS_EXPORT NimbalTypes::NimbalPort getNimbalPortFromModIdPortQueueKey(
    Kiv::Ptr<NimbalCommonSmData const> const& scsd, Oskel::ModIdPortQueueKey const& key);

}  // namespace Nimbal
