#include "NimbalQos/NimbalQosProtectionHelper.h"

#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "Kiv/Type.h"
#include "NimbalQos/NimbalQosAttributeText.h"
#include "NimbalQos/NimbalQosSdkCall.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "Shim/Sdk.h"

namespace Nimbal {

namespace {

// Field-processor groups of the ingress CoPP entries.
constexpr U32 policyCoppIpGroupId = 34;
constexpr U32 policyCoppIp6GroupId = 38;

template <class T>
Kiv::String entryMgrText(Kiv::Ptr<T> const& entryMgr) {
   return entryMgr ? "group " + std::to_string(entryMgr->groupId()) : "null";
}

}  // namespace

QosAclHelperV1::QosAclHelperV1(
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
      kernelCoppConfig_(kernelCoppConfig),
      policyCoppIpEntryMgr_(nullptr),
      policyCoppIp6EntryMgr_(nullptr),
      efpCoppEntryMgr_(nullptr),
      efpCoppDefAndVxlanEntryMgr_(nullptr),
      qosIntfCoppSm_(nullptr),
      createCoppPolicerAlwaysFalse_(false) {}

QosAclHelperV1::~QosAclHelperV1() {
   // Records go one by one so that their observers see them leave; hardware stays as it is.
   coppIntfPolicerDataDelAll();
   kernelDynamicCoppDataDelAll();
   kernelDynamicCoppVxlanDataDelAll();
   userCoppDataDelAll();
   coppIntfCounterDataDelAll();
   Kiv::Ptr<QosIntfCoppSm> sm = qosIntfCoppSmDel();
   sm = nullptr;
   // The maps of values are dropped whole with the members, in reverse order of declaration,
   // then the entry managers and kernelCoppConfig.
}

Kiv::TypeDesc const* QosAclHelperV1::fwkType() const {
   return fwkTypeDesc();
}

Kiv::TypeDesc const* QosAclHelperV1::fwkTypeDesc() {
   using T = QosAclHelperV1;
   static Kiv::TypeDesc const desc = [] {
      Kiv::TypeDesc d("Nimbal::QosAclHelperV1", Kiv::entityTypeDesc());
      auto readOnly = [&d](char const* name, auto get) {
         d.attributeIs(name,
                       [get](Kiv::Entity const& e) { return get(dynamic_cast<T const&>(e)); });
      };
      readOnly("kernelCoppConfig", [](T const& h) { return attributeText(h.kernelCoppConfig()); });
      readOnly("policyCoppIpEntryMgr",
               [](T const& h) { return entryMgrText(h.policyCoppIpEntryMgr()); });
      readOnly("policyCoppIp6EntryMgr",
               [](T const& h) { return entryMgrText(h.policyCoppIp6EntryMgr()); });
      readOnly("efpCoppEntryMgr", [](T const& h) { return entryMgrText(h.efpCoppEntryMgr()); });
      readOnly("efpCoppDefAndVxlanEntryMgr",
               [](T const& h) { return entryMgrText(h.efpCoppDefAndVxlanEntryMgr()); });
      readOnly("portDefaultCoppPolicerHwData",
               [](T const& h) { return collectionText(h.portDefaultCoppPolicerHwDataCol()); });
      readOnly("coppIntfPolicerData",
               [](T const& h) { return collectionText(h.coppIntfPolicerDataCol()); });
      readOnly("kernelDynamicCoppData",
               [](T const& h) { return collectionText(h.kernelDynamicCoppDataCol()); });
      readOnly("kernelDynamicCoppVxlanData",
               [](T const& h) { return collectionText(h.kernelDynamicCoppVxlanDataCol()); });
      readOnly("portDefaultCoppPolicerVxlanHwData",
               [](T const& h) { return collectionText(h.portDefaultCoppPolicerVxlanHwDataCol()); });
      readOnly("coppVxlanDynEntryInUse",
               [](T const& h) { return collectionText(h.coppVxlanDynEntryInUseCol()); });
      readOnly("coppVxlanDynEntryOffset",
               [](T const&) { return Kiv::toString(U32{T::coppVxlanDynEntryOffset}); });
      readOnly("coppVxlanDynEntryMax",
               [](T const&) { return Kiv::toString(U32{T::coppVxlanDynEntryMax}); });
      readOnly("coppVxlanDefaultOffset",
               [](T const&) { return Kiv::toString(U32{T::coppVxlanDefaultOffset}); });
      readOnly("coppVxlanDynEntryInvalid",
               [](T const&) { return Kiv::toString(U32{T::coppVxlanDynEntryInvalid}); });
      readOnly("userCoppData", [](T const& h) { return collectionText(h.userCoppDataCol()); });
      readOnly("lastClearCoppSwCounter",
               [](T const& h) { return collectionText(h.lastClearCoppSwCounterCol()); });
      readOnly("lastClearCoppSwCfgCounter",
               [](T const& h) { return collectionText(h.lastClearCoppSwCfgCounterCol()); });
      readOnly("coppIntfCounterData",
               [](T const& h) { return collectionText(h.coppIntfCounterDataCol()); });
      readOnly("qosIntfCoppSm", [](T const& h) { return attributeText(h.qosIntfCoppSm()); });
      Kiv::attributeIs<T, bool>(
          d, "createCoppPolicerAlwaysFalse",
          [](T const& h) { return h.createCoppPolicerAlwaysFalse(); },
          [](T& h, bool v) { h.createCoppPolicerAlwaysFalseIs(v); });

      // What the agent's CLI reaches by name.
      Kiv::operationIs<T>(d, "initEfpCoppDefault", 0, [](T& h, std::vector<Kiv::String> const&) {
         h.initEfpCoppDefault();
         return Kiv::String();
      });
      Kiv::operationIs<T>(
          d, "clearPortDefaultCoppPolicerPktHits", 2, [](T& h, std::vector<Kiv::String> const& a) {
             h.clearPortDefaultCoppPolicerPktHits(Kiv::fromString<U16>(a[0]), Orvik::IntfId(a[1]));
             return Kiv::String();
          });
      // The port travels as its module id, unit and logical port.
      Kiv::operationIs<T>(d, "clearIntfQueueCoppPolicerPktHits", 4,
                          [](T& h, std::vector<Kiv::String> const& a) {
                             NimbalTypes::NimbalPort const port(Kiv::fromString<U16>(a[0]),
                                                                Kiv::fromString<U16>(a[1]),
                                                                Kiv::fromString<U16>(a[2]));
                             h.clearIntfQueueCoppPolicerPktHits(port, Kiv::fromString<U32>(a[3]));
                             return Kiv::String();
                          });
      Kiv::operationIs<T>(d, "clearIntfCoppCounters", 0, [](T& h, std::vector<Kiv::String> const&) {
         h.clearIntfCoppCounters();
         return Kiv::String();
      });
      Kiv::operationIs<T>(d, "showCpuIntfCoppQueueCounters", 1,
                          [](T& h, std::vector<Kiv::String> const& a) {
                             h.showCpuIntfCoppQueueCounters(Kiv::fromString<U32>(a[0]));
                             return Kiv::String();
                          });
      // The show tables are written to the descriptor given by number.
      Kiv::operationIs<T>(d, "showCoppIntfCountersHw", 1,
                          [](T& h, std::vector<Kiv::String> const& a) {
                             h.showCoppIntfCountersHw(Kiv::fromString<U32>(a[0]));
                             return Kiv::String();
                          });
      Kiv::operationIs<T>(d, "showCoppIntfCountersSw", 1,
                          [](T& h, std::vector<Kiv::String> const& a) {
                             h.showCoppIntfCountersSw(Kiv::fromString<U32>(a[0]));
                             return Kiv::String();
                          });
      Kiv::operationIs<T>(
          d, "clearCoppIntfSwCounterByPortQueue", 4, [](T& h, std::vector<Kiv::String> const& a) {
             h.clearCoppIntfSwCounterByPortQueue(
                 Oskel::ModIdPortQueueKey(Kiv::fromString<U32>(a[0]), Kiv::fromString<U32>(a[1]),
                                          Kiv::fromString<U32>(a[2])),
                 Kiv::fromString<bool>(a[3]));
             return Kiv::String();
          });
      // Differences go to the agent's verify data, not to the result.
      Kiv::operationIs<T>(d, "verifyCoppPerPortDefaultPolicer", 0,
                          [](T& h, std::vector<Kiv::String> const&) {
                             h.verifyCoppPerPortDefaultPolicer();
                             return Kiv::String();
                          });
      Kiv::operationIs<T>(
          d, "verifyCoppPolicerData", 5, [](T& h, std::vector<Kiv::String> const& a) {
             h.verifyCoppPolicerData(Kiv::fromString<U16>(a[0]), Kiv::fromString<U32>(a[1]),
                                     Kiv::fromString<U32>(a[2]), Kiv::fromString<U32>(a[3]),
                                     Kiv::fromString<U32>(a[4]));
             return Kiv::String();
          });
      // Every CoPP class the base helper holds, in key order so that reports read the same
      // each time, then the per-port defaults.
      Kiv::operationIs<T>(d, "verifyCopp", 0, [](T& h, std::vector<Kiv::String> const&) {
         std::vector<Oskel::QosClassDataKey> keys = h.qosClassDataCol().keys();
         std::sort(keys.begin(), keys.end());
         for (Oskel::QosClassDataKey const& key : keys) {
            Kiv::Ptr<Oskel::QosClassData> const classData = h.qosClassData(key);
            if (classData && key.cmapType() == Qos::mapControlPlane_) {
               h.verifyCoppPolicer(classData);
            }
         }
         h.verifyCoppPerPortDefaultPolicer();
         return Kiv::String();
      });
      return d;
   }();
   return &desc;
}

void QosAclHelperV1::hwInit() {
   KIV_TRACE(defaultTraceHandle(), 1,
             "QosHelperV1::"
                 << "hwInit");
   QosAclHelper::hwInit();

   auto entryMgrOfGroup = [this](U32 groupId) {
      Kiv::Ptr<NimbalTcamGroupManager> const groupMgr = tcamGroupManager();
      return groupMgr ? Kiv::ptr_cast<NimbalUnboundedTcamEntryManager>(groupMgr->entryMgr(groupId))
                      : Kiv::Ptr<NimbalUnboundedTcamEntryManager>();
   };
   policyCoppIpEntryMgrIs(entryMgrOfGroup(policyCoppIpGroupId));
   KIV_ASSERT(policyCoppIpEntryMgr());
   policyCoppIp6EntryMgrIs(entryMgrOfGroup(policyCoppIp6GroupId));
   KIV_ASSERT(policyCoppIp6EntryMgr());

   pmapAclTypeSmIs(PmapAclTypeKey(0, 0, false), policyCoppIpEntryMgr());
   pmapAclTypeSmIs(PmapAclTypeKey(1, 0, false), policyCoppIp6EntryMgr());
}

void QosAclHelperV1::initEfpCoppDefault() {
   // The agent makes the per-port default entries itself on this platform.
}

void QosAclHelperV1::policyCoppIpEntryMgrIs(
    Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& entryMgr) {
   if (entryMgr == policyCoppIpEntryMgr_) {
      return;
   }
   policyCoppIpEntryMgr_ = entryMgr;
   notify("policyCoppIpEntryMgr");
}

void QosAclHelperV1::policyCoppIp6EntryMgrIs(
    Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& entryMgr) {
   if (entryMgr == policyCoppIp6EntryMgr_) {
      return;
   }
   policyCoppIp6EntryMgr_ = entryMgr;
   notify("policyCoppIp6EntryMgr");
}

void QosAclHelperV1::efpCoppEntryMgrIs(Kiv::Ptr<NimbalUnboundedTcamEntryManager> const& entryMgr) {
   if (entryMgr == efpCoppEntryMgr_) {
      return;
   }
   efpCoppEntryMgr_ = entryMgr;
   notify("efpCoppEntryMgr");
}

void QosAclHelperV1::efpCoppDefAndVxlanEntryMgrIs(
    Kiv::Ptr<NimbalBoundedTcamEntryManager> const& entryMgr) {
   if (entryMgr == efpCoppDefAndVxlanEntryMgr_) {
      return;
   }
   efpCoppDefAndVxlanEntryMgr_ = entryMgr;
   notify("efpCoppDefAndVxlanEntryMgr");
}

Kiv::Ptr<QosIntfCoppSm> QosAclHelperV1::qosIntfCoppSmIs(
    Kiv::Ptr<NimbalCommonSmData const> const& scsd, QosAclHelperV1* qosAclHelper) {
   if (qosIntfCoppSm_ && qosIntfCoppSm_->scsd() == scsd &&
       qosIntfCoppSm_->qosAclHelper() == qosAclHelper) {
      return qosIntfCoppSm_;
   }
   Kiv::Ptr<QosIntfCoppSm> const sm = QosIntfCoppSm::QosIntfCoppSmIs(scsd, qosAclHelper);
   qosIntfCoppSm_ = sm;
   notify("qosIntfCoppSm");
   return sm;
}

Kiv::Ptr<QosIntfCoppSm> QosAclHelperV1::qosIntfCoppSmDel() {
   Kiv::Ptr<QosIntfCoppSm> sm = qosIntfCoppSm_;
   qosIntfCoppSm_ = nullptr;
   if (sm) {
      notify("qosIntfCoppSm");
      // The caller's handle is the last one: nobody hears from the machine again.
      sm->hasNotificationActiveIs(false);
   }
   return sm;
}

void QosAclHelperV1::createCoppPolicerAlwaysFalseIs(bool createCoppPolicerAlwaysFalse) {
   if (createCoppPolicerAlwaysFalse == createCoppPolicerAlwaysFalse_) {
      return;
   }
   createCoppPolicerAlwaysFalse_ = createCoppPolicerAlwaysFalse;
   notify("createCoppPolicerAlwaysFalse");
}

namespace {

// The port class bit that marks the CPU port: every CoPP entry matches only packets to the CPU.
constexpr U32 classCpuPort_ = 2;
// Packet-mode, colour-blind meter: rates in packets per second, bursts in packets.
constexpr U32 coppPolicerFlags = 0x84;
constexpr U32 coppPolicerInvalid = 0xFFFFFFFF;

Shim::bcm_policer_config_s coppPolicerConfig(U32 cir, U32 bc) {
   Shim::bcm_policer_config_s config;
   ::Shim::sdk_->bcm_policer_config_t_init(&config);
   config.mode_is(::Shim::sdk_->coppPolicerMode());
   config.flags_or(coppPolicerFlags);
   config.ckbits_sec_is(cir);
   config.ckbits_burst_is(bc);
   config.pkbits_sec_is(0);
   config.pkbits_burst_is(0);
   return config;
}

// Installs with the SDK's code handed back instead of treating a failure as fatal, so that a
// missing meter can be told apart.
int installEntryReturningError(U32 unit, U32 entry,
                               Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                               Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr) {
   KIV_ASSERT(!groupMgr->returnErrorOnInstall());
   groupMgr->returnErrorOnInstallIs(true);
   int const rc = entryMgr->installEntry(unit, entry);
   groupMgr->returnErrorOnInstallIs(false);
   return rc;
}

}  // namespace

void setCoppEntryQual(U32 unit, U32 entry, U32 srcPortVal, U32 srcPortMask, U8 cpuQVal, U8 cpuQMask,
                      U16 innerVlanVal, U16 innerVlanMask) {
   int const u = static_cast<int>(unit);
   int const e = static_cast<int>(entry);
   NIMBAL_SDK_CALL("bcm_field_qualify_InPort( unit, entry, srcPortVal, srcPortMask )",
                   ::Shim::sdk_->bcm_field_qualify_InPort(u, e, static_cast<int>(srcPortVal),
                                                          static_cast<int>(srcPortMask)));
   NIMBAL_SDK_CALL("bcm_field_qualify_CpuQueue( unit, entry, cpuQVal, cpuQMask )",
                   ::Shim::sdk_->bcm_field_qualify_CpuQueue(u, e, cpuQVal, cpuQMask));
   NIMBAL_SDK_CALL("bcm_field_qualify_InnerVlanId( unit, entry, innerVlanVal, innerVlanMask )",
                   ::Shim::sdk_->bcm_field_qualify_InnerVlanId(u, e, innerVlanVal, innerVlanMask));
   NIMBAL_SDK_CALL(
       "bcm_field_qualify_InterfaceClassPort( unit, entry, classCpuPort_, classCpuPort_ )",
       ::Shim::sdk_->bcm_field_qualify_InterfaceClassPort(u, e, classCpuPort_, classCpuPort_));
}

U32 installCoppPolicer(U32 unit, U32 entry, U32 cir, U32 bc,
                       Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                       Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr) {
   Shim::bcm_policer_config_s const config = coppPolicerConfig(cir, bc);
   U32 const policer = groupMgr->createPolicer(unit, config);
   entryMgr->attachPolicer(unit, entry, policer, true);
   NIMBAL_SDK_CALL(
       "bcm_field_action_add( unit, entry, bcmFieldActionRpDrop, 0, 0 )",
       ::Shim::sdk_->bcm_field_action_add(static_cast<int>(unit), static_cast<int>(entry),
                                          ::Shim::bcmFieldActionRpDrop, 0, 0));
   int const rc = installEntryReturningError(unit, entry, groupMgr, entryMgr);
   if (rc == ::Shim::sdk_->QV_BCM_E_RESOURCE()) {
      KIV_TRACE(defaultTraceHandle(), 4,
                "installCoppPolicer"
                    << " : meters exhausted for entry: " << entry << " with policer: " << policer);
      // The entry stays allocated and qualified; only the meter is undone.
      entryMgr->attachPolicer(unit, entry, policer, false);
      groupMgr->removePolicer(unit, policer);
      return coppPolicerInvalid;
   }
   KIV_TRACE(defaultTraceHandle(), 4,
             "installCoppPolicer"
                 << " install entry: " << entry << " create policer: " << policer
                 << " CIR(pps): " << cir << " BC(packet): " << bc);
   return policer;
}

U32 updateCoppPolicer(U32 unit, U32 entry, U32 oldPolicer, U32 cir, U32 bc,
                      Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                      Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr) {
   // A meter cannot be changed in place: the entry runs unmetered while it is swapped.
   Shim::bcm_policer_config_s const config = coppPolicerConfig(cir, bc);
   entryMgr->attachPolicer(unit, entry, 0, false);
   entryMgr->installEntry(unit, entry);
   groupMgr->removePolicer(unit, oldPolicer);
   U32 const newPolicer = groupMgr->createPolicer(unit, config);
   entryMgr->attachPolicer(unit, entry, newPolicer, true);
   int const rc = installEntryReturningError(unit, entry, groupMgr, entryMgr);
   // The old meter went back first, so there is always one for the new.
   KIV_ASSERT(rc != ::Shim::sdk_->QV_BCM_E_RESOURCE() &&
              "Return value for installEntry is BCM_E_RESOURCE");
   return newPolicer;
}

void releaseCoppPolicer(U32 unit, U32 entry, U32 policer,
                        Kiv::Ptr<NimbalTcamGroupManager> const& groupMgr,
                        Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosHelper"
                 << "releaseCoppPolicer"
                 << " entry : " << entry << " policer: " << policer);
   // Detached and re-installed before the meter goes, so hardware never points at a freed one.
   entryMgr->attachPolicer(unit, entry, 0, false);
   int const rc = installEntryReturningError(unit, entry, groupMgr, entryMgr);
   KIV_ASSERT(rc != ::Shim::sdk_->QV_BCM_E_RESOURCE() &&
              "Return value for installEntry is BCM_E_RESOURCE");
   groupMgr->removePolicer(unit, policer);
   NIMBAL_SDK_CALL(
       "bcm_field_entry_remove( unit, entry )",
       ::Shim::sdk_->bcm_field_entry_remove(static_cast<int>(unit), static_cast<int>(entry)));
   entryMgr->destroyEntry(unit, entry);
}

}  // namespace Nimbal
