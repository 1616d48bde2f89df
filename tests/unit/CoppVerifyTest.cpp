#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Kiv/Type.h"
#include "Oskel/VerifyData.h"
#include "unit/CoppHelperFixture.h"
#include "unit/CoppShowVerifyFixture.h"

namespace {

using CoppTest::TraceCapture;
using Nimbal::NimbalQosPolicerHwData;
using NimbalHost::Switch;
using Oskel::ModIdPortQueueKey;
using Oskel::QosClassDataKey;
using Shim::bcm_policer_config_s;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

constexpr char const* verifySignature =
    "void Nimbal::QosAclHelperV1::verifyCoppPolicerData(U16, U32, U32, U32, U32)";
constexpr U32 defaultRate = 1000;
constexpr U32 defaultBurst = 100;

// Sets "SIMULATION_VMID" for the test's lifetime.
class SimulationRun {
  public:
   SimulationRun() { ::setenv("SIMULATION_VMID", "7", 1); }
   ~SimulationRun() { ::unsetenv("SIMULATION_VMID"); }
};

// What the verify data held when the process was ended, written to standard error on the way
// out so that a death test can see it.
Oskel::VerifyData const* verifyDataAtAbort = nullptr;

extern "C" void printVerifyDataOnAbort(int) {
   if (!verifyDataAtAbort) {
      return;
   }
   std::ostringstream os;
   os << "recorded " << verifyDataAtAbort->verifyOutputs().size() << " cli "
      << verifyDataAtAbort->cliVerifyOutput().size() << "\n";
   for (auto const& o : verifyDataAtAbort->verifyOutputs()) {
      os << "output: " << o.message() << "|" << o.file() << "|" << o.line() << "|" << o.function()
         << "|" << o.severity() << "\n";
   }
   std::string const text = os.str();
   [[maybe_unused]] ::ssize_t const n = ::write(2, text.data(), text.size());
}

QosClassDataKey coppKey(std::string const& cmapName,
                        Qos::MapType cmapType = Qos::mapControlPlane_) {
   return QosClassDataKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_, cmapName,
                          cmapType);
}

class CoppVerify : public CoppShowVerifyTest::CoppStateFixture {
  protected:
   void SetUp() override {
      CoppStateFixture::SetUp();
      verifyData_ = new Oskel::VerifyData();
      sw().scsd()->verifyDataIs(verifyData_);
   }

   Kiv::Ptr<Oskel::VerifyData> verifyData() const { return verifyData_; }

   // The CLI lines of the verify command, each checked to come from the policer check.
   std::vector<std::string> cli() const {
      std::vector<std::string> out;
      for (auto const& line : verifyData_->cliVerifyOutput()) {
         EXPECT_EQ(line.function, verifySignature);
         out.push_back(line.message);
      }
      return out;
   }

   NimbalQosPolicerHwData defaultOf(std::string const& intf) const {
      return helper()->portDefaultCoppPolicerHwData(Orvik::IntfId(intf));
   }

   // Changes a programmed policer behind the helper's back.
   template <class F>
   void tamper(U32 policer, F change, int unit = 0) {
      Shim::Policer const* p = chip().policer(unit, static_cast<int>(policer));
      ASSERT_NE(p, nullptr);
      bcm_policer_config_s config = p->config;
      change(config);
      ASSERT_TRUE(chip().tamperPolicer(unit, static_cast<int>(policer), config));
   }

   void verifyDefault(std::string const& intf) {
      NimbalQosPolicerHwData const d = defaultOf(intf);
      helper()->verifyCoppPolicerData(0, d.entryId(), d.policerId(), d.policerRate(),
                                      d.policerBurst());
   }

   // A class of the CoPP policy map on one interface, policed at (cir, bc) packets.
   Kiv::Ptr<Oskel::QosClassData> coppClass(std::string const& intf, QosClassDataKey const& key,
                                           U64 cir = 300, U32 bc = 30, S32 cpuQId = -1) {
      Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(key));
      cls->intfIdIs(Orvik::IntfId(intf));
      cls->cpuQIdIs(cpuQId);
      cls->policerDataIs(new Qos::PolicerData(cir, Qos::rateUnitPps_, bc));
      return cls;
   }

   // The class as the helper programs it: its policer record and kernel CoPP information, then
   // the port-queue entry that carries its meter, as the agent asks for it.
   KernelEntry armedClass(Kiv::Ptr<Oskel::QosClassData> const& cls, U32 queue) {
      EXPECT_TRUE(helper()->createAndAttachCoppPolicer(cls));
      NimbalTypes::NimbalPort const p = port(cls->intfIdSet().begin()->stringValue());
      ModIdPortQueueKey const key(p.modId(), p.logicalPort(), queue);
      EXPECT_TRUE(helper()->createCoppPolicerByPortQueue(key));
      KernelEntry k;
      if (auto const record = helper()->kernelDynamicCoppData(key)) {
         k.entry = record->entry();
         k.policer = record->policerId();
      }
      EXPECT_NE(k.entry, 0u);
      return k;
   }

   // A VXLAN entry of the default-and-VXLAN group with a meter, at `offset` from its base.
   KernelEntry vxlanEntry(U32 offset, U32 port, U32 cir, U32 bc, bool redDrop = true) {
      Nimbal::StatTypes statTypes;
      statTypes.typeIs(0, sdk().coppStatType(0));
      statTypes.typeIs(1, sdk().coppStatType(1));
      auto const entryMgr = sw().efpCoppDefAndVxlanEntryMgr();
      KernelEntry k;
      k.entry = entryMgr->getEntryWithStats(0, Switch::efpCoppDefAndVxlanBaseIndex + offset,
                                            "test vxlan entry", Nimbal::RequestKey(), statTypes);
      EXPECT_NE(k.entry, 0u);
      Nimbal::setCoppEntryQual(0, k.entry, port, 0xFFFFFFFF, 0, 0, 0, 0);
      if (redDrop) {
         k.policer =
             Nimbal::installCoppPolicer(0, k.entry, cir, bc, sw().tcamGroupManager(), entryMgr);
      } else {
         bcm_policer_config_s config;
         config.mode_is(sdk().coppPolicerMode());
         config.flags_is(0x84);
         config.ckbits_sec_is(cir);
         config.ckbits_burst_is(bc);
         k.policer = sw().tcamGroupManager()->createPolicer(0, config);
         entryMgr->attachPolicer(0, k.entry, k.policer, true);
         EXPECT_EQ(entryMgr->installEntry(0, k.entry), 0);
      }
      return k;
   }

   std::size_t calls(std::string const& name) const { return sdk().journalTexts(name).size(); }

  private:
   Kiv::Ptr<Oskel::VerifyData> verifyData_;
};

// ---- One policer and its attachment.

TEST_F(CoppVerify, MatchingPolicerReportsNothing) {
   sdk().journalDelAll();
   verifyDefault("Ethernet1");
   EXPECT_TRUE(cli().empty());
   EXPECT_TRUE(verifyData()->verifyOutputs().empty());
   EXPECT_EQ(sdk().journalNames(),
             (std::vector<std::string>{"bcm_policer_get", "bcm_field_entry_policer_get"}));
}

TEST_F(CoppVerify, ChangedRateIsReported) {
   tamper(defaultOf("Ethernet1").policerId(), [](auto& c) { c.ckbits_sec_is(2000); });
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(),
             (std::vector<std::string>{"Policer CIR (kbps) programmed 2000 != configured 1000"}));
}

TEST_F(CoppVerify, ChangedBurstIsReported) {
   tamper(defaultOf("Ethernet1").policerId(), [](auto& c) { c.ckbits_burst_is(50); });
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer BC (kb) programmed 50 != configured 100"}));
}

TEST_F(CoppVerify, ChangedModeIsReported) {
   tamper(defaultOf("Ethernet1").policerId(),
          [](auto& c) { c.mode_is(Shim::bcmPolicerModeTrTcm); });
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(), (std::vector<std::string>{"PolicerMode programmed 3 != configured 1"}));
}

TEST_F(CoppVerify, MissingFlagIsReported) {
   tamper(defaultOf("Ethernet1").policerId(), [](auto& c) { c.flags_is(0x80); });
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer Flags programmed 128 != configured 132"}));
}

TEST_F(CoppVerify, ExtraFlagIsReported) {
   tamper(defaultOf("Ethernet1").policerId(),
          [](auto& c) { c.flags_or(Shim::BCM_POLICER_DROP_RED); });
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer Flags programmed 140 != configured 132"}));
}

TEST_F(CoppVerify, DetachedPolicerIsReported) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   ASSERT_TRUE(chip().tamperDetachPolicer(0, static_cast<int>(d.entryId())));
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer (" + std::to_string(d.policerId()) +
                                              ") is not attached to entry( " +
                                              std::to_string(d.entryId()) + " )"}));
}

TEST_F(CoppVerify, AnotherPolicerOnTheEntryIsReported) {
   NimbalQosPolicerHwData const mine = defaultOf("Ethernet1");
   NimbalQosPolicerHwData const other = defaultOf("Ethernet2");
   helper()->verifyCoppPolicerData(0, other.entryId(), mine.policerId(), defaultRate, defaultBurst);
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer (" + std::to_string(mine.policerId()) +
                                              ") is not attached to entry( " +
                                              std::to_string(other.entryId()) + " )"}));
}

TEST_F(CoppVerify, DestroyedPolicerIsReportedWithItsZeroedConfiguration) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   ASSERT_TRUE(chip().tamperDestroyPolicer(0, static_cast<int>(d.policerId())));
   verifyDefault("Ethernet1");
   // The entry still names the policer, so the attachment reads as it should.
   EXPECT_EQ(cli(),
             (std::vector<std::string>{
                 "Copp Policer (" + std::to_string(d.policerId()) + ") is not created in unit (0)",
                 "PolicerMode programmed 0 != configured 1",
                 "Policer Flags programmed 0 != configured 132",
                 "Policer CIR (kbps) programmed 0 != configured 1000",
                 "Policer BC (kb) programmed 0 != configured 100",
             }));
}

TEST_F(CoppVerify, PolicerThatNeverExistedFailsEveryCheck) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   helper()->verifyCoppPolicerData(0, d.entryId(), 4000, 300, 30);
   EXPECT_EQ(cli(),
             (std::vector<std::string>{
                 "Copp Policer (4000) is not created in unit (0)",
                 "PolicerMode programmed 0 != configured 1",
                 "Policer Flags programmed 0 != configured 132",
                 "Policer CIR (kbps) programmed 0 != configured 300",
                 "Policer BC (kb) programmed 0 != configured 30",
                 "Policer (4000) is not attached to entry( " + std::to_string(d.entryId()) + " )",
             }));
}

TEST_F(CoppVerify, EveryDifferenceIsReportedInCheckOrder) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   tamper(d.policerId(), [](auto& c) {
      c.ckbits_burst_is(1);
      c.ckbits_sec_is(2);
      c.mode_is(Shim::bcmPolicerModeSrTcm);
   });
   ASSERT_TRUE(chip().tamperDetachPolicer(0, static_cast<int>(d.entryId())));
   verifyDefault("Ethernet1");
   EXPECT_EQ(cli(), (std::vector<std::string>{
                        "PolicerMode programmed 0 != configured 1",
                        "Policer CIR (kbps) programmed 2 != configured 1000",
                        "Policer BC (kb) programmed 1 != configured 100",
                        "Policer (" + std::to_string(d.policerId()) +
                            ") is not attached to entry( " + std::to_string(d.entryId()) + " )",
                    }));
}

TEST_F(CoppVerify, ReadsAreTracedWithTheirReturnValue) {
   TraceCapture trace({"ApiNimbal"});
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   ASSERT_TRUE(chip().tamperDestroyPolicer(0, static_cast<int>(d.policerId())));
   verifyDefault("Ethernet1");
   ASSERT_EQ(trace.lines().size(), 2u);
   EXPECT_EQ(trace.lines()[0].level, 4);
   EXPECT_TRUE(std::regex_match(trace.lines()[0].text,
                                std::regex("NimbalQos/NimbalQosCoppVerify\\.cpp:[0-9]+ "
                                           "bcm_policer_get\\( unit, expPolicerId, &policerCfg \\) "
                                           "\\(rv:-7\\)")))
       << trace.lines()[0].text;
   EXPECT_TRUE(std::regex_match(
       trace.lines()[1].text,
       std::regex("NimbalQos/NimbalQosCoppVerify\\.cpp:[0-9]+ "
                  "bcm_field_entry_policer_get\\( unit, entry, 0, &policerId \\) \\(rv:0\\)")))
       << trace.lines()[1].text;
}

TEST_F(CoppVerify, ReadsAreMadeWithTheCallersLockHeld) {
   sdk().journalDelAll();
   verifyDefault("Ethernet1");
   ASSERT_EQ(sdk().journal().size(), 2u);
   for (auto const& call : sdk().journal()) {
      EXPECT_TRUE(call.lockHeld) << call.text();
      EXPECT_TRUE(call.afterPreCall) << call.text();
   }
}

TEST_F(CoppVerify, WithoutVerifyDataDifferencesAreDropped) {
   SimulationRun simulation;
   sw().scsd()->verifyDataIs(nullptr);
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   tamper(d.policerId(), [](auto& c) { c.ckbits_sec_is(1); });
   ASSERT_TRUE(chip().tamperDetachPolicer(0, static_cast<int>(d.entryId())));
   sdk().journalDelAll();
   // Even in a simulation run nothing ends: there is nowhere to record the differences.
   verifyDefault("Ethernet1");
   EXPECT_EQ(sdk().journalNames(),
             (std::vector<std::string>{"bcm_policer_get", "bcm_field_entry_policer_get"}));
   EXPECT_TRUE(verifyData()->cliVerifyOutput().empty());
   EXPECT_TRUE(verifyData()->verifyOutputs().empty());
}

TEST_F(CoppVerify, SimulationRecordsTheFirstDifferenceAndEnds) {
   SimulationRun simulation;
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   EXPECT_DEATH(
       {
          verifyDataAtAbort = verifyData().ptr();
          std::signal(SIGABRT, printVerifyDataOnAbort);
          helper()->verifyCoppPolicerData(0, d.entryId(), 4000, 300, 30);
       },
       AllOf(HasSubstr("Assertion `Copp Policer (4000) is not created in unit (0)' failed."),
             HasSubstr("recorded 1 cli 0\n"),
             ContainsRegex("output: Copp Policer \\(4000\\) is not created in unit \\(0\\)\\|"
                           "NimbalQos/NimbalQosCoppVerify\\.cpp\\|[0-9]+\\|verifyCoppPolicerData\\|"
                           "3\n")));
}

TEST_F(CoppVerify, SimulationEndsOnALaterDifferenceToo) {
   SimulationRun simulation;
   tamper(defaultOf("Ethernet1").policerId(), [](auto& c) { c.ckbits_burst_is(9); });
   EXPECT_DEATH(
       {
          verifyDataAtAbort = verifyData().ptr();
          std::signal(SIGABRT, printVerifyDataOnAbort);
          verifyDefault("Ethernet1");
       },
       AllOf(HasSubstr("Assertion `Policer BC (kb) programmed 9 != configured 100' failed."),
             HasSubstr("recorded 1 cli 0\n"),
             HasSubstr("output: Policer BC (kb) programmed 9 != configured 100|")));
}

TEST_F(CoppVerify, SimulationWithoutDifferencesRunsThrough) {
   SimulationRun simulation;
   verifyDefault("Ethernet1");
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_TRUE(verifyData()->verifyOutputs().empty());
   EXPECT_TRUE(verifyData()->cliVerifyOutput().empty());
}

// ---- Per-port default policers.

TEST_F(CoppVerify, ConsistentDefaultPolicersReportNothing) {
   sdk().journalDelAll();
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_TRUE(cli().empty());
   std::size_t const ports = helper()->portDefaultCoppPolicerHwData();
   EXPECT_EQ(ports, 8u);
   EXPECT_EQ(calls("bcm_policer_get"), ports);
   EXPECT_EQ(calls("bcm_field_entry_policer_get"), ports);
   EXPECT_EQ(calls("bcm_field_action_get"), ports);
}

TEST_F(CoppVerify, EachDefaultPolicerIsCheckedAndItsRedDropRead) {
   sdk().journalDelAll();
   helper()->verifyCoppPerPortDefaultPolicer();
   std::vector<std::string> expected;
   for (auto const& [intf, hwData] : helper()->portDefaultCoppPolicerHwDataCol()) {
      std::string const entry = std::to_string(hwData.entryId());
      expected.push_back("bcm_policer_get(0, " + std::to_string(hwData.policerId()));
      expected.push_back("bcm_field_entry_policer_get(0, " + entry + ", 0");
      expected.push_back("bcm_field_action_get(0, " + entry + ", 52");
   }
   std::vector<std::string> const texts = sdk().journalTexts();
   ASSERT_EQ(texts.size(), expected.size());
   for (std::size_t i = 0; i < texts.size(); ++i) {
      EXPECT_EQ(texts[i].rfind(expected[i], 0), 0u) << texts[i] << " vs " << expected[i];
   }
}

TEST_F(CoppVerify, TamperedDefaultPolicerIsReported) {
   tamper(defaultOf("Ethernet3").policerId(), [](auto& c) { c.ckbits_sec_is(5); });
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_EQ(cli(),
             (std::vector<std::string>{"Policer CIR (kbps) programmed 5 != configured 1000"}));
}

TEST_F(CoppVerify, DefaultPolicerChecksHoldTheActivityLock) {
   Kiv::UnlockAnchor released(Kiv::activityLock());
   ASSERT_FALSE(Kiv::activityLock().held());
   sdk().journalDelAll();
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_FALSE(Kiv::activityLock().held());
   ASSERT_FALSE(sdk().journal().empty());
   for (auto const& call : sdk().journal()) {
      EXPECT_TRUE(call.lockHeld) << call.text();
   }
}

TEST_F(CoppVerify, DefaultActionReadIsTraced) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   helper()->portDefaultCoppPolicerHwDataDelAll();
   helper()->portDefaultCoppPolicerHwDataIs("Ethernet1", d);
   TraceCapture trace({"ApiNimbal"});
   helper()->verifyCoppPerPortDefaultPolicer();
   ASSERT_EQ(trace.lines().size(), 3u);
   EXPECT_TRUE(std::regex_match(
       trace.lines()[2].text,
       std::regex("NimbalQos/NimbalQosCoppVerify\\.cpp:[0-9]+ bcm_field_action_get\\( unit, "
                  "iter->entryId\\(\\), bcmFieldActionRpDrop, &actionValue, &param \\) "
                  "\\(rv:0\\)")))
       << trace.lines()[2].text;
}

TEST_F(CoppVerify, DefaultEntryWithoutRedDropIsFatal) {
   sdk().failNextCallIs("bcm_field_action_get", Shim::BCM_E_NOT_FOUND);
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(),
                "Assertion `ret == ::Shim::sdk_->QV_BCM_E_NONE\\(\\)' failed");
}

TEST_F(CoppVerify, DefaultRedDropWithAParameterIsFatal) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   ASSERT_EQ(sdk().bcm_field_action_add(0, static_cast<int>(d.entryId()),
                                        Shim::bcmFieldActionRpDrop, 3, 0),
             0);
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(), "Assertion `actionValue == 0' failed");
}

TEST_F(CoppVerify, EmptyDefaultsDoNothingEvenWithVxlanDefaults) {
   helper()->portDefaultCoppPolicerHwDataDelAll();
   helper()->portDefaultCoppPolicerVxlanHwDataIs("Ethernet1", NimbalQosPolicerHwData(1, 2, 3, 4));
   sdk().journalDelAll();
   TraceCapture trace({"ApiNimbal", "NimbalQosSm"});
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(trace.lines().empty());
   EXPECT_TRUE(cli().empty());
}

class CoppVerifyVxlanDefault : public CoppVerify {
  protected:
   void SetUp() override {
      CoppVerify::SetUp();
      // Only Ethernet1 keeps its default, with a VXLAN default beside it.
      NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
      helper()->portDefaultCoppPolicerHwDataDelAll();
      helper()->portDefaultCoppPolicerHwDataIs("Ethernet1", d);
      vxlan_ = vxlanEntry(768 + 1, 1, defaultRate, defaultBurst);
      helper()->portDefaultCoppPolicerVxlanHwDataIs(
          "Ethernet1",
          NimbalQosPolicerHwData(defaultRate, defaultBurst, vxlan_.entry, vxlan_.policer));
   }
   KernelEntry vxlan_;
};

TEST_F(CoppVerifyVxlanDefault, VxlanDefaultIsCheckedWithThePortsRate) {
   sdk().journalDelAll();
   TraceCapture trace({"ApiNimbal"});
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_TRUE(cli().empty());
   EXPECT_EQ(calls("bcm_policer_get"), 2u);
   std::vector<std::string> const actionReads = sdk().journalTexts("bcm_field_action_get");
   ASSERT_EQ(actionReads.size(), 2u);
   EXPECT_EQ(
       actionReads[1].rfind("bcm_field_action_get(0, " + std::to_string(vxlan_.entry) + ", 52", 0),
       0u)
       << actionReads[1];
   ASSERT_EQ(trace.lines().size(), 6u);
   EXPECT_TRUE(std::regex_match(
       trace.lines()[5].text,
       std::regex("NimbalQos/NimbalQosCoppVerify\\.cpp:[0-9]+ bcm_field_action_get\\( unit, "
                  "vxlanData\\.entryId\\(\\), bcmFieldActionRpDrop, &actionValue, &param \\) "
                  "\\(rv:0\\)")))
       << trace.lines()[5].text;
}

TEST_F(CoppVerifyVxlanDefault, TamperedVxlanDefaultIsReported) {
   tamper(vxlan_.policer, [](auto& c) { c.ckbits_burst_is(7); });
   helper()->verifyCoppPerPortDefaultPolicer();
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer BC (kb) programmed 7 != configured 100"}));
}

TEST_F(CoppVerifyVxlanDefault, VxlanDefaultWithAnotherRateIsFatal) {
   helper()->portDefaultCoppPolicerVxlanHwDataIs(
       "Ethernet1",
       NimbalQosPolicerHwData(defaultRate + 1, defaultBurst, vxlan_.entry, vxlan_.policer));
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(),
                "Assertion `vxlanData.policerRate\\(\\) == iter->policerRate\\(\\)' failed");
}

TEST_F(CoppVerifyVxlanDefault, VxlanDefaultWithAnotherBurstIsFatal) {
   helper()->portDefaultCoppPolicerVxlanHwDataIs(
       "Ethernet1",
       NimbalQosPolicerHwData(defaultRate, defaultBurst + 1, vxlan_.entry, vxlan_.policer));
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(),
                "Assertion `vxlanData.policerBurst\\(\\) == iter->policerBurst\\(\\)' failed");
}

TEST_F(CoppVerifyVxlanDefault, VxlanDefaultWithoutRedDropIsFatal) {
   KernelEntry const bare = vxlanEntry(768 + 2, 2, defaultRate, defaultBurst, false);
   helper()->portDefaultCoppPolicerVxlanHwDataIs(
       "Ethernet1", NimbalQosPolicerHwData(defaultRate, defaultBurst, bare.entry, bare.policer));
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(),
                "Assertion `ret == ::Shim::sdk_->QV_BCM_E_NONE\\(\\)' failed");
}

TEST_F(CoppVerify, DefaultOfAnInterfaceWithoutPortIsReadOnNoUnit) {
   SimulationRun simulation;
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   helper()->portDefaultCoppPolicerHwDataDelAll();
   helper()->portDefaultCoppPolicerHwDataIs("Ethernet99", d);
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(),
                "Assertion `Copp Policer \\(" + std::to_string(d.policerId()) +
                    "\\) is not created in unit \\(65535\\)' failed");
}

class CoppVerifyFabric : public CoppVerify {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.fabricInterfaces = {{"Fabric1", 0, 20}};
      return config;
   }
};

TEST_F(CoppVerifyFabric, DefaultOfAFabricInterfaceIsReadOnNoUnit) {
   SimulationRun simulation;
   NimbalQosPolicerHwData const d = defaultOf("Fabric1");
   ASSERT_NE(d, NimbalQosPolicerHwData());
   helper()->portDefaultCoppPolicerHwDataDelAll();
   helper()->portDefaultCoppPolicerHwDataIs("Fabric1", d);
   EXPECT_DEATH(helper()->verifyCoppPerPortDefaultPolicer(),
                "is not created in unit \\(65535\\)' failed");
}

TEST_F(CoppVerifyFabric, ClassOnAFabricInterfaceIsSkipped) {
   sdk().journalDelAll();
   helper()->verifyPolicer(coppClass("Fabric1", coppKey("copp-system-arp")));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(cli().empty());
}

// ---- CoPP classes.

TEST_F(CoppVerify, ConsistentClassReportsNothingAndTraces) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   KernelEntry const k = armedClass(cls, 8);
   helper()->baseCallsDelAll();
   TraceCapture trace({"NimbalQosSm"});
   sdk().journalDelAll();
   helper()->verifyPolicer(cls);
   EXPECT_TRUE(cli().empty());
   std::ostringstream key;
   key << cls->key();
   ASSERT_EQ(trace.lines().size(), 1u);
   EXPECT_EQ(trace.lines()[0].level, 4);
   EXPECT_EQ(trace.lines()[0].text,
             "QosAclHelperV1( " + key.str() + " )::verifyCoppPolicer Verified copp policer data: " +
                 std::to_string(k.policer) + " in unit 0 CIR(pps): 300 BC(packets): 30");
   EXPECT_EQ(key.str(), "copp-system-policy,0,copp-system-arp,0");
   EXPECT_EQ(helper()->baseCalls(),
             (std::vector<std::string>{"QosAclHelper::verifyPolicerActions"}));
   EXPECT_EQ(sdk().journalTexts("bcm_policer_get").size(), 1u);
   EXPECT_EQ(sdk().journalTexts("bcm_policer_get")[0].rfind(
                 "bcm_policer_get(0, " + std::to_string(k.policer), 0),
             0u);
}

TEST_F(CoppVerify, TamperedClassPolicerIsReported) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   KernelEntry const k = armedClass(cls, 8);
   tamper(k.policer, [](auto& c) { c.ckbits_sec_is(3000); });
   helper()->verifyPolicer(cls);
   EXPECT_EQ(cli(),
             (std::vector<std::string>{"Policer CIR (kbps) programmed 3000 != configured 300"}));
}

TEST_F(CoppVerify, DetachedClassPolicerIsReported) {
   auto const cls = coppClass("Ethernet2", coppKey("copp-system-bgp"), 800, 80);
   KernelEntry const k = armedClass(cls, 1);
   ASSERT_TRUE(chip().tamperDetachPolicer(0, static_cast<int>(k.entry)));
   helper()->verifyPolicer(cls);
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer (" + std::to_string(k.policer) +
                                              ") is not attached to entry( " +
                                              std::to_string(k.entry) + " )"}));
}

TEST_F(CoppVerify, ClassOnAnInterfaceWithoutPortIsSkipped) {
   helper()->baseCallsDelAll();
   sdk().journalDelAll();
   TraceCapture trace({"NimbalQosSm", "ApiNimbal"});
   helper()->verifyPolicer(coppClass("Ethernet99", coppKey("copp-unknown"), 300, 30, 47));
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(trace.lines().empty());
   EXPECT_TRUE(cli().empty());
   EXPECT_TRUE(helper()->baseCalls().empty());
}

TEST_F(CoppVerify, ClassWithoutKernelEntryIsSkipped) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   ASSERT_TRUE(helper()->createAndAttachCoppPolicer(cls));
   helper()->baseCallsDelAll();
   sdk().journalDelAll();
   TraceCapture trace({"NimbalQosSm", "ApiNimbal"});
   helper()->verifyPolicer(cls);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(trace.lines().empty());
   EXPECT_TRUE(cli().empty());
   EXPECT_TRUE(helper()->baseCalls().empty());
}

TEST_F(CoppVerify, PoliceActionNotMeantForHardwareIsSkipped) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   helper()
       ->coppIntfPolicerData(Orvik::IntfId("Ethernet1"))
       ->policerDataCol(cls->key())
       ->isDynamicIs(false);
   cls->policerData()->hwProgrammedIs(false);
   // Differences in the kernel configuration do not matter either.
   cls->policerData()->cirIs(1);
   sdk().journalDelAll();
   helper()->verifyPolicer(cls);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(cli().empty());
}

TEST_F(CoppVerify, VxlanSourcePortEntryIsVerifiedToo) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   KernelEntry const k = armedClass(cls, 8);
   KernelEntry const vx = vxlanEntry(256, 1, 300, 30);
   auto const record = helper()->kernelDynamicCoppVxlanDataIs(ModIdPortQueueKey(0, 1, 8));
   record->entryIs(vx.entry);
   record->policerIdIs(vx.policer);
   helper()->baseCallsDelAll();
   TraceCapture trace({"NimbalQosSm"});
   helper()->verifyPolicer(cls);
   EXPECT_TRUE(cli().empty());
   ASSERT_EQ(trace.lines().size(), 2u);
   EXPECT_THAT(trace.lines()[0].text,
               HasSubstr(")::verifyCoppPolicer Verified copp policer data: " +
                         std::to_string(k.policer) + " in unit 0 CIR(pps): 300 BC(packets): 30"));
   EXPECT_EQ(trace.lines()[1].text,
             "QosAclHelperV1( copp-system-policy,0,copp-system-arp,0 )::verifyCoppPolicer Verified "
             "copp policer data (vxlan): " +
                 std::to_string(vx.policer) + " in unit 0 CIR(pps): 300 BC(packets): 30");
   EXPECT_EQ(helper()->baseCalls(),
             (std::vector<std::string>{"QosAclHelper::verifyPolicerActions",
                                       "QosAclHelper::verifyPolicerActions"}));
   tamper(vx.policer, [](auto& c) { c.ckbits_burst_is(31); });
   helper()->verifyPolicer(cls);
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer BC (kb) programmed 31 != configured 30"}));
}

TEST_F(CoppVerify, VxlanRecordAloneIsNotVerified) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   ASSERT_TRUE(helper()->createAndAttachCoppPolicer(cls));
   auto const record = helper()->kernelDynamicCoppVxlanDataIs(ModIdPortQueueKey(0, 1, 8));
   record->entryIs(4000);
   record->policerIdIs(4000);
   sdk().journalDelAll();
   helper()->verifyPolicer(cls);
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_TRUE(cli().empty());
}

TEST_F(CoppVerify, NonCoppClassGoesToTheAgentsCheck) {
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(
       QosClassDataKey("pmap-qos", Qos::mapQos_, Qos::input_, "cmap-qos", Qos::mapQos_)));
   cls->intfIdIs("Ethernet1");
   sdk().journalDelAll();
   helper()->baseCallsDelAll();
   helper()->verifyPolicer(cls);
   EXPECT_EQ(helper()->baseCalls(), (std::vector<std::string>{"QosAclHelper::verifyPolicer"}));
   EXPECT_TRUE(sdk().journal().empty());
}

TEST_F(CoppVerify, DispatchFollowsTheClassMapType) {
   // A control-plane policy map with a QoS class map is not a CoPP class here.
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp", Qos::mapQos_));
   helper()->baseCallsDelAll();
   helper()->verifyPolicer(cls);
   EXPECT_EQ(helper()->baseCalls(), (std::vector<std::string>{"QosAclHelper::verifyPolicer"}));
}

// ---- Broken state of the helper ends the agent.

TEST_F(CoppVerify, ClassWithoutAnyQueueIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-unknown"));
   EXPECT_DEATH(helper()->verifyPolicer(cls), "Assertion `cpuQId >= 0' failed");
}

TEST_F(CoppVerify, ClassOnAFreeQueueIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-user"), 300, 30, 40);
   EXPECT_DEATH(helper()->verifyPolicer(cls), "Assertion `cpuQ->allocated\\(\\)' failed");
}

TEST_F(CoppVerify, ClassOnAQueueOfAnotherPolicyMapIsFatal) {
   Kiv::Ptr<Qos::PolicyMapStatus> pmap(
       new Qos::PolicyMapStatus(Qos::MapKey(Qos::mapControlPlane_, "other-policy")));
   Kiv::Ptr<Qos::ClassMapStatus> cmap(
       new Qos::ClassMapStatus(Qos::MapKey(Qos::mapControlPlane_, "copp-user")));
   ASSERT_EQ(sw().mmuSm()->allocateDynamicCpuQ(pmap, cmap), 40);
   auto const cls = coppClass("Ethernet1", coppKey("copp-user"), 300, 30, 40);
   EXPECT_DEATH(helper()->verifyPolicer(cls),
                "Assertion `cpuQ->pmapName\\(\\) == mmuSm\\(\\)->coppPMapName\\(\\)' failed");
}

TEST_F(CoppVerify, ClassMapTypeOtherThanTheQueuesIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp", Qos::mapQos_), 300, 30, 8);
   EXPECT_DEATH(helper()->verifyCoppPolicer(cls),
                "Assertion `cpuQ->cmapType\\(\\) == key.cmapType\\(\\)' failed");
}

TEST_F(CoppVerify, ClassOnAnotherClassesQueueIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"), 300, 30, 1);
   EXPECT_DEATH(helper()->verifyPolicer(cls),
                "Assertion `cpuQ->cmapName\\(\\) == key.cmapName\\(\\)' failed");
}

TEST_F(CoppVerify, ClassWithoutInterfacePolicersIsFatal) {
   auto const cls = coppClass("Ethernet2", coppKey("copp-system-arp"));
   EXPECT_DEATH(helper()->verifyPolicer(cls), "Assertion `pDataCol' failed");
}

TEST_F(CoppVerify, ClassPolicerNotWrittenByTheCoppCodeIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   helper()
       ->coppIntfPolicerData(Orvik::IntfId("Ethernet1"))
       ->policerDataCol(cls->key())
       ->isDynamicIs(false);
   EXPECT_DEATH(helper()->verifyPolicer(cls), "Assertion `pData->isDynamic\\(\\)' failed");
}

TEST_F(CoppVerify, DisabledKernelCoppIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   sw().kernelCoppConfig()->coppInfoIs(ModIdPortQueueKey(0, 1, 8),
                                       Oskel::CoppInfo(300, 20, 30, false));
   EXPECT_DEATH(helper()->verifyPolicer(cls), "Assertion `coppInfo.enabled\\(\\)' failed");
}

TEST_F(CoppVerify, KernelRateOtherThanTheClassRateIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   cls->policerData()->cirIs(301);
   EXPECT_DEATH(helper()->verifyPolicer(cls),
                "Assertion `coppInfo.rateInPps\\(\\) == policerData->cir\\(\\)' failed");
}

TEST_F(CoppVerify, ClassRateBeyond32BitsIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   // Its low half is the kernel's rate.
   cls->policerData()->cirIs((U64{1} << 32) + 300);
   EXPECT_DEATH(helper()->verifyPolicer(cls),
                "Assertion `coppInfo.rateInPps\\(\\) == policerData->cir\\(\\)' failed");
}

TEST_F(CoppVerify, KernelBurstOtherThanTheClassBurstIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   cls->policerData()->bcIs(31);
   EXPECT_DEATH(helper()->verifyPolicer(cls),
                "Assertion `coppInfo.burstPkts\\(\\) == policerData->bc\\(\\)' failed");
}

TEST_F(CoppVerify, ClassRateNotInPacketsIsFatal) {
   auto const cls = coppClass("Ethernet1", coppKey("copp-system-arp"));
   armedClass(cls, 8);
   cls->policerData()->cirUnitIs(Qos::rateUnitKbps_);
   EXPECT_DEATH(helper()->verifyPolicer(cls),
                "Assertion `policerData->cirUnit\\(\\) == Qos::rateUnitPps_' failed");
}

// ---- By name, as the agent's CLI reaches them.

TEST_F(CoppVerify, DefaultPolicersAreVerifiedByName) {
   tamper(defaultOf("Ethernet4").policerId(), [](auto& c) { c.ckbits_burst_is(3); });
   EXPECT_EQ(Kiv::invoke(*helper(), "verifyCoppPerPortDefaultPolicer", {}), "");
   EXPECT_EQ(cli(), (std::vector<std::string>{"Policer BC (kb) programmed 3 != configured 100"}));
}

TEST_F(CoppVerify, OnePolicerIsVerifiedByName) {
   NimbalQosPolicerHwData const d = defaultOf("Ethernet1");
   std::string const entry = std::to_string(d.entryId());
   std::string const policer = std::to_string(d.policerId());
   EXPECT_EQ(Kiv::invoke(*helper(), "verifyCoppPolicerData", {"0", entry, policer, "1000", "100"}),
             "");
   EXPECT_TRUE(cli().empty());
   EXPECT_EQ(Kiv::invoke(*helper(), "verifyCoppPolicerData", {"0", entry, policer, "999", "100"}),
             "");
   EXPECT_EQ(cli(),
             (std::vector<std::string>{"Policer CIR (kbps) programmed 1000 != configured 999"}));
}

TEST_F(CoppVerify, EveryCoppClassAndTheDefaultsAreVerifiedByName) {
   auto const arp = coppClass("Ethernet1", coppKey("copp-system-arp"));
   KernelEntry const k = armedClass(arp, 8);
   Kiv::Ptr<Oskel::QosClassData> qos(new Oskel::QosClassData(
       QosClassDataKey("pmap-qos", Qos::mapQos_, Qos::input_, "cmap-qos", Qos::mapQos_)));
   qos->intfIdIs("Ethernet1");
   helper()->qosClassDataIs(arp->key(), arp);
   helper()->qosClassDataIs(qos->key(), qos);
   tamper(k.policer, [](auto& c) { c.ckbits_burst_is(29); });
   tamper(defaultOf("Ethernet2").policerId(), [](auto& c) { c.ckbits_sec_is(7); });
   helper()->baseCallsDelAll();
   EXPECT_EQ(Kiv::invoke(*helper(), "verifyCopp", {}), "");
   EXPECT_EQ(cli(),
             (std::vector<std::string>{"Policer BC (kb) programmed 29 != configured 30",
                                       "Policer CIR (kbps) programmed 7 != configured 1000"}));
   EXPECT_EQ(helper()->baseCalls(),
             (std::vector<std::string>{"QosAclHelper::verifyPolicerActions"}));
}

}  // namespace
