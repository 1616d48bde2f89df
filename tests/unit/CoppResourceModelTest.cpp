#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Kiv/Clock.h"
#include "SourceTree.h"
#include "fuzz/CoppResourceModel.h"
#include "host/agent/SimAgent.h"
#include "host/preflight/Preflight.h"
#include "host/scenario/Demo.h"
#include "unit/TestScenarios.h"

// The resource model must follow the real agent on the real library step by step: the same
// pools in use, the same keys waiting, the same VXLAN entries missing, the same log messages in
// the same order, the same retry times. Every example runs, and built cases for what the
// examples do not show.

namespace {

using NimbalHost::CoppResourceModel;
using NimbalHost::Scenario;
using NimbalHost::SimAgent;
using Key = CoppResourceModel::Key;

// The log messages the agent raises, by step.
class LogCapture : public NimbalHost::TranscriptWriter {
  public:
   void write(NimbalHost::TranscriptEvent const& e) override {
      if (auto const* log = std::get_if<NimbalHost::event::Log>(&e.what)) {
         lines.push_back({log->key, log->text, e.step});
      }
   }
   std::vector<CoppResourceModel::LogLine> lines;
};

void expectPool(CoppResourceModel::Pool const& model, Shim::FieldGroup const* chip, bool entries,
                std::string const& what) {
   ASSERT_NE(chip, nullptr) << what;
   EXPECT_EQ(model.inUse, entries ? chip->entriesInUse : chip->metersInUse) << what << " in use";
   EXPECT_EQ(model.size, entries ? chip->entryPoolSize : chip->meterPoolSize) << what << " size";
}

// What the run has, compared with what the model says it has.
void expectSameState(SimAgent& agent, CoppResourceModel const& model, LogCapture const& logs,
                     double start) {
   NimbalHost::Switch& sw = agent.sw();
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw.helper();
   EXPECT_DOUBLE_EQ(agent.now(), model.now());
   for (auto const& [unit, pools] : model.units()) {
      std::string const u = "unit " + std::to_string(unit) + " ";
      Shim::FieldGroup const* copp = sw.chip().group(unit, NimbalHost::Switch::efpCoppGroupId);
      Shim::FieldGroup const* def =
          sw.chip().group(unit, NimbalHost::Switch::efpCoppDefAndVxlanGroupId);
      expectPool(pools.coppEntries, copp, true, u + "egress CoPP entries");
      expectPool(pools.coppMeters, copp, false, u + "egress CoPP meters");
      expectPool(pools.defaultEntries, def, true, u + "default-and-VXLAN entries");
      expectPool(pools.defaultMeters, def, false, u + "default-and-VXLAN meters");
   }
   EXPECT_EQ(model.units().size(), sw.units().size());
   EXPECT_EQ(model.vxlanPool().inUse, helper->coppVxlanDynEntryInUse());

   EXPECT_EQ(model.waitingKeys(), agent.kernelCopp().failed());
   std::set<Key> withoutVxlan;
   std::set<std::string> withoutVxlanDefault;
   if (sw.config().vxlanWorkaround && sw.scsd()->vxlanEnabled()) {
      for (Key const& key : helper->kernelDynamicCoppDataCol().keys()) {
         if (!helper->kernelDynamicCoppVxlanDataHas(key)) {
            withoutVxlan.insert(key);
         }
      }
      for (auto const& [intf, hw] : helper->portDefaultCoppPolicerHwDataCol()) {
         if (!helper->portDefaultCoppPolicerVxlanHwDataHas(intf)) {
            withoutVxlanDefault.insert(intf.stringValue());
         }
      }
   }
   EXPECT_EQ(model.keysWithoutVxlanEntry(), withoutVxlan);
   EXPECT_EQ(model.interfacesWithoutVxlanDefault(), withoutVxlanDefault);
   std::vector<std::string> withoutDefault;
   for (Orvik::IntfId const& intf : sw.interfacesWithoutDefaultPolicer()) {
      withoutDefault.push_back(intf.stringValue());
   }
   EXPECT_EQ(model.interfacesWithoutDefaultPolicer(), withoutDefault);
   std::set<std::pair<std::string, std::string>> withoutQueue;
   for (auto const& [id, p] : agent.classes().all()) {
      if (!p.cpuQ) {
         withoutQueue.insert(id);
      }
   }
   EXPECT_EQ(model.classesWithoutQueue(), withoutQueue);
   U32 dynamicInUse = 0;
   for (auto const& [id, q] : sw.mmuSm()->cpuQColl()->cpuQCol()) {
      dynamicInUse += q->dynamic() && q->users() > 0 ? 1 : 0;
   }
   EXPECT_EQ(model.dynamicCpuQueues().inUse, dynamicInUse);

   Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = helper->qosIntfCoppSm();
   ASSERT_TRUE(sm);
   EXPECT_EQ(model.vxlanEntryExhausted(), sm->vxlanEntryExhausted());
   double const wake = sm->vxlanEntryRetryTimer()->timeMin();
   EXPECT_EQ(model.vxlanRetryAt().has_value(), wake != Kiv::never);
   if (model.vxlanRetryAt() && wake != Kiv::never) {
      EXPECT_DOUBLE_EQ(*model.vxlanRetryAt(), wake - start);
   }

   ASSERT_EQ(model.logs().size(), logs.lines.size());
   for (std::size_t i = 0; i < logs.lines.size(); ++i) {
      EXPECT_EQ(model.logs()[i].key, logs.lines[i].key) << "log " << i;
      EXPECT_EQ(model.logs()[i].text, logs.lines[i].text) << "log " << i;
      EXPECT_EQ(model.logs()[i].step, logs.lines[i].step) << "log " << i;
   }
}

class CoppResourceModelTest : public ::testing::Test {
  protected:
   // Plays the scenario with the agent and with the model, comparing after the start-up and
   // after every step.
   void expectModelFollowsTheRun(Scenario const& scenario) {
      double const start = Kiv::activityClock()->now();
      LogCapture logs;
      SimAgent agent(scenario, logs);
      CoppResourceModel model(scenario, start);
      {
         SCOPED_TRACE("start-up");
         expectSameState(agent, model, logs, start);
      }
      ASSERT_FALSE(model.stop()) << *model.stop();
      for (NimbalHost::ScenarioStep const& s : scenario.steps) {
         agent.step(s);
         model.play(s);
         SCOPED_TRACE("step " + std::to_string(s.number) + " (" + s.name + ")");
         expectSameState(agent, model, logs, start);
         ASSERT_FALSE(model.stop()) << *model.stop();
         if (HasFailure()) {
            return;
         }
      }
   }
   void expectModelFollowsTheRun(std::string const& text) {
      expectModelFollowsTheRun(NimbalHost::scenarioFromText(text, "built.json"));
   }

   Kiv::ActivityScope activity_;
};

TEST_F(CoppResourceModelTest, FollowsTheDemo) {
   expectModelFollowsTheRun(NimbalHost::demoScenario());
}

TEST_F(CoppResourceModelTest, FollowsEveryExample) {
   int examples = 0;
   for (auto const& entry : std::filesystem::directory_iterator(SourceTree::path("examples"))) {
      if (entry.path().extension() == ".json") {
         SCOPED_TRACE(entry.path().filename().string());
         expectModelFollowsTheRun(NimbalHost::scenarioFromFile(entry.path().string()));
         ++examples;
      }
   }
   EXPECT_GE(examples, 7);
}

// The hidden-resource cases: pools shrunk at start-up and by steps, VXLAN with more keys than its
// pool, on two units, default entries short, dynamic CPU queues running out, the debug switch.
TEST_F(CoppResourceModelTest, FollowsEveryBuiltCase) {
   int cases = 0;
   for (std::string const& file : NimbalTestScenarios::preflightCases()) {
      SCOPED_TRACE(file);
      expectModelFollowsTheRun(NimbalHost::scenarioFromFile(file));
      ++cases;
   }
   EXPECT_GE(cases, 10);
}

// Where the model says the agent stops, the run ends the process: the run is compared up to
// there.
TEST_F(CoppResourceModelTest, FollowsRandomScenarios) {
   int played = 0;
   for (unsigned seed = 1; seed <= 40; ++seed) {
      Scenario scenario =
          NimbalHost::scenarioFromText(NimbalTestScenarios::randomScenario(seed), "random.json");
      CoppResourceModel model(scenario, Kiv::activityClock()->now());
      for (NimbalHost::ScenarioStep const& s : scenario.steps) {
         model.play(s);
      }
      if (model.stop()) {
         scenario.steps.resize(static_cast<std::size_t>(model.stopStep() - 1));
      }
      SCOPED_TRACE("seed " + std::to_string(seed));
      expectModelFollowsTheRun(scenario);
      ++played;
      if (HasFailure()) {
         return;
      }
   }
   EXPECT_EQ(played, 40);
}

// The model's verdict and the step in which it sees the agent stop agree with the dry run of the
// preflight, which plays the real library: the oracle the step fuzzer trusts is the product's.
TEST_F(CoppResourceModelTest, AgreesWithTheDryRunOnVerdictAndStop) {
   std::vector<Scenario> scenarios = {NimbalHost::demoScenario()};
   for (char const* dir : {"examples", "tests/scenarios/abort"}) {
      for (auto const& entry : std::filesystem::directory_iterator(SourceTree::path(dir))) {
         if (entry.path().extension() == ".json") {
            scenarios.push_back(NimbalHost::scenarioFromFile(entry.path().string()));
         }
      }
   }
   for (std::string const& file : NimbalTestScenarios::preflightCases()) {
      scenarios.push_back(NimbalHost::scenarioFromFile(file));
   }
   int stops = 0;
   for (Scenario const& scenario : scenarios) {
      SCOPED_TRACE(scenario.file);
      CoppResourceModel model(scenario, Kiv::activityClock()->now());
      for (NimbalHost::ScenarioStep const& s : scenario.steps) {
         model.play(s);
      }
      if (!model.unmodelledSteps().empty()) {
         continue;  // an injected SDK failure is beyond the model
      }
      std::size_t full = 0;
      for (CoppResourceModel::LogLine const& l : model.logs()) {
         full += l.key == "QOS_COPP_HW_RESOURCE_FULL" ? 1 : 0;
      }
      bool const modelFits = model.shortfalls().empty() && full == 0 && !model.stop();
      NimbalHost::Preflight const p = NimbalHost::preflight(scenario);
      EXPECT_EQ(modelFits, p.fits) << p.text;
      EXPECT_EQ(model.stop().has_value(), p.stopStep.has_value()) << p.text;
      if (model.stop() && p.stopStep) {
         EXPECT_EQ(model.stopStep(), *p.stopStep) << p.text;
         ++stops;
      }
   }
   EXPECT_GE(stops, 4);
}

}  // namespace
