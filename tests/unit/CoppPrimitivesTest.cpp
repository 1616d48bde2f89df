#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::TraceCapture;
using Shim::Qualifier;
using Shim::QualKind;

constexpr U32 noPolicer = 0xFFFFFFFF;

// The primitives on an entry of the egress CoPP group of a default switch, with the SDK
// journal cleared once the entry exists.
class CoppPrimitives : public SwitchTest::SwitchFixture {
  protected:
   void SetUp() override {
      SwitchFixture::SetUp();
      Nimbal::StatTypes statTypes;
      statTypes.typeIs(0, sdk().coppStatType(0));
      statTypes.typeIs(1, sdk().coppStatType(1));
      entry = sw().efpCoppEntryMgr()->getEntryWithStats(unit, "primitive test",
                                                        Nimbal::RequestKey(), statTypes);
      ASSERT_NE(entry, 0u);
      sdk().journalDelAll();
   }

   Kiv::Ptr<Nimbal::NimbalTcamGroupManager> groupMgr() const { return sw().tcamGroupManager(); }
   Kiv::Ptr<Nimbal::NimbalTcamEntryManager> entryMgr() const { return sw().efpCoppEntryMgr(); }

   U32 install(U32 cir, U32 bc) {
      return Nimbal::installCoppPolicer(unit, entry, cir, bc, groupMgr(), entryMgr());
   }
   U32 update(U32 oldPolicer, U32 cir, U32 bc) {
      return Nimbal::updateCoppPolicer(unit, entry, oldPolicer, cir, bc, groupMgr(), entryMgr());
   }
   void release(U32 policer) {
      Nimbal::releaseCoppPolicer(unit, entry, policer, groupMgr(), entryMgr());
   }

   Shim::FieldEntry const& fieldEntry() const {
      Shim::FieldEntry const* e = chip().entry(static_cast<int>(unit), static_cast<int>(entry));
      EXPECT_NE(e, nullptr);
      return *e;
   }
   U32 metersInUse() const {
      return chip().metersInUse(static_cast<int>(unit), NimbalHost::Switch::efpCoppGroupId);
   }
   std::string e() const { return std::to_string(entry); }
   static std::string policerText(U32 cir, U32 bc) {
      return "{flags=0x84 mode=1 ckbits_sec=" + std::to_string(cir) +
             " ckbits_burst=" + std::to_string(bc) + " pkbits_sec=0 pkbits_burst=0}";
   }

   U32 const unit = 0;
   U32 entry = 0;
};

TEST_F(CoppPrimitives, QualifiersAreWrittenInOrderWithTheCpuPortClassLast) {
   Nimbal::setCoppEntryQual(unit, entry, 5, 0xFFFFFFFF, 9, 0x3F, 0xABC, 0xFFF);
   EXPECT_EQ(sdk().journalTexts(),
             std::vector<std::string>({
                 "bcm_field_qualify_InPort(0, " + e() + ", 0x5, 0xffffffff)",
                 "bcm_field_qualify_CpuQueue(0, " + e() + ", 0x9, 0x3f)",
                 "bcm_field_qualify_InnerVlanId(0, " + e() + ", 0xabc, 0xfff)",
                 "bcm_field_qualify_InterfaceClassPort(0, " + e() + ", 0x2, 0x2)",
             }));
   Shim::EntryProgram const& sw = fieldEntry().sw;
   EXPECT_EQ(sw.qualifier(QualKind::InPort), (Qualifier{5, 0xFFFFFFFF}));
   EXPECT_EQ(sw.qualifier(QualKind::CpuQueue), (Qualifier{9, 0x3F}));
   EXPECT_EQ(sw.qualifier(QualKind::InnerVlanId), (Qualifier{0xABC, 0xFFF}));
   EXPECT_EQ(sw.qualifier(QualKind::InterfaceClassPort), (Qualifier{2, 2}));
}

TEST_F(CoppPrimitives, ZeroMasksWriteWildcardsAndStillTheCpuPortClass) {
   Nimbal::setCoppEntryQual(unit, entry, 0, 0, 0, 0, 7, 0);
   Shim::EntryProgram const& sw = fieldEntry().sw;
   EXPECT_EQ(sw.qualifier(QualKind::InPort), (Qualifier{0, 0}));
   EXPECT_EQ(sw.qualifier(QualKind::CpuQueue), (Qualifier{0, 0}));
   EXPECT_EQ(sw.qualifier(QualKind::InnerVlanId), (Qualifier{7, 0}));
   EXPECT_EQ(sw.qualifier(QualKind::InterfaceClassPort), (Qualifier{2, 2}));
   EXPECT_EQ(sdk().journalNames().back(), "bcm_field_qualify_InterfaceClassPort");
}

TEST_F(CoppPrimitives, QualifierValuesKeepTheFullWidthOfTheirFields) {
   Nimbal::setCoppEntryQual(unit, entry, 0xFFFFFFFF, 0xFFFFFFFF, 0xFF, 0xFF, 0xFFFF, 0xFFFF);
   Shim::EntryProgram const& sw = fieldEntry().sw;
   EXPECT_EQ(sw.qualifier(QualKind::InPort), (Qualifier{0xFFFFFFFF, 0xFFFFFFFF}));
   EXPECT_EQ(sw.qualifier(QualKind::CpuQueue), (Qualifier{0xFF, 0xFF}));
   EXPECT_EQ(sw.qualifier(QualKind::InnerVlanId), (Qualifier{0xFFFF, 0xFFFF}));
}

TEST_F(CoppPrimitives, DirectCallsReleaseTheActivityLockAndRunThePreCallHook) {
   ASSERT_TRUE(Kiv::activityLock().held());
   Nimbal::setCoppEntryQual(unit, entry, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   U32 const policer = install(300, 30);
   release(policer);
   std::set<std::string> const direct = {
       "bcm_field_qualify_InPort",      "bcm_field_qualify_CpuQueue",
       "bcm_field_qualify_InnerVlanId", "bcm_field_qualify_InterfaceClassPort",
       "bcm_field_action_add",          "bcm_field_entry_remove"};
   std::set<std::string> seen;
   for (Shim::SdkCall const& call : sdk().journal()) {
      if (direct.count(call.name)) {
         seen.insert(call.name);
         EXPECT_FALSE(call.lockHeld) << call.text();
         EXPECT_TRUE(call.afterPreCall) << call.text();
      } else {
         // The TCAM managers' calls run with the lock held.
         EXPECT_TRUE(call.lockHeld) << call.text();
      }
   }
   EXPECT_EQ(seen, direct);
   EXPECT_TRUE(Kiv::activityLock().held());
}

TEST_F(CoppPrimitives, SuccessfulDirectCallsAreTracedOnApiNimbal) {
   TraceCapture traces({"ApiNimbal"}, 4);
   Nimbal::setCoppEntryQual(unit, entry, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   U32 const policer = install(300, 30);
   release(policer);
   std::vector<std::string> const calls = {
       "bcm_field_qualify_InPort\\( unit, entry, srcPortVal, srcPortMask \\)",
       "bcm_field_qualify_CpuQueue\\( unit, entry, cpuQVal, cpuQMask \\)",
       "bcm_field_qualify_InnerVlanId\\( unit, entry, innerVlanVal, innerVlanMask \\)",
       "bcm_field_qualify_InterfaceClassPort\\( unit, entry, classCpuPort_, classCpuPort_ \\)",
       "bcm_field_action_add\\( unit, entry, bcmFieldActionRpDrop, 0, 0 \\)",
       "bcm_field_entry_remove\\( unit, entry \\)"};
   ASSERT_EQ(traces.lines().size(), calls.size());
   for (std::size_t i = 0; i < calls.size(); ++i) {
      EXPECT_EQ(traces.lines()[i].handle, "ApiNimbal");
      EXPECT_EQ(traces.lines()[i].level, 4);
      EXPECT_TRUE(std::regex_match(traces.lines()[i].text,
                                   std::regex("NimbalQos/NimbalQosProtectionHelper\\.cpp:[0-9]+ " +
                                              calls[i] + " \\(rc:0\\)")))
          << traces.lines()[i].text;
   }
}

TEST_F(CoppPrimitives, FailingQualifierCallIsFatalWithTheStandardErrorLine) {
   EXPECT_DEATH(
       {
          sdk().failNextCallIs("bcm_field_qualify_InPort", Shim::BCM_E_PARAM);
          Nimbal::setCoppEntryQual(unit, entry, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
       },
       "(^|\n)NimbalQos/NimbalQosProtectionHelper\\.cpp:[0-9]+ "
       "bcm_field_qualify_InPort\\( unit, entry, srcPortVal, srcPortMask \\) "
       "API ERROR:Invalid parameter \\(-4\\)\n.*Assertion `0' failed");
}

TEST_F(CoppPrimitives, FailingCpuQueueQualifierNamesItsOwnCall) {
   EXPECT_DEATH(
       {
          sdk().failNextCallIs("bcm_field_qualify_CpuQueue", Shim::BCM_E_INTERNAL);
          Nimbal::setCoppEntryQual(unit, entry, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
       },
       "(^|\n)NimbalQos/NimbalQosProtectionHelper\\.cpp:[0-9]+ "
       "bcm_field_qualify_CpuQueue\\( unit, entry, cpuQVal, cpuQMask \\) "
       "API ERROR:Internal error \\(-1\\)\n");
}

TEST_F(CoppPrimitives, FailingRedDropActionIsFatal) {
   EXPECT_DEATH(
       {
          sdk().failNextCallIs("bcm_field_action_add", Shim::BCM_E_FULL);
          install(300, 30);
       },
       "(^|\n)NimbalQos/NimbalQosProtectionHelper\\.cpp:[0-9]+ "
       "bcm_field_action_add\\( unit, entry, bcmFieldActionRpDrop, 0, 0 \\) "
       "API ERROR:Table full \\(-6\\)\n.*Assertion `0' failed");
}

TEST_F(CoppPrimitives, FailingEntryRemoveIsFatal) {
   U32 const policer = install(300, 30);
   EXPECT_DEATH(
       {
          sdk().failNextCallIs("bcm_field_entry_remove", Shim::BCM_E_NOT_FOUND);
          release(policer);
       },
       "(^|\n)NimbalQos/NimbalQosProtectionHelper\\.cpp:[0-9]+ "
       "bcm_field_entry_remove\\( unit, entry \\) API ERROR:Entry not found \\(-7\\)\n");
}

TEST_F(CoppPrimitives, InstallMetersTheEntryAndAddsRedDrop) {
   TraceCapture traces({"NimbalQosSm"}, 4);
   U32 const policer = install(300, 30);
   ASSERT_NE(policer, noPolicer);
   std::string const p = std::to_string(policer);
   EXPECT_EQ(sdk().journalTexts(),
             std::vector<std::string>({
                 "bcm_policer_create(0, " + policerText(300, 30) + ", &)",
                 "bcm_field_entry_policer_attach(0, " + e() + ", 0, " + p + ")",
                 "bcm_field_action_add(0, " + e() + ", 52, 0x0, 0x0)",
                 "bcm_field_entry_install(0, " + e() + ")",
             }));
   Shim::FieldEntry const& fe = fieldEntry();
   EXPECT_TRUE(fe.installed);
   EXPECT_EQ(fe.hw.policer[0], static_cast<int>(policer));
   ASSERT_TRUE(fe.hw.hasAction(Shim::bcmFieldActionRpDrop));
   EXPECT_EQ(fe.hw.action(Shim::bcmFieldActionRpDrop), std::optional(Shim::ActionParams{0, 0}));
   Shim::Policer const* pol = chip().policer(0, static_cast<int>(policer));
   ASSERT_NE(pol, nullptr);
   EXPECT_EQ(pol->config.flags(), 0x84u);
   EXPECT_EQ(pol->config.mode(), static_cast<U32>(sdk().coppPolicerMode()));
   EXPECT_EQ(pol->config.ckbits_sec(), 300u);
   EXPECT_EQ(pol->config.ckbits_burst(), 30u);
   EXPECT_EQ(pol->config.pkbits_sec(), 0u);
   EXPECT_EQ(pol->config.pkbits_burst(), 0u);
   EXPECT_EQ(metersInUse(), 1u);
   EXPECT_EQ(entryMgr()->policerForEntry(unit, entry), policer);
   EXPECT_FALSE(groupMgr()->returnErrorOnInstall());
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>({"installCoppPolicer install entry: " + e() +
                                       " create policer: " + p + " CIR(pps): 300 BC(packet): 30"}));
}

TEST_F(CoppPrimitives, ExhaustedMetersLeaveNoPolicerAttached) {
   sw().resourcesIs({std::nullopt, 0u, std::nullopt});
   std::size_t const policersBefore = chip().policers(0);
   TraceCapture traces({"NimbalQosSm"}, 4);
   U32 const result = install(300, 30);
   EXPECT_EQ(result, noPolicer);

   // The meter that was made for the entry, from the journal.
   ASSERT_EQ(sdk().journalTexts("bcm_field_entry_policer_attach").size(), 1u);
   std::string const attach = sdk().journalTexts("bcm_field_entry_policer_attach")[0];
   std::string const p =
       attach.substr(attach.rfind(", ") + 2, attach.size() - attach.rfind(", ") - 3);
   EXPECT_EQ(sdk().journalTexts(),
             std::vector<std::string>({
                 "bcm_policer_create(0, " + policerText(300, 30) + ", &)",
                 "bcm_field_entry_policer_attach(0, " + e() + ", 0, " + p + ")",
                 "bcm_field_action_add(0, " + e() + ", 52, 0x0, 0x0)",
                 "bcm_field_entry_install(0, " + e() + ")",
                 "bcm_field_entry_policer_detach(0, " + e() + ", 0)",
                 "bcm_policer_destroy(0, " + p + ")",
             }));
   EXPECT_EQ(sdk().journal()[3].rc, Shim::BCM_E_RESOURCE);

   Shim::FieldEntry const& fe = fieldEntry();
   EXPECT_EQ(fe.sw.policer[0], 0);
   EXPECT_EQ(fe.hw.policer[0], 0);
   EXPECT_EQ(entryMgr()->policerForEntry(unit, entry), 0u);
   EXPECT_EQ(chip().policers(0), policersBefore);
   EXPECT_EQ(metersInUse(), 0u);
   // The red-drop action was added all the same, and the entry stays for the caller.
   EXPECT_TRUE(fe.sw.hasAction(Shim::bcmFieldActionRpDrop));
   EXPECT_TRUE(entryMgr()->entryHas(unit, entry));
   EXPECT_FALSE(groupMgr()->returnErrorOnInstall());
   EXPECT_EQ(traces.texts(),
             std::vector<std::string>({"installCoppPolicer : meters exhausted for entry: " + e() +
                                       " with policer: " + p}));
}

TEST_F(CoppPrimitives, UpdateSwapsTheMeterThroughAnUnmeteredInstall) {
   U32 const oldPolicer = install(300, 30);
   sdk().journalDelAll();
   U32 const newPolicer = update(oldPolicer, 600, 60);
   std::string const o = std::to_string(oldPolicer);
   std::string const n = std::to_string(newPolicer);
   EXPECT_EQ(sdk().journalTexts(),
             std::vector<std::string>({
                 "bcm_field_entry_policer_detach(0, " + e() + ", 0)",
                 "bcm_field_entry_install(0, " + e() + ")",
                 "bcm_policer_destroy(0, " + o + ")",
                 "bcm_policer_create(0, " + policerText(600, 60) + ", &)",
                 "bcm_field_entry_policer_attach(0, " + e() + ", 0, " + n + ")",
                 "bcm_field_entry_install(0, " + e() + ")",
             }));
   EXPECT_EQ(fieldEntry().hw.policer[0], static_cast<int>(newPolicer));
   EXPECT_EQ(chip().policer(0, static_cast<int>(oldPolicer)), nullptr);
   ASSERT_NE(chip().policer(0, static_cast<int>(newPolicer)), nullptr);
   EXPECT_EQ(chip().policer(0, static_cast<int>(newPolicer))->config.ckbits_sec(), 600u);
   EXPECT_EQ(chip().policer(0, static_cast<int>(newPolicer))->config.ckbits_burst(), 60u);
   EXPECT_EQ(metersInUse(), 1u);
   EXPECT_FALSE(groupMgr()->returnErrorOnInstall());
}

TEST_F(CoppPrimitives, EqualRatesStillSwapTheMeter) {
   U32 const oldPolicer = install(300, 30);
   U32 const newPolicer = update(oldPolicer, 300, 30);
   EXPECT_NE(newPolicer, oldPolicer);
   EXPECT_EQ(chip().policer(0, static_cast<int>(oldPolicer)), nullptr);
   EXPECT_EQ(fieldEntry().hw.policer[0], static_cast<int>(newPolicer));
   EXPECT_EQ(sdk().journalTexts("bcm_policer_destroy").size(), 1u);
   EXPECT_EQ(sdk().journalTexts("bcm_policer_create").size(), 2u);
}

TEST_F(CoppPrimitives, UpdateWithTheLastMeterGoneIsAnAssertion) {
   U32 const oldPolicer = install(300, 30);
   // No meter is left once the old one is freed: the swap cannot run out, so this is a bug.
   sw().resourcesIs({std::nullopt, 0u, std::nullopt});
   EXPECT_DEATH(update(oldPolicer, 600, 60),
                "Assertion `rc != ::Shim::sdk_->QV_BCM_E_RESOURCE\\(\\) && \"Return value for "
                "installEntry is BCM_E_RESOURCE\"' failed");
}

TEST_F(CoppPrimitives, ReleaseDetachesBeforeTheMeterAndEntryGo) {
   U32 const policer = install(300, 30);
   int const statId = fieldEntry().statId;
   sdk().journalDelAll();
   TraceCapture traces({"NimbalQosSm"}, 4);
   release(policer);
   std::string const p = std::to_string(policer);
   EXPECT_EQ(sdk().journalTexts(), std::vector<std::string>({
                                       "bcm_field_entry_policer_detach(0, " + e() + ", 0)",
                                       "bcm_field_entry_install(0, " + e() + ")",
                                       "bcm_policer_destroy(0, " + p + ")",
                                       "bcm_field_entry_remove(0, " + e() + ")",
                                       "bcm_field_entry_destroy(0, " + e() + ")",
                                       "bcm_field_stat_destroy(0, " + std::to_string(statId) + ")",
                                   }));
   for (Shim::SdkCall const& call : sdk().journal()) {
      EXPECT_EQ(call.rc, Shim::BCM_E_NONE) << call.text();
   }
   EXPECT_EQ(chip().entry(0, static_cast<int>(entry)), nullptr);
   EXPECT_EQ(chip().policer(0, static_cast<int>(policer)), nullptr);
   EXPECT_EQ(metersInUse(), 0u);
   EXPECT_FALSE(entryMgr()->entryHas(unit, entry));
   EXPECT_FALSE(groupMgr()->returnErrorOnInstall());
   EXPECT_EQ(
       traces.texts(),
       std::vector<std::string>({"QosHelperreleaseCoppPolicer entry : " + e() + " policer: " + p}));
}

TEST_F(CoppPrimitives, ReleaseInstallOutOfResourcesIsAnAssertion) {
   U32 const policer = install(300, 30);
   EXPECT_DEATH(
       {
          sdk().failNextCallIs("bcm_field_entry_install", Shim::BCM_E_RESOURCE);
          release(policer);
       },
       "Assertion `rc != ::Shim::sdk_->QV_BCM_E_RESOURCE\\(\\) && \"Return value for "
       "installEntry is BCM_E_RESOURCE\"' failed");
}

TEST_F(CoppPrimitives, InstallingWhileErrorsAreReturnedIsAnAssertion) {
   groupMgr()->returnErrorOnInstallIs(true);
   EXPECT_DEATH(install(300, 30), "Assertion `!groupMgr->returnErrorOnInstall\\(\\)' failed");
   groupMgr()->returnErrorOnInstallIs(false);
}

TEST_F(CoppPrimitives, UpdatingWhileErrorsAreReturnedIsAnAssertion) {
   U32 const policer = install(300, 30);
   groupMgr()->returnErrorOnInstallIs(true);
   EXPECT_DEATH(update(policer, 600, 60),
                "Assertion `!groupMgr->returnErrorOnInstall\\(\\)' failed");
   groupMgr()->returnErrorOnInstallIs(false);
}

TEST_F(CoppPrimitives, ReleasingWhileErrorsAreReturnedIsAnAssertion) {
   U32 const policer = install(300, 30);
   groupMgr()->returnErrorOnInstallIs(true);
   EXPECT_DEATH(release(policer), "Assertion `!groupMgr->returnErrorOnInstall\\(\\)' failed");
   groupMgr()->returnErrorOnInstallIs(false);
}

TEST_F(CoppPrimitives, InstalledMeterPolicesPacketsAndDropsRed) {
   Nimbal::setCoppEntryQual(unit, entry, 5, 0xFFFFFFFF, 9, 0x3F, 0, 0);
   install(10, 2);
   // A burst of two passes at one instant; the third is red and dropped.
   double const t = 1000.0;
   EXPECT_FALSE(chip().sendToCpu(0, 5, 9, 0, t).dropped);
   EXPECT_FALSE(chip().sendToCpu(0, 5, 9, 0, t).dropped);
   Shim::PacketResult const third = chip().sendToCpu(0, 5, 9, 0, t);
   EXPECT_TRUE(third.dropped);
   // Another queue of the port is not this entry's traffic.
   Shim::PacketResult const other = chip().sendToCpu(0, 5, 10, 0, t);
   for (Shim::PacketMatch const& m : other.matches) {
      EXPECT_NE(m.entry, static_cast<int>(entry));
   }
}

}  // namespace
