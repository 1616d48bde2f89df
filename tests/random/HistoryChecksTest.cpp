// The checks of the random histories catch what they are there to catch: each test breaks one
// thing behind the model's back and expects the invariant that guards it to report it.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "Kiv/Activity.h"
#include "Oskel/VerifyData.h"
#include "random/HistoryRunner.h"

namespace {

using NimbalHistory::HistoryRunner;
using NimbalHistory::HistoryStep;
using NimbalHistory::Key;
using NimbalHistory::Violation;
namespace step = NimbalHost::step;

template <class Action>
HistoryStep scenarioStep(int number, char const* name, Action action) {
   NimbalHost::ScenarioStep s;
   s.number = number;
   s.name = name;
   s.action = std::move(action);
   return HistoryStep{number, s};
}

class HistoryChecksTest : public ::testing::Test {
  protected:
   // Four front-panel interfaces on one unit, the built-in CPU queues, the VXLAN workaround.
   void SetUp() override {
      NimbalHistory::RandomSwitch rs;
      rs.sw.modules = {{0, 0}};
      for (U16 port = 1; port <= 4; ++port) {
         rs.sw.interfaces.push_back({"Ethernet" + std::to_string(port), 0, port});
      }
      rs.sw.cpuQueues = Nimbal::builtInCpuQTable();
      rs.sw.vxlanWorkaround = true;
      rs.dynamicClasses = {"copp-user-1"};
      runner_ = std::make_unique<HistoryRunner>(5, 0, rs);
   }

   bool play(HistoryStep const& s) { return runner_->play(s); }
   int next() { return ++number_; }
   bool police(std::string const& intf, std::string const& cmap, U32 cir, U32 bc) {
      return play(scenarioStep(next(), "police", step::Police{intf, cmap, cir, bc}));
   }

   static bool has(std::vector<Violation> const& v, std::string const& invariant) {
      return std::any_of(v.begin(), v.end(),
                         [&](Violation const& x) { return x.invariant == invariant; });
   }
   static std::string text(std::vector<Violation> const& v) {
      std::string out;
      for (Violation const& x : v) {
         out += x.invariant + ": " + x.detail + "\n";
      }
      return out;
   }

   NimbalHost::Switch& sw() { return runner_->agent().sw(); }
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper() { return sw().helper(); }
   // The kernel record of Ethernet1's BGP queue.
   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> bgpRecord() {
      return helper()->kernelDynamicCoppData(Key(0, 1, 1));
   }

   Kiv::ActivityScope activity_;
   std::unique_ptr<HistoryRunner> runner_;
   int number_ = 0;
};

TEST_F(HistoryChecksTest, ConsistentSwitchKeepsEveryInvariant) {
   ASSERT_TRUE(police("Ethernet1", "copp-system-bgp", 300, 30)) << runner_->failure();
   ASSERT_TRUE(play(scenarioStep(next(), "vxlan", step::Vxlan{true}))) << runner_->failure();
   ASSERT_TRUE(play(scenarioStep(next(), "verify", step::Verify{}))) << runner_->failure();
   EXPECT_TRUE(runner_->checkNow().empty()) << text(runner_->checkNow());
}

TEST_F(HistoryChecksTest, EntryWithoutARecordIsReported) {
   Shim::bcm_field_entry_t id = 0;
   ASSERT_EQ(sw().sdk().bcm_field_entry_create(0, 40, &id), Shim::BCM_E_NONE);
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "no entry or meter without a record")) << text(v);
}

TEST_F(HistoryChecksTest, MeterWithoutARecordIsReported) {
   Shim::bcm_policer_config_s config;
   Shim::bcm_policer_t id = 0;
   ASSERT_EQ(sw().sdk().bcm_policer_create(0, &config, &id), Shim::BCM_E_NONE);
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "no entry or meter without a record")) << text(v);
}

TEST_F(HistoryChecksTest, KernelMeterAtAnotherRateIsReported) {
   ASSERT_TRUE(police("Ethernet1", "copp-system-bgp", 300, 30)) << runner_->failure();
   Shim::Policer const* p = sw().chip().policer(0, static_cast<int>(bgpRecord()->policerId()));
   ASSERT_NE(p, nullptr);
   Shim::bcm_policer_config_s config = p->config;
   config.ckbits_sec_is(301);
   sw().chip().tamperPolicer(0, p->id, config);
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "kernel entry")) << text(v);
}

TEST_F(HistoryChecksTest, DefaultPolicerThatMissedAClassRateIsReported) {
   ASSERT_TRUE(police("Ethernet2", "copp-system-bgp", 800, 80)) << runner_->failure();
   // As if the default had not followed the class: the configured rate instead of 2 x 800.
   Nimbal::NimbalQosPolicerHwData const d = helper()->portDefaultCoppPolicerHwData("Ethernet2");
   Shim::bcm_policer_config_s config =
       sw().chip().policer(0, static_cast<int>(d.policerId()))->config;
   config.ckbits_sec_is(1000);
   sw().chip().tamperPolicer(0, static_cast<int>(d.policerId()), config);
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "per-port default policer")) << text(v);
}

TEST_F(HistoryChecksTest, PoolEntryWithoutASourcePortRecordIsReported) {
   ASSERT_TRUE(play(scenarioStep(next(), "vxlan", step::Vxlan{true}))) << runner_->failure();
   helper()->coppVxlanDynEntryInUseIs(NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex + 700, true);
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "VXLAN entry pool")) << text(v);
}

TEST_F(HistoryChecksTest, MissingVxlanEntryThatNobodyRetriesIsReported) {
   ASSERT_TRUE(play(scenarioStep(next(), "vxlan", step::Vxlan{true}))) << runner_->failure();
   helper()->kernelDynamicCoppVxlanDataDel(Key(0, 1, 1));
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "missing VXLAN entries are retried")) << text(v);
   EXPECT_TRUE(has(v, "no entry or meter without a record")) << text(v);
}

TEST_F(HistoryChecksTest, KeyThatWaitsWithRoomLeftIsReported) {
   // Behind the model's back every create fails; a rate change leaves the key waiting.
   helper()->createCoppPolicerAlwaysFalseIs(true);
   ASSERT_TRUE(police("Ethernet1", "copp-system-bgp", 300, 30)) << runner_->failure();
   EXPECT_TRUE(runner_->checkNow().empty());
   std::vector<Violation> const v = runner_->checkNow(true);
   EXPECT_TRUE(has(v, "waiting kernel keys")) << text(v);
}

TEST_F(HistoryChecksTest, CountsThatMoveWithoutTrafficAreReported) {
   sw().pktDrv()->ddeCoppCountersIs(0, 1, 1, 5, 5);
   EXPECT_FALSE(play(scenarioStep(next(), "advance", step::Advance{1})));
   EXPECT_NE(runner_->failure().find("invariant \"packet driver counters\""), std::string::npos)
       << runner_->failure();
}

TEST_F(HistoryChecksTest, HitsWithoutTrafficAreReported) {
   // A packet that the agent did not send.
   sw().chip().sendToCpu(0, 1, 1, 0);
   EXPECT_FALSE(play(scenarioStep(next(), "advance", step::Advance{1})));
   EXPECT_NE(runner_->failure().find("invariant \"hit counters move only with traffic\""),
             std::string::npos)
       << runner_->failure();
}

TEST_F(HistoryChecksTest, VerifyThatMissesATamperedMeterIsReported) {
   ASSERT_TRUE(police("Ethernet1", "copp-system-bgp", 300, 30)) << runner_->failure();
   // The model is told of this one: verify must report it, and does.
   ASSERT_TRUE(play(scenarioStep(next(), "tamper", step::Tamper{"Ethernet1", 1, 9, 30})))
       << runner_->failure();
   ASSERT_TRUE(play(scenarioStep(next(), "verify", step::Verify{}))) << runner_->failure();
   // This one the model does not know of: verify's report is now one more than expected.
   Shim::Policer const* p = sw().chip().policer(0, static_cast<int>(bgpRecord()->policerId()));
   Shim::bcm_policer_config_s config = p->config;
   config.ckbits_burst_is(31);
   sw().chip().tamperPolicer(0, p->id, config);
   EXPECT_FALSE(play(scenarioStep(next(), "verify", step::Verify{})));
   EXPECT_NE(runner_->failure().find("invariant \"verify\" broken: 2 differences"),
             std::string::npos)
       << runner_->failure();
}

TEST_F(HistoryChecksTest, SoftwareCountTheModelDidNotFoldIsReportedInTheShowTable) {
   ASSERT_TRUE(police("Ethernet1", "copp-system-bgp", 300, 30)) << runner_->failure();
   helper()
       ->coppIntfCounterData("Ethernet1")
       ->qCounterColIs(1, Nimbal::NimbalQosCoppQCounterData(7));
   EXPECT_FALSE(play(scenarioStep(next(), "show", step::Show{true})));
   EXPECT_NE(runner_->failure().find("invariant \"software hit counts\""), std::string::npos)
       << runner_->failure();
   EXPECT_NE(runner_->failure().find("invariant \"show tables\" broken: hardware table: "
                                     "Ethernet1 CoppSystemBgp shows 7, expected no row"),
             std::string::npos)
       << runner_->failure();
}

TEST_F(HistoryChecksTest, KernelKeyTheAgentDidNotPublishIsReported) {
   sw().kernelCoppConfig()->coppInfoIs(Key(0, 2, 45), Oskel::CoppInfo(10, 6, 10, true));
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "kernel CoPP configuration")) << text(v);
   EXPECT_TRUE(has(v, "kernel entry")) << text(v);
}

TEST_F(HistoryChecksTest, TeardownLeavesOnlyTheDefaultEntries) {
   ASSERT_TRUE(police("Ethernet1", "copp-user-1", 300, 30)) << runner_->failure();
   ASSERT_TRUE(play(scenarioStep(next(), "vxlan", step::Vxlan{true}))) << runner_->failure();
   ASSERT_TRUE(play(scenarioStep(next(), "recirc", step::Recirc{"Ethernet2", true})))
       << runner_->failure();
   EXPECT_TRUE(runner_->teardown()) << runner_->failure();
   EXPECT_EQ(sw().chip().entries(0, 40).size(), 0u);
   EXPECT_EQ(sw().chip().entries(0, 41).size(), 4u);
   EXPECT_EQ(sw().chip().policers(0), 4u);
}

TEST_F(HistoryChecksTest, QueueHeldBehindTheModelsBackIsReported) {
   Kiv::Ptr<Oskel::QosClassData> const classData =
       new Oskel::QosClassData(runner_->agent().classes().classKey("copp-user-9"));
   sw().qosStatus()
       ->pmapStatusIs(Qos::mapControlPlane_, sw().mmuSm()->coppPMapName())
       ->cmapStatusIs(Qos::mapControlPlane_, "copp-user-9");
   ASSERT_GE(helper()->coppAllocateCpuQ(classData), 0);
   std::vector<Violation> const v = runner_->checkNow();
   EXPECT_TRUE(has(v, "CPU queues")) << text(v);
   EXPECT_FALSE(runner_->teardown());
   EXPECT_NE(runner_->failure().find("dynamic queue 40 has 1 users (copp-user-9), expected 0"),
             std::string::npos)
       << runner_->failure();
}

TEST(RandomHistoryReplay, SameSeedGivesTheSameHistoryAndAShorterRunItsBeginning) {
   Kiv::ActivityScope activity;
   std::vector<std::string> first;
   std::vector<std::string> again;
   std::vector<std::string> shorter;
   std::vector<std::string> other;
   for (auto [seed, steps, out] :
        {std::tuple{U64{21}, 150, &first}, std::tuple{U64{21}, 150, &again},
         std::tuple{U64{21}, 60, &shorter}, std::tuple{U64{22}, 150, &other}}) {
      HistoryRunner runner(seed, steps);
      ASSERT_TRUE(runner.run()) << runner.failure();
      *out = runner.stepTexts();
   }
   EXPECT_EQ(first, again);
   ASSERT_GE(first.size(), 150u);
   EXPECT_EQ(std::vector<std::string>(first.begin(), first.begin() + 60),
             std::vector<std::string>(shorter.begin(), shorter.begin() + 60));
   EXPECT_NE(first, other);
}

TEST(RandomHistoryAbort, AnAbortNamesTheHistoryAndHowToReplayIt) {
   EXPECT_DEATH(
       {
          NimbalHistory::historyAbortReportIs();
          NimbalHistory::historyContextIs(5, 3, 10, "{\"verify\": {}}");
          std::abort();
       },
       "the agent ended in random history seed 5, step 3: \\{\"verify\": \\{\\}\\}\n"
       "replay: nimbal_random_histories --seed=5 --steps=3");
}

}  // namespace
