#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "SourceTree.h"
#include "host/agent/SimAgent.h"
#include "host/preflight/Preflight.h"
#include "host/scenario/Demo.h"
#include "unit/TestScenarios.h"

// The preflight's verdict must agree with what the run then does: the shortfall it predicts is
// the resource-full messages the run raises and the keys the run leaves unprogrammed.

namespace {

using NimbalHost::Preflight;
using NimbalHost::Scenario;
using Key = NimbalHost::CoppKey;

// What a run raised and reported, from its events.
class RunRecord : public NimbalHost::TranscriptWriter {
  public:
   void write(NimbalHost::TranscriptEvent const& e) override {
      namespace ev = NimbalHost::event;
      if (auto const* log = std::get_if<ev::Log>(&e.what)) {
         full += log->key == "QOS_COPP_HW_RESOURCE_FULL" ? 1 : 0;
         normal += log->key == "QOS_COPP_HW_RESOURCE_NORMAL" ? 1 : 0;
      } else if (auto const* k = std::get_if<ev::KernelCopp>(&e.what)) {
         keysWaited = keysWaited || !k->waiting.empty();
      } else if (std::holds_alternative<ev::ClassNotProgrammed>(e.what)) {
         classWithoutQueue = true;
      } else if (auto const* s = std::get_if<ev::StartUp>(&e.what)) {
         defaultPolicerMissing = !s->interfacesWithoutDefaultPolicer.empty();
      }
   }
   bool somethingDidNotFit() const {
      return full > 0 || keysWaited || classWithoutQueue || defaultPolicerMissing;
   }

   std::size_t full = 0;
   std::size_t normal = 0;
   bool keysWaited = false;
   bool classWithoutQueue = false;
   bool defaultPolicerMissing = false;
};

class PreflightTest : public ::testing::Test {
  protected:
   void expectVerdictOfTheRun(Scenario const& scenario) {
      Preflight const p = NimbalHost::preflight(scenario);
      ASSERT_FALSE(p.stopStep) << p.text;
      RunRecord run;
      NimbalHost::SimAgent agent(scenario, run);
      agent.run();
      EXPECT_EQ(p.fits, !run.somethingDidNotFit()) << p.text;
      EXPECT_EQ(p.resourceFullLogs, run.full);
      EXPECT_EQ(p.resourceNormalLogs, run.normal);
      EXPECT_EQ(p.waitingKeysAtEnd, agent.kernelCopp().failed());
      std::set<Key> withoutVxlan;
      Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent.sw().helper();
      if (scenario.sw.vxlanWorkaround && agent.sw().scsd()->vxlanEnabled()) {
         for (Key const& key : helper->kernelDynamicCoppDataCol().keys()) {
            if (!helper->kernelDynamicCoppVxlanDataHas(key)) {
               withoutVxlan.insert(key);
            }
         }
      }
      EXPECT_EQ(p.keysWithoutVxlanEntryAtEnd, withoutVxlan);
      std::set<std::pair<std::string, std::string>> withoutQueue;
      for (auto const& [id, policed] : agent.classes().all()) {
         if (!policed.cpuQ) {
            withoutQueue.insert(id);
         }
      }
      EXPECT_EQ(p.classesWithoutQueueAtEnd, withoutQueue);
   }

   Kiv::ActivityScope activity_;
};

TEST_F(PreflightTest, VerdictOfEveryExampleIsThatOfItsRun) {
   expectVerdictOfTheRun(NimbalHost::demoScenario());
   for (auto const& entry : std::filesystem::directory_iterator(SourceTree::path("examples"))) {
      if (entry.path().extension() == ".json") {
         SCOPED_TRACE(entry.path().filename().string());
         expectVerdictOfTheRun(NimbalHost::scenarioFromFile(entry.path().string()));
      }
   }
}

TEST_F(PreflightTest, VerdictOfEveryBuiltCaseIsThatOfItsRun) {
   for (std::string const& file : NimbalTestScenarios::preflightCases()) {
      SCOPED_TRACE(file);
      expectVerdictOfTheRun(NimbalHost::scenarioFromFile(file));
   }
}

TEST_F(PreflightTest, VerdictOfRandomScenariosIsThatOfTheirRuns) {
   int fits = 0;
   int short_ = 0;
   for (unsigned seed = 100; seed < 130; ++seed) {
      Scenario scenario =
          NimbalHost::scenarioFromText(NimbalTestScenarios::randomScenario(seed), "random.json");
      Preflight const whole = NimbalHost::preflight(scenario);
      if (whole.stopStep) {
         continue;  // the run would end the test's process
      }
      SCOPED_TRACE("seed " + std::to_string(seed));
      expectVerdictOfTheRun(scenario);
      (whole.fits ? fits : short_) += 1;
   }
   // Both verdicts occur.
   EXPECT_GT(fits, 0);
   EXPECT_GT(short_, 0);
}

TEST_F(PreflightTest, VxlanExhaustionNamesTheKeysTheRunLeavesUnpoliced) {
   Scenario const scenario =
       NimbalHost::scenarioFromFile(SourceTree::path("examples/vxlan-exhaustion.json"));
   Preflight const p = NimbalHost::preflight(scenario);
   EXPECT_FALSE(p.fits);
   EXPECT_NE(p.text.find("  step 2 (vxlan on) at 0.000 s: 2 kernel CoPP keys have no VXLAN "
                         "source-port entry (no\n    default-and-VXLAN meter left); programmed in "
                         "step 7 at 120.000 s\n"
                         "    Ethernet8 queues 38-39 (CoppSystemMlag-CoppSystemDefault)\n"),
             std::string::npos)
       << p.text;

   // The run: after VXLAN is enabled exactly those two keys lack their entry, until step 7.
   RunRecord run;
   NimbalHost::SimAgent agent(scenario, run);
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent.sw().helper();
   auto unpoliced = [&helper] {
      std::set<Key> out;
      for (Key const& key : helper->kernelDynamicCoppDataCol().keys()) {
         if (helper->scsd()->vxlanEnabled() && !helper->kernelDynamicCoppVxlanDataHas(key)) {
            out.insert(key);
         }
      }
      return out;
   };
   // The library walks its keys in order: the last two go short.
   std::set<Key> const short2 = {Key(0, 8, 38), Key(0, 8, 39)};
   for (NimbalHost::ScenarioStep const& s : scenario.steps) {
      agent.step(s);
      SCOPED_TRACE("step " + std::to_string(s.number));
      EXPECT_EQ(unpoliced(), s.number >= 2 && s.number < 7 ? short2 : std::set<Key>());
   }
   EXPECT_EQ(run.full, p.resourceFullLogs);
   EXPECT_EQ(run.full, 4u);
}

TEST_F(PreflightTest, ReportGivesStartUpAndPeakDemandAgainstThePools) {
   Preflight const p = NimbalHost::preflight(NimbalHost::scenarioFromFile(
       SourceTree::path("tests/scenarios/preflight/vxlan-more-keys-than-pool.json")));
   EXPECT_FALSE(p.fits);
   for (char const* line :
        {"hardware wanted                       start-up              peak\n",
         "unit 0 egress CoPP entries            624 of 4096       625 of 4096     at step 4\n",
         "unit 0 default-and-VXLAN meters        16 of 4096       657 of 4096     at step 4\n",
         "  per-port default policers            16                16\n",
         "  VXLAN default entries                 0                16             at step 2\n",
         "  VXLAN source-port entries             0               625             at step 4\n",
         "VXLAN source-port entry pool            0 of 512        625 of 512      at step 4, 113 "
         "short at step 4\n",
         "dynamic CPU queues                      0 of 8            1 of 8        at step 4\n",
         "  step 2 (vxlan on) at 0.000 s: 112 kernel CoPP keys have no VXLAN source-port entry "
         "(the "
         "pool of\n    512 VXLAN source-port entries is full); no longer wanted from step 5\n",
         "verdict: something would not fit\n"}) {
      EXPECT_NE(p.text.find(line), std::string::npos) << line << "\n" << p.text;
   }
}

TEST_F(PreflightTest, KeyListsReadAsRangesAndJsonKeepsEveryKey) {
   Preflight const p = NimbalHost::preflight(NimbalHost::scenarioFromFile(
       SourceTree::path("tests/scenarios/preflight/vxlan-more-keys-than-pool.json")));
   EXPECT_NE(p.text.find("    Ethernet14 queues 6-39 (CoppSystemLldp-CoppSystemDefault), "
                         "Ethernet15-Ethernet16 queues 1-39\n    "
                         "(CoppSystemBgp-CoppSystemDefault)\n"),
             std::string::npos)
       << p.text;
   EXPECT_EQ(p.text.find("Ethernet15 queue 3 "), std::string::npos) << p.text;
   // Every key of the first range in the JSON form.
   for (int queue = 1; queue <= 39; ++queue) {
      std::string const item = "{\"interface\":\"Ethernet15\",\"modId\":0,\"port\":15,\"queue\":" +
                               std::to_string(queue) + ",";
      EXPECT_NE(p.json.find(item), std::string::npos) << item;
   }
}

TEST_F(PreflightTest, DesignedStopIsReportedNotSuffered) {
   Preflight const p = NimbalHost::preflight(NimbalHost::scenarioFromFile(
       SourceTree::path("tests/scenarios/abort/default-policer-over-shrunk-pool.json")));
   ASSERT_TRUE(p.stopStep);
   EXPECT_EQ(*p.stopStep, 3);
   EXPECT_FALSE(p.fits);
   EXPECT_NE(p.text.find("the agent would stop at step 3: Assertion `rc != "
                         "::Shim::sdk_->QV_BCM_E_RESOURCE() && \"Return value for installEntry is "
                         "BCM_E_RESOURCE\"' failed.\n"),
             std::string::npos)
       << p.text;
}

TEST_F(PreflightTest, InjectedFailureIsPlayedAndNamesTheStepItHit) {
   Preflight const p = NimbalHost::preflight(NimbalHost::scenarioFromFile(
       SourceTree::path("tests/scenarios/abort/fatal-sdk-error.json")));
   EXPECT_NE(p.text.find("injected: step 2 (fail bcm_field_qualify_CpuQueue -1): the next "
                         "bcm_field_qualify_CpuQueue failed, in step 3 (police"),
             std::string::npos)
       << p.text;
   EXPECT_NE(p.text.find("the agent would stop at step 3: Assertion `0' failed.\n"),
             std::string::npos)
       << p.text;
}

TEST_F(PreflightTest, ReportOfWhatFitsSaysSo) {
   Preflight const p = NimbalHost::preflight(
       NimbalHost::scenarioFromFile(SourceTree::path("tests/scenarios/preflight/fits.json")));
   EXPECT_TRUE(p.fits);
   EXPECT_EQ(p.text.find("would stay unpoliced"), std::string::npos) << p.text;
   EXPECT_NE(p.text.find("verdict: everything fits\n"), std::string::npos) << p.text;
}

}  // namespace
