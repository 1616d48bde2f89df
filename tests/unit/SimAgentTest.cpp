#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Kiv/Clock.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "host/agent/SimAgent.h"

namespace {

using NimbalHost::Scenario;
using NimbalHost::scenarioFromText;
using NimbalHost::SimAgent;

// An agent on a scenario's switch, writing to a file the test reads back.
class SimAgentTest : public ::testing::Test {
  protected:
   void start(std::string const& steps, std::string const& sw = "{}") {
      scenario_ =
          scenarioFromText("{\"switch\": " + sw + ", \"steps\": [" + steps + "]}", "t.json");
      out_ = std::tmpfile();
      ASSERT_NE(out_, nullptr);
      agent_ = std::make_unique<SimAgent>(scenario_, out_);
   }
   void TearDown() override {
      agent_.reset();
      if (out_) {
         std::fclose(out_);
      }
   }
   void play() { agent_->run(); }
   SimAgent& agent() { return *agent_; }

   // Everything written so far.
   std::string output() {
      std::fflush(out_);
      std::rewind(out_);
      std::string text;
      char buf[4096];
      std::size_t n;
      while ((n = std::fread(buf, 1, sizeof buf, out_)) > 0) {
         text.append(buf, n);
      }
      std::fseek(out_, 0, SEEK_END);
      return text;
   }
   std::vector<std::string> lines() {
      std::vector<std::string> out;
      std::string const text = output();
      std::size_t start = 0;
      for (std::size_t nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', start)) {
         out.push_back(text.substr(start, nl - start));
         start = nl + 1;
      }
      return out;
   }
   bool hasLine(std::string const& line) {
      for (auto const& l : lines()) {
         if (l == line) {
            return true;
         }
      }
      return false;
   }

   Kiv::ActivityScope activity_;
   Scenario scenario_;
   std::FILE* out_ = nullptr;
   std::unique_ptr<SimAgent> agent_;
};

TEST_F(SimAgentTest, StartUpReportsTheSwitchAndItsKernelCoppKeys) {
   start("");
   std::vector<std::string> const l = lines();
   ASSERT_GE(l.size(), 4u);
   EXPECT_EQ(l[0], "nimbal-copp-sim: t.json");
   EXPECT_EQ(l[1],
             "switch: 1 module, 8 interfaces, 48 CPU queues (8 dynamic), port default CoPP rate "
             "1000 pps, VXLAN workaround off");
   EXPECT_EQ(l[2].rfind("helper: Nimbal::QosAclHelperV1, from ", 0), 0u) << l[2];
   // Eight ports, and on each the 39 allocated queues other than the drop queue.
   EXPECT_EQ(agent().sw().kernelCoppConfig()->coppInfo(), 8u * 39u);
   EXPECT_EQ(agent().kernelCopp().programmed().size() + agent().kernelCopp().failed().size(),
             8u * 39u);
}

// A long run's memory must not grow with its SDK calls: the agent keeps no journal of them.
TEST_F(SimAgentTest, TheAgentKeepsNoJournalOfSdkCalls) {
   start(R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 10, "bc": 1}},
            {"advance": 1})");
   play();
   EXPECT_EQ(agent().sw().sdk().journalLimit(), 0u);
   EXPECT_TRUE(agent().sw().sdk().journal().empty());
   EXPECT_GT(agent().sw().chip().policers(0), 0u);
}

TEST_F(SimAgentTest, StartUpReportsPortsWithoutDefaultPolicer) {
   start("", R"({"interfaces": [{"name": "Ethernet1", "modId": 0, "port": 1},
                               {"name": "Ethernet2", "modId": 0, "port": 2},
                               {"name": "Ethernet3", "modId": 0, "port": 3},
                               {"name": "Ethernet300", "modId": 0, "port": 300}],
                "resources": {"efpDefaultMeters": 2}})");
   EXPECT_TRUE(
       hasLine("start-up: 2 per-port default CoPP policers, 156 kernel CoPP keys "
               "programmed"));
   EXPECT_TRUE(
       hasLine("start-up: no per-port default CoPP policer on ports 256 and above (1 "
               "interface)"));
   EXPECT_TRUE(
       hasLine("start-up: no per-port default CoPP policer on 1 interface (the "
               "default-and-VXLAN group ran out), the first Ethernet3"));
}

TEST_F(SimAgentTest, EveryStepIsAnnouncedWithItsTime) {
   start(R"({"advance": 2.5}, {"vxlan": true})");
   play();
   EXPECT_TRUE(hasLine("step 1 at 0.000 s: advance 2.5 s"));
   EXPECT_TRUE(hasLine("step 2 at 2.500 s: vxlan on"));
   EXPECT_EQ(lines().back(),
             "end at 2.500 s: " + std::to_string(agent().kernelCopp().programmed().size()) +
                 " kernel CoPP keys programmed");
}

TEST_F(SimAgentTest, AdvanceMovesTheVirtualClock) {
   start(R"({"advance": 60})");
   double const before = Kiv::activityClock()->now();
   play();
   EXPECT_DOUBLE_EQ(Kiv::activityClock()->now() - before, 60.0);
   EXPECT_DOUBLE_EQ(agent().now(), 60.0);
}

TEST_F(SimAgentTest, ExactTrafficIsEvenlySpaced) {
   start(R"({"traffic": {"interface": "Ethernet2", "queue": 7, "pps": 10, "seconds": 1.5,
                         "exact": true}})");
   play();
   NimbalHost::TrafficFlow const& flow = agent().traffic().flows().at(0);
   ASSERT_EQ(flow.offered(), 15u);
   for (std::size_t i = 0; i < 15; ++i) {
      EXPECT_NEAR(flow.bursts[0].packetTime(i), 0.1 * static_cast<double>(i), 1e-9);
   }
}

TEST_F(SimAgentTest, TrafficSpacesItsPacketsOverItsTime) {
   start(R"({"traffic": {"interface": "Ethernet2", "queue": 7, "pps": 10, "seconds": 1.5}})");
   play();
   EXPECT_DOUBLE_EQ(agent().now(), 1.5);
   ASSERT_EQ(agent().traffic().flows().size(), 1u);
   NimbalHost::TrafficFlow const& flow = agent().traffic().flows()[0];
   EXPECT_EQ(flow.interface, "Ethernet2");
   EXPECT_EQ(flow.queue, 7u);
   EXPECT_EQ(flow.queueName, "CoppSystemStp");
   ASSERT_EQ(flow.bursts.size(), 1u);
   EXPECT_EQ(flow.offered(), 15u);
   // Jittered within its slot of 1 / pps.
   EXPECT_GE(flow.bursts[0].packetTime(14), 1.4);
   EXPECT_LT(flow.bursts[0].packetTime(14), 1.5);
   // The packet driver counted every packet of the port and queue.
   auto const [dropped, allowed] = agent().sw().pktDrv()->getDdeCoppCounters(0, 2, 7);
   EXPECT_EQ(dropped + allowed, 15u);
   EXPECT_TRUE(hasLine("traffic Ethernet2 queue 7: offered 15 allowed " + std::to_string(allowed) +
                       " dropped " + std::to_string(dropped)));
}

// Flows of one step fill their plot data side by side, also two flows of one interface and
// queue: a flow that starts its data must not move the data of the others.
TEST_F(SimAgentTest, FlowsOfOneStepKeepEachTheirOwnPackets) {
   start(R"({"traffic": {"seconds": 1, "flows": [
       {"interface": "Ethernet1", "queue": 7, "pps": 10},
       {"interface": "Ethernet1", "queue": 7, "pps": 20, "pattern": {"bursts": {"size": 4}}},
       {"interface": "Ethernet2", "queue": 7, "pps": 30},
       {"interface": "Ethernet1", "queue": 7, "pps": 40, "pattern": {"poisson": {"seed": 3}}},
       {"interface": "Ethernet2", "queue": 7, "pps": 50}]}})");
   play();
   auto const& flows = agent().traffic().flows();
   ASSERT_EQ(flows.size(), 2u);
   std::vector<std::pair<std::string, U64>> got;
   for (NimbalHost::TrafficFlow const& f : flows) {
      for (NimbalHost::TrafficBurst const& b : f.bursts) {
         EXPECT_EQ(b.times.size(), b.dropped.size());
         EXPECT_TRUE(std::is_sorted(b.times.begin(), b.times.end()));
         got.emplace_back(f.interface, b.times.size());
      }
   }
   // The Poisson flow sends what its seed draws within the second: around 40.
   ASSERT_EQ(got.size(), 5u);
   EXPECT_EQ(got[0], (std::pair<std::string, U64>("Ethernet1", 10)));
   EXPECT_EQ(got[1], (std::pair<std::string, U64>("Ethernet1", 20)));
   EXPECT_EQ(got[2].first, "Ethernet1");
   EXPECT_GT(got[2].second, 20u);
   EXPECT_LT(got[2].second, 60u);
   EXPECT_EQ(got[3], (std::pair<std::string, U64>("Ethernet2", 30)));
   EXPECT_EQ(got[4], (std::pair<std::string, U64>("Ethernet2", 50)));
}

TEST_F(SimAgentTest, TrafficByClassGoesToTheClassQueue) {
   start(R"({"traffic": {"interface": "Ethernet1", "class": "copp-system-lldp", "pps": 4,
             "seconds": 1}})");
   play();
   EXPECT_EQ(agent().traffic().flows().at(0).queue, 6u);
   auto const [dropped, allowed] = agent().sw().pktDrv()->getDdeCoppCounters(0, 1, 6);
   EXPECT_EQ(dropped + allowed, 4u);
}

TEST_F(SimAgentTest, TunnelTrafficComesFromTheRecirculationPortWithTheSourceInTheInnerVlan) {
   start(R"({"recirc": {"interface": "Ethernet8"}},
            {"traffic": {"interface": "Ethernet3", "queue": 5, "pps": 2, "seconds": 1,
                         "vxlan": true}})",
         R"({"vxlanWorkaround": true})");
   play();
   EXPECT_TRUE(
       hasLine("  tunnel traffic of Ethernet3 reaches the CPU from Ethernet8 with inner "
               "VLAN 3"));
   auto const fromRecirc = agent().sw().pktDrv()->getDdeCoppCounters(0, 8, 5);
   EXPECT_EQ(fromRecirc.first + fromRecirc.second, 2u);
   auto const fromSource = agent().sw().pktDrv()->getDdeCoppCounters(0, 3, 5);
   EXPECT_EQ(fromSource.first + fromSource.second, 0u);
   EXPECT_TRUE(agent().traffic().flows().at(0).vxlan);
}

TEST_F(SimAgentTest, TunnelTrafficFromAnotherUnitArrivesOnTheUnitOfTheRecirculationPort) {
   start(R"({"recirc": {"interface": "Ethernet1"}},
            {"traffic": {"interface": "Ethernet2", "queue": 5, "pps": 2, "seconds": 1,
                         "vxlan": true}})",
         R"({"vxlanWorkaround": true, "modules": [{"modId": 0, "unit": 0}, {"modId": 1, "unit": 1}],
             "interfaces": [{"name": "Ethernet1", "modId": 0, "port": 24},
                            {"name": "Ethernet2", "modId": 1, "port": 5}]})");
   play();
   EXPECT_TRUE(
       hasLine("  tunnel traffic of Ethernet2 reaches the CPU from Ethernet1 with inner VLAN 5"));
   auto const onRecircUnit = agent().sw().pktDrv()->getDdeCoppCounters(0, 24, 5);
   EXPECT_EQ(onRecircUnit.first + onRecircUnit.second, 2u);
   auto const onSourceUnit = agent().sw().pktDrv()->getDdeCoppCounters(1, 24, 5);
   EXPECT_EQ(onSourceUnit.first + onSourceUnit.second, 0u);
}

TEST_F(SimAgentTest, VxlanAndRecircSetTheSharedState) {
   start(R"({"vxlan": true}, {"recirc": {"interface": "Ethernet4"}},
            {"recirc": {"interface": "Ethernet5"}},
            {"recirc": {"interface": "Ethernet4", "enabled": false}})");
   play();
   Kiv::Ptr<Nimbal::NimbalCommonSmData> const scsd = agent().sw().scsd();
   EXPECT_TRUE(scsd->vxlanEnabled());
   EXPECT_FALSE(scsd->vxlanRecircIntfHas("Ethernet4"));
   EXPECT_TRUE(scsd->vxlanRecircIntf("Ethernet5"));
   EXPECT_TRUE(hasLine("  Ethernet4 is no longer a VXLAN recirculation interface"));
}

TEST_F(SimAgentTest, StaticClassIsPolicedOnItsStaticQueue) {
   start(R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 300,
                        "bc": 30}})");
   play();
   auto const* p = agent().classes().policed("Ethernet1", "copp-system-bgp");
   ASSERT_NE(p, nullptr);
   EXPECT_FALSE(p->dynamic);
   EXPECT_EQ(p->cpuQ, 1u);
   EXPECT_EQ(p->classData->cpuQId(), -1);
   EXPECT_EQ(p->classData->key(),
             Oskel::QosClassDataKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                                    "copp-system-bgp", Qos::mapControlPlane_));
   EXPECT_EQ(p->classData->policerData()->cir(), 300u);
   EXPECT_EQ(p->classData->policerData()->bc(), 30u);
   EXPECT_EQ(p->classData->policerData()->cirUnit(), Qos::rateUnitPps_);
   EXPECT_EQ(*p->classData->intfIdSet().begin(), Orvik::IntfId("Ethernet1"));
   EXPECT_TRUE(
       hasLine("  Ethernet1 copp-system-bgp on CPU queue 1 (CoppSystemBgp), static: 300 "
               "pps, burst 30 packets"));
}

TEST_F(SimAgentTest, DynamicClassGetsAQueueAndGivesItBack) {
   start(R"({"police": {"interface": "Ethernet1", "class": "copp-user-a", "cir": 300, "bc": 30}},
            {"police": {"interface": "Ethernet2", "class": "copp-user-a", "cir": 100, "bc": 10}},
            {"unpolice": {"interface": "Ethernet1", "class": "copp-user-a"}})");
   agent().step(scenario_.steps[0]);
   auto const* p = agent().classes().policed("Ethernet1", "copp-user-a");
   ASSERT_NE(p, nullptr);
   EXPECT_TRUE(p->dynamic);
   EXPECT_EQ(p->cpuQ, 40u);
   EXPECT_EQ(p->classData->cpuQId(), 40);
   Kiv::Ptr<Nimbal::MmuCpuQ> const q40 = agent().sw().mmuSm()->cpuQColl()->cpuQ(40);
   EXPECT_EQ(q40->users(), 1u);
   EXPECT_EQ(q40->cmapName(), "copp-user-a");
   // The allocation found the class in the QoS status and recorded it in the MMU's status.
   EXPECT_TRUE(agent().sw().qosStatus()->cmapStatus(Qos::mapControlPlane_, "copp-system-policy",
                                                    Qos::mapControlPlane_, "copp-user-a"));
   EXPECT_TRUE(agent()
                   .sw()
                   .mmuSm()
                   ->pmapHwStatus()
                   ->pmapHwStatus(Qos::PolicyMapHwStatusKey("copp-system-policy",
                                                            Qos::mapControlPlane_, Qos::input_))
                   ->cmapHas("copp-user-a"));
   EXPECT_TRUE(
       hasLine("  Ethernet1 copp-user-a on CPU queue 40 (CoppUserDefined1), dynamic: 300 "
               "pps, burst 30 packets"));

   agent().step(scenario_.steps[1]);
   EXPECT_EQ(agent().classes().policed("Ethernet2", "copp-user-a")->cpuQ, 40u);
   EXPECT_EQ(q40->users(), 2u);

   agent().step(scenario_.steps[2]);
   EXPECT_EQ(agent().classes().policed("Ethernet1", "copp-user-a"), nullptr);
   EXPECT_EQ(q40->users(), 1u);
   EXPECT_TRUE(
       hasLine("  Ethernet1 copp-user-a: police action removed; CPU queue 40 "
               "(CoppUserDefined1) is given back to the pool"));
}

TEST_F(SimAgentTest, ClassWithoutAFreeQueueIsReportedAndNotProgrammed) {
   std::string steps;
   for (int i = 1; i <= 9; ++i) {
      steps += std::string(i > 1 ? "," : "") +
               R"({"police": {"interface": "Ethernet1", "class": "c)" + std::to_string(i) +
               R"(", "cir": 10, "bc": 1}})";
   }
   steps += R"(, {"poll": {"interface": "Ethernet1", "class": "c9"}},
               {"unpolice": {"interface": "Ethernet1", "class": "c9"}})";
   start(steps);
   for (int i = 0; i < 9; ++i) {
      agent().step(scenario_.steps[i]);
   }
   auto const* p = agent().classes().policed("Ethernet1", "c9");
   ASSERT_NE(p, nullptr);
   EXPECT_FALSE(p->cpuQ.has_value());
   EXPECT_EQ(p->classData->cpuQId(), -1);
   EXPECT_TRUE(
       hasLine("  Ethernet1 c9: no dynamic CPU queue is free; the class is not "
               "programmed"));
   EXPECT_FALSE(agent().classes().queueOfClass("c9").has_value());
   agent().step(scenario_.steps[9]);
   EXPECT_TRUE(hasLine("poll Ethernet1 c9: pktHits=0 drop=0 byteHits=0 dropBytes=0"));
   agent().step(scenario_.steps[10]);
   EXPECT_TRUE(hasLine("  Ethernet1 c9: police action removed; it was never programmed"));
}

TEST_F(SimAgentTest, PolicingAgainChangesTheRate) {
   start(
       R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 300, "bc": 30}},
            {"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 700, "bc": 70}})");
   play();
   auto const* p = agent().classes().policed("Ethernet1", "copp-system-bgp");
   ASSERT_NE(p, nullptr);
   EXPECT_EQ(p->classData->policerData()->cir(), 700u);
   EXPECT_EQ(p->classData->policerData()->bc(), 70u);
   EXPECT_EQ(
       agent().sw().kernelCoppConfig()->coppInfo(Oskel::ModIdPortQueueKey(0, 1, 1)).rateInPps(),
       700u);
   EXPECT_TRUE(
       hasLine("  Ethernet1 copp-system-bgp on CPU queue 1 (CoppSystemBgp), static: 700 "
               "pps, burst 70 packets (rate changed)"));
   EXPECT_TRUE(
       hasLine("  per-port default CoPP policer of Ethernet1: 1400 pps, burst 140 packets"));
}

TEST_F(SimAgentTest, ClassThatGetsAQueueLaterIsProgrammedAfresh) {
   std::string steps;
   for (int i = 1; i <= 9; ++i) {
      steps += std::string(i > 1 ? "," : "") +
               R"({"police": {"interface": "Ethernet1", "class": "c)" + std::to_string(i) +
               R"(", "cir": 10, "bc": 1}})";
   }
   steps += R"(, {"unpolice": {"interface": "Ethernet1", "class": "c3"}},
               {"police": {"interface": "Ethernet1", "class": "c9", "cir": 20, "bc": 2}})";
   start(steps);
   play();
   EXPECT_EQ(agent().classes().policed("Ethernet1", "c9")->cpuQ, 42u);
   EXPECT_EQ(agent().classes().queueOfClass("c9"), 42u);
   EXPECT_TRUE(
       hasLine("  Ethernet1 c9 on CPU queue 42 (CoppUserDefined3), dynamic: 20 pps, burst "
               "2 packets"));
}

TEST_F(SimAgentTest, LogMessagesAreWrittenWithTheirKey) {
   start("");
   Nimbal::qosCoppHwResourceFullLog().log("egress TCAM", "control plane policer (test)");
   EXPECT_TRUE(
       hasLine("log: QOS_COPP_HW_RESOURCE_FULL: Insufficient egress TCAM resources to "
               "program the control plane policer (test)."));
}

TEST_F(SimAgentTest, SetChangesAHelperAttributeByName) {
   start(R"({"set": {"createCoppPolicerAlwaysFalse": true}})");
   play();
   EXPECT_TRUE(agent().sw().helper()->createCoppPolicerAlwaysFalse());
   EXPECT_TRUE(hasLine("  createCoppPolicerAlwaysFalse = true"));
}

TEST_F(SimAgentTest, SetWithAValueTheAttributeCannotTakeIsAScenarioError) {
   start(R"({"set": {"createCoppPolicerAlwaysFalse": "maybe"}})");
   try {
      play();
      FAIL() << "no error";
   } catch (NimbalHost::ScenarioError const& e) {
      std::string const what = e.what();
      EXPECT_EQ(what.rfind("t.json: step 1 (set): key \"createCoppPolicerAlwaysFalse\": ", 0), 0u)
          << what;
      EXPECT_EQ(what.find('\n'), std::string::npos);
   }
}

TEST_F(SimAgentTest, FailInjectsAnSdkError) {
   start(R"({"fail": {"call": "bcm_policer_get", "rc": -7}})");
   play();
   EXPECT_EQ(agent().sw().sdk().faultsPending(), 1u);
   EXPECT_TRUE(hasLine("  the next bcm_policer_get returns -7 (Entry not found)"));
}

TEST_F(SimAgentTest, ResourcesResizeThePoolsOfEveryUnit) {
   start(R"({"resources": {"efpCoppEntries": 400, "efpCoppMeters": 350, "efpDefaultMeters": 20}})",
         R"({"modules": [{"modId": 0, "unit": 0}, {"modId": 1, "unit": 1}]})");
   play();
   for (int unit : {0, 1}) {
      Shim::FieldGroup const* copp =
          agent().sw().chip().group(unit, NimbalHost::Switch::efpCoppGroupId);
      ASSERT_NE(copp, nullptr);
      EXPECT_EQ(copp->entryPoolSize, 400u);
      EXPECT_EQ(copp->meterPoolSize, 350u);
      EXPECT_EQ(agent()
                    .sw()
                    .chip()
                    .group(unit, NimbalHost::Switch::efpCoppDefAndVxlanGroupId)
                    ->meterPoolSize,
                20u);
   }
}

TEST_F(SimAgentTest, KernelKeysThatRanOutAreRetriedWhenTheClockAdvances) {
   start(R"({"advance": 1}, {"resources": {"efpCoppEntries": 400}}, {"advance": 1})",
         R"({"resources": {"efpCoppEntries": 300}})");
   std::size_t const waiting = agent().kernelCopp().failed().size();
   EXPECT_EQ(waiting, 8u * 39u - 300u);
   EXPECT_TRUE(hasLine("  kernel CoPP: " + std::to_string(waiting) +
                       " keys waiting for hardware resources, tried again as the clock advances"));
   agent().step(scenario_.steps[0]);
   EXPECT_EQ(agent().kernelCopp().failed().size(), waiting);
   agent().step(scenario_.steps[1]);
   EXPECT_EQ(agent().kernelCopp().failed().size(), waiting);
   agent().step(scenario_.steps[2]);
   EXPECT_TRUE(agent().kernelCopp().failed().empty());
   EXPECT_EQ(agent().kernelCopp().programmed().size(), 8u * 39u);
   EXPECT_TRUE(hasLine("  kernel CoPP: every key is programmed"));
}

TEST_F(SimAgentTest, WaitingKeysAreTriedOnceAtTheEndOfATrafficStepNotPerPacket) {
   start(R"({"traffic": {"interface": "Ethernet1", "queue": 6, "pps": 100, "seconds": 1}},
            {"advance": 1})",
         R"({"resources": {"efpCoppMeters": 300}})");
   std::size_t const waiting = agent().kernelCopp().failed().size();
   ASSERT_GT(waiting, 0u);
   Shim::Sdk& sdk = agent().sw().sdk();
   sdk.journalLimitIs(1000000);
   // Every retry of a waiting key creates a meter, which the full pool refuses.
   auto meterCreates = [&] { return sdk.journalTexts("bcm_policer_create").size(); };
   sdk.journalDelAll();
   agent().step(scenario_.steps[0]);
   EXPECT_EQ(meterCreates(), waiting);
   EXPECT_EQ(agent().kernelCopp().failed().size(), waiting);
   sdk.journalDelAll();
   agent().step(scenario_.steps[1]);
   EXPECT_EQ(meterCreates(), waiting);
}

TEST_F(SimAgentTest, KeyThatFindsRoomDuringATrafficStepIsProgrammedAtItsEnd) {
   start(R"({"resources": {"efpCoppEntries": 400}},
            {"traffic": {"interface": "Ethernet1", "queue": 6, "pps": 10, "seconds": 1}})",
         R"({"resources": {"efpCoppEntries": 300}})");
   agent().step(scenario_.steps[0]);
   EXPECT_FALSE(agent().kernelCopp().failed().empty());
   agent().step(scenario_.steps[1]);
   EXPECT_TRUE(agent().kernelCopp().failed().empty());
}

TEST_F(SimAgentTest, MisspelledSystemClassGetsANoteAndStillRuns) {
   start(R"({"police": {"interface": "Ethernet1", "class": "copp-sytem-bgp", "cir": 300,
                        "bc": 30}},
            {"police": {"interface": "Ethernet1", "class": "copp-user-telemetry", "cir": 300,
                        "bc": 30}},
            {"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 300,
                        "bc": 30}})");
   play();
   std::string const note =
       "  note: copp-sytem-bgp has no static CPU queue, so it is a user class on a dynamic "
       "queue and copp-system-bgp stays as it was; did you mean copp-system-bgp?";
   EXPECT_TRUE(hasLine(note)) << output();
   std::size_t notes = 0;
   for (auto const& l : lines()) {
      notes += l.rfind("  note: ", 0) == 0 ? 1 : 0;
   }
   EXPECT_EQ(notes, 1u) << output();
}

TEST_F(SimAgentTest, TrafficOfLessThanOnePacketSaysSo) {
   start(R"({"traffic": {"interface": "Ethernet1", "queue": 6, "pps": 1, "seconds": 0.5}},
            {"traffic": {"interface": "Ethernet1", "queue": 6, "pps": 2, "seconds": 0.5}})");
   play();
   EXPECT_TRUE(hasLine("  note: 1 pps for 0.5 s is less than one packet: Ethernet1 sent nothing"))
       << output();
   EXPECT_TRUE(hasLine("traffic Ethernet1 queue 6: offered 0 allowed 0 dropped 0"));
   EXPECT_FALSE(hasLine("  note: 2 pps for 0.5 s is less than one packet: Ethernet1 sent nothing"));
}

TEST_F(SimAgentTest, VerifyCountsTheConfiguredKeysNotInHardware) {
   start(R"({"verify": {}}, {"resources": {"efpCoppEntries": 400}}, {"advance": 1},
            {"verify": {}})",
         R"({"resources": {"efpCoppEntries": 300}})");
   std::size_t const waiting = agent().kernelCopp().failed().size();
   ASSERT_EQ(waiting, 8u * 39u - 300u);
   agent().step(scenario_.steps[0]);
   std::string const line = "  not verified: " + std::to_string(waiting) +
                            " configured kernel CoPP keys not in hardware (waiting for resources)";
   EXPECT_TRUE(hasLine(line)) << output();
   std::size_t const before = lines().size();
   for (std::size_t i = 1; i < scenario_.steps.size(); ++i) {
      agent().step(scenario_.steps[i]);
   }
   std::vector<std::string> const l = lines();
   for (std::size_t i = before; i < l.size(); ++i) {
      EXPECT_EQ(l[i].find("not verified"), std::string::npos) << l[i];
   }
}

TEST_F(SimAgentTest, EndNamesTheKeysThatStayUnpoliced) {
   start(R"({"advance": 1})", R"({"resources": {"efpCoppEntries": 300}})");
   play();
   std::set<std::string> interfaces;
   std::set<U32> queues;
   for (auto const& key : agent().kernelCopp().failed()) {
      interfaces.insert(agent()
                            .sw()
                            .intf(NimbalTypes::NimbalPort(static_cast<U16>(key.modId()), 0,
                                                          static_cast<U16>(key.port())))
                            .stringValue());
      queues.insert(key.queue());
   }
   // The last keys in key order wait: a run of queues of the last interface.
   ASSERT_EQ(interfaces, std::set<std::string>{"Ethernet8"});
   ASSERT_EQ(queues.size(), 12u);
   std::vector<std::string> const l = lines();
   ASSERT_GE(l.size(), 2u);
   EXPECT_EQ(l[l.size() - 2].rfind("end at 1.000 s: 300 kernel CoPP keys programmed", 0), 0u);
   EXPECT_EQ(l.back(), "  unpoliced, waiting for hardware: 12 keys, Ethernet8 queues " +
                           std::to_string(*queues.begin()) + "-" +
                           std::to_string(*queues.rbegin()) + " (" +
                           agent().sw().mmuSm()->cpuQColl()->cpuQ(*queues.begin())->name() + "-" +
                           agent().sw().mmuSm()->cpuQColl()->cpuQ(*queues.rbegin())->name() + ")")
       << output();
}

TEST_F(SimAgentTest, EndNamesTheKeysWithoutAVxlanEntry) {
   start(R"({"recirc": {"interface": "Ethernet8", "enabled": true}}, {"vxlan": true})",
         R"({"vxlanWorkaround": true, "resources": {"efpDefaultMeters": 326}})");
   play();
   std::size_t missing = 0;
   for (auto const& key : agent().sw().helper()->kernelDynamicCoppDataCol().keys()) {
      missing += agent().sw().helper()->kernelDynamicCoppVxlanDataHas(key) ? 0 : 1;
   }
   ASSERT_GT(missing, 0u);
   std::string const last = lines().back();
   EXPECT_EQ(last.rfind("  without a VXLAN CoPP entry: " + std::to_string(missing) + " keys, ", 0),
             0u)
       << output();
}

TEST_F(SimAgentTest, EndSaysNothingMoreWhenEverythingIsPoliced) {
   start(R"({"advance": 1})");
   play();
   EXPECT_EQ(lines().back().rfind("end at 1.000 s: ", 0), 0u);
}

TEST_F(SimAgentTest, ClearSnapshotsTheProgrammedKeysThatMatch) {
   start(R"({"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 10, "seconds": 1}},
            {"clear": {"interface": "Ethernet1"}}, {"clear": {"queue": 6}},
            {"clear": {"interface": "Ethernet2", "queue": 7}}, {"clear": {}})");
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent().sw().helper();
   agent().step(scenario_.steps[0]);
   agent().step(scenario_.steps[1]);
   EXPECT_EQ(helper->lastClearCoppSwCounter(), 39u);
   auto const snapshot =
       helper->lastClearCoppSwCounterCol().value(Oskel::ModIdPortQueueKey(0, 1, 1));
   ASSERT_TRUE(snapshot.has_value());
   EXPECT_EQ(snapshot->pktHits(), 10u);
   EXPECT_TRUE(hasLine("  cleared the counters of 39 programmed port-queue keys"));
   agent().step(scenario_.steps[2]);
   EXPECT_TRUE(hasLine("  cleared the counters of 8 programmed port-queue keys"));
   EXPECT_EQ(helper->lastClearCoppSwCounter(), 39u + 7u);
   agent().step(scenario_.steps[3]);
   EXPECT_TRUE(hasLine("  cleared the counters of 1 programmed port-queue key"));
   agent().step(scenario_.steps[4]);
   EXPECT_EQ(helper->lastClearCoppSwCounter(), 8u * 39u);
}

TEST_F(SimAgentTest, ShowWritesTheLibraryTableInLine) {
   start(R"({"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 10, "seconds": 1}},
            {"show": "hw"}, {"show": "sw"}, {"advance": 1})");
   play();
   std::string const text = output();
   std::size_t const hw = text.find(
       "step 2 at 1.000 s: show hw\nInterface              Queue           "
       "Hits\n----------------------------------------------------\n");
   ASSERT_NE(hw, std::string::npos) << text;
   std::size_t const sw = text.find(
       "step 3 at 1.000 s: show sw\nInterface       Queue                              "
       "Dropped         Allowed\nEthernet1       CoppSystemBgp                            0 "
       "             10\nstep 4 at 1.000 s: advance 1 s\n");
   EXPECT_NE(sw, std::string::npos) << text;
   EXPECT_LT(hw, sw);
}

TEST_F(SimAgentTest, VerifyReportsEachDifferenceAndTheirNumber) {
   start(
       R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 300, "bc": 30}},
            {"verify": {}},
            {"tamper": {"interface": "Ethernet1", "queue": 1, "cir": 9, "bc": 30}},
            {"verify": {}},
            {"tamper": {"interface": "Ethernet2", "queue": 0, "cir": 9, "bc": 30}})");
   play();
   std::vector<std::string> verify;
   for (auto const& l : lines()) {
      if (l.rfind("verify:", 0) == 0) {
         verify.push_back(l);
      }
   }
   EXPECT_EQ(verify,
             (std::vector<std::string>{"verify: 0 differences",
                                       "verify: Policer CIR (kbps) programmed 9 != configured 300",
                                       "verify: 1 differences"}));
   EXPECT_TRUE(hasLine("  Ethernet2 queue 0 has no programmed meter: nothing was changed"));
}

// Verify expects each class to hold the queue it runs on.
TEST_F(SimAgentTest, EveryStaticClassOfTheBuiltInTableVerifiesWithoutDifferences) {
   std::string steps;
   for (Nimbal::MmuCpuQRow const& row : Nimbal::builtInCpuQTable()) {
      for (std::string const& c : row.classes) {
         steps += R"({"police": {"interface": "Ethernet1", "class": ")" + c +
                  R"(", "cir": 300, "bc": 30}}, )";
      }
   }
   start(steps + R"({"verify": {}})");
   play();
   EXPECT_TRUE(hasLine("verify: 0 differences"));
}

TEST_F(SimAgentTest, PlotHasAPanelPerFlow) {
   start(R"({"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 10, "seconds": 1}},
            {"traffic": {"interface": "Ethernet2", "queue": 1, "pps": 10, "seconds": 1}},
            {"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 20, "seconds": 1}})");
   play();
   std::string const svg = agent().plot();
   EXPECT_NE(svg.find(">CPU-bound traffic of t.json</text>"), std::string::npos);
   EXPECT_NE(svg.find(">Ethernet1 to CPU queue 1 (CoppSystemBgp)</text>"), std::string::npos);
   EXPECT_NE(svg.find(">Ethernet2 to CPU queue 1 (CoppSystemBgp)</text>"), std::string::npos);
   EXPECT_EQ(agent().traffic().flows().size(), 2u);
}

}  // namespace
