#include <cstdlib>

#include "Kiv/Activity.h"
#include "Kiv/Assert.h"
#include "Kiv/Format.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosCoppClass.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosSdkCall.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "Oskel/VerifyData.h"
#include "Shim/Sdk.h"

namespace Nimbal {

namespace {

// Every difference found here is a failure of the policer check.
constexpr U32 verifySeverityError = 3;
constexpr U32 coppPolicerFlags = 0x84;

// Hands one difference to the agent's verify command. Simulation runs must not pass with a
// difference, so there it is recorded and the run ends.
void reportDifference(Kiv::Ptr<NimbalCommonSmData const> const& scsd, char const* file, int line,
                      Kiv::String const& message) {
   Kiv::Ptr<Oskel::VerifyData> const verifyData = scsd->verifyData();
   if (!verifyData) {
      return;
   }
   if (std::getenv("SIMULATION_VMID")) {
      verifyData->verifyOutputIs(Oskel::VerifyOutput(message, file, static_cast<U32>(line),
                                                     "verifyCoppPolicerData", verifySeverityError));
      Kiv::assertFail(message.c_str(), file, line, "verifyCoppPolicerData");
   }
   verifyData->updateCliVerifyOutput(
       "void Nimbal::QosAclHelperV1::verifyCoppPolicerData(U16, U32, U32, U32, U32)", message);
}

#define COPP_VERIFY_REPORT(...) \
   reportDifference(scsd(), __FILE__, __LINE__, Kiv::format(__VA_ARGS__))

}  // namespace

void QosAclHelperV1::verifyCoppPolicerData(U16 unit, U32 entry, U32 expPolicerId, U32 expCir,
                                           U32 expBc) {
   // A policer that cannot be read leaves the configuration zeroed, so its fields are reported
   // too.
   Shim::bcm_policer_config_s policerCfg;
   int rv = NIMBAL_SDK_READ(
       "bcm_policer_get( unit, expPolicerId, &policerCfg )",
       ::Shim::sdk_->bcm_policer_get(unit, static_cast<int>(expPolicerId), &policerCfg));
   if (rv != ::Shim::sdk_->QV_BCM_E_NONE()) {
      COPP_VERIFY_REPORT("Copp Policer (%d) is not created in unit (%d)",
                         static_cast<int>(expPolicerId), static_cast<int>(unit));
   }
   U32 const coppMode = ::Shim::sdk_->coppPolicerMode();
   if (policerCfg.mode() != coppMode) {
      COPP_VERIFY_REPORT("PolicerMode programmed %d != configured %d",
                         static_cast<int>(policerCfg.mode()), static_cast<int>(coppMode));
   }
   if (policerCfg.flags() != coppPolicerFlags) {
      COPP_VERIFY_REPORT("Policer Flags programmed %d != configured %d",
                         static_cast<int>(policerCfg.flags()), static_cast<int>(coppPolicerFlags));
   }
   // CoPP meters count packets: the SDK's kbits fields hold packets per second and packets.
   if (policerCfg.ckbits_sec() != expCir) {
      COPP_VERIFY_REPORT("Policer CIR (kbps) programmed %d != configured %d",
                         static_cast<int>(policerCfg.ckbits_sec()), static_cast<int>(expCir));
   }
   if (policerCfg.ckbits_burst() != expBc) {
      COPP_VERIFY_REPORT("Policer BC (kb) programmed %d != configured %d",
                         static_cast<int>(policerCfg.ckbits_burst()), static_cast<int>(expBc));
   }
   Shim::bcm_policer_t policerId = 0;
   rv = NIMBAL_SDK_READ(
       "bcm_field_entry_policer_get( unit, entry, 0, &policerId )",
       ::Shim::sdk_->bcm_field_entry_policer_get(unit, static_cast<int>(entry), 0, &policerId));
   if (rv != ::Shim::sdk_->QV_BCM_E_NONE() || static_cast<U32>(policerId) != expPolicerId) {
      COPP_VERIFY_REPORT("Policer (%d) is not attached to entry( %d )",
                         static_cast<int>(expPolicerId), static_cast<int>(entry));
   }
}

void QosAclHelperV1::verifyPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   if (classData->key().cmapType() == Qos::mapControlPlane_) {
      verifyCoppPolicer(classData);
      return;
   }
   QosAclHelper::verifyPolicer(classData);
}

void QosAclHelperV1::verifyCoppPolicer(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   Oskel::QosClassDataKey const key = classData->key();
   Orvik::IntfId const intf = coppClassIntf(classData);
   NimbalTypes::NimbalPort const port =
       scsd()->nimbalIntfToPortCol().value(intf).value_or(NimbalTypes::NimbalPort::noPort());
   if (port == NimbalTypes::NimbalPort::noPort()) {
      // Not on this chip: nothing was programmed for it.
      return;
   }

   S32 cpuQId = classData->cpuQId();
   if (cpuQId < 0) {
      cpuQId = mmuSm()->staticClassToCpuQId(mmuSm()->coppPMapName(), key.pmapType(), key.cmapName(),
                                            key.cmapType());
   }
   KIV_ASSERT(cpuQId >= 0);
   Kiv::Ptr<MmuCpuQ> const cpuQ = mmuSm()->cpuQColl()->cpuQ(static_cast<U32>(cpuQId));
   KIV_ASSERT(cpuQ);
   KIV_ASSERT(cpuQ->allocated());
   KIV_ASSERT(cpuQ->pmapName() == mmuSm()->coppPMapName());
   KIV_ASSERT(cpuQ->cmapType() == key.cmapType());
   KIV_ASSERT(cpuQ->cmapName() == key.cmapName());

   Kiv::Ptr<NimbalQosCoppIntfPolicerData> const pDataCol = coppIntfPolicerData(intf);
   KIV_ASSERT(pDataCol);
   Kiv::Ptr<NimbalQosCoppPolicerData> const pData = pDataCol->policerDataCol(key);
   Kiv::Ptr<Qos::PolicerData> const policerData = classData->policerData();
   if (!policerData || !policerData->hwProgrammed()) {
      // The police action is not meant for hardware: there is nothing to compare.
      return;
   }
   KIV_ASSERT(pData);
   KIV_ASSERT(pData->isDynamic());

   Oskel::ModIdPortQueueKey const coppKey(port.modId(), port.logicalPort(),
                                          static_cast<U32>(cpuQId));
   Oskel::CoppInfo const coppInfo = kernelCoppConfig()->coppInfo(coppKey);
   KIV_ASSERT(coppInfo.enabled());
   // The 64-bit rate compares whole: a rate beyond 32 bits can never match the kernel's.
   KIV_ASSERT(coppInfo.rateInPps() == policerData->cir());
   KIV_ASSERT(coppInfo.burstPkts() == policerData->bc());
   KIV_ASSERT(policerData->cirUnit() == Qos::rateUnitPps_);
   U32 const cir = static_cast<U32>(policerData->cir());
   U32 const bc = policerData->bc();

   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const data = kernelDynamicCoppData(coppKey);
   if (!data) {
      return;
   }
   verifyCoppPolicerData(port.unit(), data->entry(), data->policerId(), cir, bc);
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << key << " )::"
                 << "verifyCoppPolicer"
                 << " Verified copp policer data: " << data->policerId() << " in unit "
                 << port.unit() << " CIR(pps): " << cir << " BC(packets): " << bc);
   verifyPolicerActions(port.unit(), data->entry(), classData);

   Kiv::Ptr<NimbalQosKernelDynamicCoppData> const vxlanData = kernelDynamicCoppVxlanData(coppKey);
   if (!vxlanData) {
      return;
   }
   verifyCoppPolicerData(port.unit(), vxlanData->entry(), vxlanData->policerId(), cir, bc);
   KIV_TRACE(defaultTraceHandle(), 4,
             "QosAclHelperV1"
                 << "( " << key << " )::"
                 << "verifyCoppPolicer"
                 << " Verified copp policer data (vxlan): " << vxlanData->policerId() << " in unit "
                 << port.unit() << " CIR(pps): " << cir << " BC(packets): " << bc);
   verifyPolicerActions(port.unit(), vxlanData->entry(), classData);
}

void QosAclHelperV1::verifyCoppPerPortDefaultPolicer() {
   if (portDefaultCoppPolicerHwDataCol().empty()) {
      return;
   }
   // The agent's verify command may run outside the event loop: the chip is read under the
   // activity lock, as the loop would hold it.
   Kiv::ActivityScope activity;
   NimbalQosPolicerHwData const none;
   for (auto iter = portDefaultCoppPolicerHwDataCol().begin();
        iter != portDefaultCoppPolicerHwDataCol().end(); ++iter) {
      Orvik::IntfId const& intf = iter->first;
      NimbalQosPolicerHwData const& hwData = iter->second;
      U16 const unit = scsd()
                           ->nimbalIntfToPortCol()
                           .value(intf)
                           .value_or(NimbalTypes::NimbalPort::noPort())
                           .unit();
      verifyCoppPolicerData(unit, hwData.entryId(), hwData.policerId(), hwData.policerRate(),
                            hwData.policerBurst());
      // The default entry must drop what its meter marks red, exactly as it was installed.
      {
         U32 actionValue = 0;
         U32 param = 0;
         int const ret = NIMBAL_SDK_READ(
             "bcm_field_action_get( unit, iter->entryId(), bcmFieldActionRpDrop, &actionValue, "
             "&param )",
             ::Shim::sdk_->bcm_field_action_get(unit, static_cast<int>(hwData.entryId()),
                                                ::Shim::bcmFieldActionRpDrop, &actionValue,
                                                &param));
         KIV_ASSERT(ret == ::Shim::sdk_->QV_BCM_E_NONE());
         KIV_ASSERT(actionValue == 0);
      }

      NimbalQosPolicerHwData const vxlanData =
          portDefaultCoppPolicerVxlanHwDataCol().value(intf).value_or(none);
      if (vxlanData == none) {
         continue;
      }
      KIV_ASSERT_MSG(vxlanData.policerRate() == hwData.policerRate(),
                     "vxlanData.policerRate() == iter->policerRate()");
      KIV_ASSERT_MSG(vxlanData.policerBurst() == hwData.policerBurst(),
                     "vxlanData.policerBurst() == iter->policerBurst()");
      verifyCoppPolicerData(unit, vxlanData.entryId(), vxlanData.policerId(), hwData.policerRate(),
                            hwData.policerBurst());
      {
         U32 actionValue = 0;
         U32 param = 0;
         int const ret = NIMBAL_SDK_READ(
             "bcm_field_action_get( unit, vxlanData.entryId(), bcmFieldActionRpDrop, "
             "&actionValue, &param )",
             ::Shim::sdk_->bcm_field_action_get(unit, static_cast<int>(vxlanData.entryId()),
                                                ::Shim::bcmFieldActionRpDrop, &actionValue,
                                                &param));
         KIV_ASSERT(ret == ::Shim::sdk_->QV_BCM_E_NONE());
         KIV_ASSERT(actionValue == 0);
      }
   }
}

}  // namespace Nimbal
