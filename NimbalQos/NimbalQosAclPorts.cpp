#include <cstdlib>

#include "Kiv/Assert.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSdkCall.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "Oskel/VerifyData.h"
#include "Shim/Sdk.h"

namespace Nimbal {

namespace {

// Control-plane policy maps are the CoPP classes; every other map is an ordinary policy.
bool isCoppClass(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   return classData->key().pmapType() == Qos::mapControlPlane_;
}

// How the CLI verify output names the operation that found a port difference.
constexpr char verifyRulePortsForUnitSignature[] =
    "void Nimbal::QosAclHelperV1::verifyRulePortsForUnit(const "
    "Kiv::Ptr<Oskel::QosPolicyMapState>&, const Kiv::Ptr<Oskel::QosClassData>&, "
    "Qos::ClassMapMatchOption, const Oskel::AclKey&, U32, U32, U32, U32, U32, Acl::Action)";

}  // namespace

void QosAclHelperV1::precreateAcl(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                  Kiv::Ptr<Oskel::QosClassData> const& classData,
                                  Qos::ClassMapMatchOption matchOption, Oskel::AclKey const& aclKey,
                                  U32 aclType) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << classData->key() << " )::"
                 << "precreateAcl"
                 << "( " << static_cast<U32>(matchOption) << "," << aclType << " )");
   QosAclHelper::precreateAcl(pmapState, classData, matchOption, aclKey, aclType);
}

void QosAclHelperV1::setEntryPorts(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                   Kiv::Ptr<Oskel::QosClassData> const& classData,
                                   Qos::ClassMapMatchOption matchOption,
                                   Oskel::AclKey const& aclKey, U32 unit, U64 const& entry) {
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << classData->key() << " )::"
                 << "setEntryPorts"
                 << "( " << unit << "," << entry << " )");
   Shim::bcm_pbmp_t pbm = ::Shim::sdk_->portBitmap(static_cast<int>(unit));
   if (!isCoppClass(classData)) {
      QosAclHelper::setEntryPorts(pmapState, classData, matchOption, aclKey, unit, entry);
      return;
   }
   // CoPP polices everything that reaches the CPU, whatever interfaces the policy names.
   Shim::bcm_pbmp_t allPortsMask = ::Shim::sdk_->allPortsBitmap(static_cast<int>(unit));
   Kiv::Ptr<NimbalTcamEntryManager> entryMgr = tcamGroupManager()->tcamEntryMgr(entry);
   KIV_ASSERT(entryMgr);
   NIMBAL_SDK_CALL("bcm_field_qualify_InPorts( unit, entry, pbm, allPortsMask )",
                   ::Shim::sdk_->bcm_field_qualify_InPorts(
                       static_cast<int>(unit), static_cast<int>(entry), pbm, allPortsMask));
   entryMgr->addInPortsForEntry(unit, static_cast<U32>(entry), pbm, allPortsMask);
   // Port-set changes of the policy must not narrow this entry again.
   entryMgr->setTcamEntryBcmPbmpPermanent(unit, static_cast<U32>(entry), true);
}

void QosAclHelperV1::compressAllGroups() {
   KIV_TRACE(defaultTraceHandle(), 4, "compressAllGroups");
   QosAclHelper::compressAllGroups();
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> ipMgr = policyCoppIpEntryMgr();
   Kiv::Ptr<NimbalUnboundedTcamEntryManager> ip6Mgr = policyCoppIp6EntryMgr();
   for (auto const& modIdUnit : scsd()->nimbalModIdToUnitCol()) {
      U32 const unit = modIdUnit.second;
      // The TCAM-agent variant's hwInit binds no ingress CoPP managers: nothing of ours to pack.
      if (ipMgr) {
         ipMgr->compressEntries(unit);
      }
      if (ip6Mgr) {
         ip6Mgr->compressEntries(unit);
      }
   }
}

Oskel::QosClassCounterData QosAclHelperV1::counterUpdateRequest(
    Kiv::Ptr<Oskel::QosClassData> const& classData, Oskel::AclKey const& aclKey) {
   if (isCoppClass(classData)) {
      return coppCounterUpdateRequest(classData);
   }
   return QosAclHelper::counterUpdateRequest(classData, aclKey);
}

void QosAclHelperV1::verifyRulePortsForUnit(Kiv::Ptr<Oskel::QosPolicyMapState> const& pmapState,
                                            Kiv::Ptr<Oskel::QosClassData> const& classData,
                                            Qos::ClassMapMatchOption matchOption,
                                            Oskel::AclKey const& aclKey, U32 unit, U32 entry,
                                            U32 seqNo, U32 aclType, U32 groupId,
                                            Acl::Action action) {
   Kiv::String const aclDesc = getAclDesc(aclKey, pmapState, seqNo);
   Shim::bcm_pbmp_t const expectedPbm = ::Shim::sdk_->allPortsBitmap(static_cast<int>(unit));
   Shim::bcm_pbmp_t programmedPbm;
   if (Kiv::Ptr<NimbalTcamEntryManager> entryMgr = tcamGroupManager()->tcamEntryMgr(entry)) {
      programmedPbm = entryMgr->tcamEntryBcmPbmp(unit, entry);
   }
   if (!isCoppClass(classData)) {
      QosAclHelper::verifyRulePortsForUnit(pmapState, classData, matchOption, aclKey, unit, entry,
                                           seqNo, aclType, groupId, action);
      return;
   }
   if (::Shim::sdk_->pbmpEq(expectedPbm, programmedPbm)) {
      return;
   }
   Kiv::String const message = aclDesc + " incorrect ports bit mask";
   Kiv::Ptr<Oskel::VerifyData> verifyData = scsd()->verifyData();
   if (!verifyData) {
      return;
   }
   if (std::getenv("SIMULATION_VMID")) {
      // A simulated switch has nothing to excuse a difference: record it and stop.
      verifyData->verifyOutputIs(
          Oskel::VerifyOutput(message, __FILE__, __LINE__, "verifyRulePortsForUnit", 3));
      KIV_ASSERT_MSG(false, message.c_str());
   }
   verifyData->updateCliVerifyOutput(verifyRulePortsForUnitSignature, message);
   verifyData->verifyOutputIs(
       Oskel::VerifyOutput(message, __FILE__, __LINE__, "verifyRulePortsForUnit", 3));
}

}  // namespace Nimbal
