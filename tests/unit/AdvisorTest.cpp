// The advisor: answers known by arithmetic, advice that meets its goals when played, goals that
// cannot be met, and its question read from the scenario.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>

#include "Kiv/Activity.h"
#include "SimProgram.h"
#include "host/advise/AdviceReport.h"
#include "host/advise/Advisor.h"
#include "host/scenario/Scenario.h"

namespace {

using NimbalHost::Advice;
using NimbalHost::AdviceRow;
using NimbalHost::ScenarioError;

Advice adviseOn(std::string const& flows, std::string const& advise, double seconds = 10,
                std::string const& before = "") {
   Kiv::ActivityScope activity;
   NimbalHost::Scenario const s = NimbalHost::scenarioFromText(
       "{\"switch\": {}, \"steps\": [" + before + "{\"traffic\": {\"seconds\": " +
           std::to_string(seconds) + ", \"flows\": [" + flows + "]}}], \"advise\": " + advise + "}",
       "t.json");
   return NimbalHost::advise(s);
}

AdviceRow const& row(Advice const& a, std::string const& intf, std::string const& cmapName) {
   for (AdviceRow const& r : a.rows) {
      if (r.key == NimbalHost::ClassOnPort{intf, cmapName}) {
         return r;
      }
   }
   ADD_FAILURE() << "no row for " << intf << " " << cmapName;
   static AdviceRow const none;
   return none;
}

std::string bursts(std::string const& intf, std::string const& cmapName, int pps, int size) {
   return "{\"interface\": \"" + intf + "\", \"class\": \"" + cmapName +
          "\", \"pps\": " + std::to_string(pps) +
          ", \"pattern\": {\"bursts\": {\"size\": " + std::to_string(size) + "}}}";
}

std::string protect(std::string const& intf, std::string const& cmapName, double loss = 0) {
   return "{\"interface\": \"" + intf + "\", \"class\": \"" + cmapName +
          "\", \"maxLoss\": " + std::to_string(loss) + "}";
}

TEST(Advisor, ALoneFlowInBurstsNeedsItsRateAndItsBurst) {
   for (auto const& [pps, size] : {std::pair{100, 10}, {37, 5}, {1000, 50}, {20, 1}, {600, 3}}) {
      Advice const a = adviseOn(bursts("Ethernet1", "copp-system-bgp", pps, size),
                                "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") + "]}");
      AdviceRow const& r = row(a, "Ethernet1", "copp-system-bgp");
      ASSERT_TRUE(r.advised);
      EXPECT_EQ(r.advised->rate, static_cast<U32>(pps)) << pps << " pps in bursts of " << size;
      EXPECT_EQ(r.advised->burst, static_cast<U32>(size)) << pps << " pps in bursts of " << size;
      EXPECT_EQ(r.after.offered, static_cast<U64>(pps) * 10);
      EXPECT_EQ(r.after.allowed, r.after.offered);
      EXPECT_TRUE(a.met());
   }
}

TEST(Advisor, ARateOneBelowTheFlowsLosesPackets) {
   // The advice is the lowest: one pps less, with the same burst, loses packets.
   Advice const a = adviseOn(bursts("Ethernet1", "copp-system-bgp", 100, 10),
                             "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") + "]}");
   NimbalHost::Candidate lower = a.advised;
   lower.rates.at({"Ethernet1", "copp-system-bgp"}).rate -= 1;
   Kiv::ActivityScope activity;
   NimbalHost::Scenario const s = NimbalHost::scenarioFromText(
       "{\"switch\": {}, \"steps\": [{\"traffic\": {\"seconds\": 10, \"flows\": [" +
           bursts("Ethernet1", "copp-system-bgp", 100, 10) + "]}}]}",
       "t.json");
   NimbalHost::TrialResult const t = NimbalHost::playTrial(NimbalHost::candidateScenario(s, lower));
   NimbalHost::Admitted const got = t.byClass.at({"Ethernet1", "copp-system-bgp"});
   EXPECT_LT(got.allowed, got.offered);
}

TEST(Advisor, AMaxLossLetsTheRateGoBelowTheFlow) {
   Advice const a =
       adviseOn(bursts("Ethernet1", "copp-system-bgp", 100, 1),
                "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp", 0.5) + "]}");
   AdviceRow const& r = row(a, "Ethernet1", "copp-system-bgp");
   ASSERT_TRUE(r.advised);
   EXPECT_LE(r.advised->rate, 51u);
   EXPECT_GE(r.advised->rate, 49u);
   EXPECT_LE(r.after.loss(), 0.5);
   EXPECT_TRUE(a.met());
}

TEST(Advisor, AFloodOnThePortRaisesItsDefaultRateUntilTheProtectedClassIsWhole) {
   std::string const flows =
       "{\"interface\": \"Ethernet1\", \"class\": \"copp-system-bgp\", \"pps\": 20}, " +
       bursts("Ethernet1", "copp-system-dhcp", 5000, 50) +
       ", {\"interface\": \"Ethernet2\", \"class\": \"copp-system-bgp\", \"pps\": 20}";
   Advice const a = adviseOn(
       flows, "{\"protect\": [" + protect("*", "copp-system-bgp") + "], \"cpuBudget\": 1000}", 10,
       "{\"police\": {\"interface\": \"Ethernet1\", \"class\": "
       "\"copp-system-dhcp\", \"cir\": 300, \"bc\": 30}}, ");
   AdviceRow const& bgp = row(a, "Ethernet1", "copp-system-bgp");
   EXPECT_GT(bgp.before.loss(), 0.0);  // today the flood empties the port's default policer
   EXPECT_EQ(bgp.after.allowed, bgp.after.offered);
   EXPECT_EQ(row(a, "Ethernet2", "copp-system-bgp").after.loss(), 0.0);
   EXPECT_GT(a.portDefaultAdvised, 4000u);
   EXPECT_EQ(a.portDefaultToday, 1000u);
   // The flood's own class keeps today's rate: it is not protected and the port fits.
   AdviceRow const& dhcp = row(a, "Ethernet1", "copp-system-dhcp");
   ASSERT_TRUE(dhcp.advised);
   EXPECT_EQ(dhcp.advised->rate, 300u);
   for (NimbalHost::PortAdvice const& p : a.ports) {
      EXPECT_LE(static_cast<double>(p.after.allowed) / a.seconds, 1000.0) << p.interface;
   }
   EXPECT_TRUE(a.met());
}

TEST(Advisor, TheAdvisedScenarioPlaysAndKeepsEveryGoal) {
   std::string const flows =
       "{\"interface\": \"Ethernet1\", \"class\": \"copp-system-bgp\", \"pps\": 50, \"pattern\": "
       "{\"poisson\": {\"seed\": 7}}}, " +
       bursts("Ethernet1", "copp-system-lacp", 2, 2) + ", " +
       bursts("Ethernet1", "copp-system-arp", 3000, 30);
   std::string const question = "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") + ", " +
                                protect("Ethernet1", "copp-system-lacp") + "], \"cpuBudget\": 400}";
   Kiv::ActivityScope activity;
   NimbalHost::Scenario const s = NimbalHost::scenarioFromText(
       "{\"switch\": {}, \"steps\": [{\"traffic\": {\"seconds\": 10, \"flows\": [" + flows +
           "]}}], \"advise\": " + question + "}",
       "t.json");
   Advice const a = NimbalHost::advise(s);
   ASSERT_TRUE(a.met()) << NimbalHost::adviceText(a);
   // The scenario written for the advice, read back and played, meets the goals too.
   NimbalHost::Scenario const advised =
       NimbalHost::scenarioFromText(NimbalHost::advisedScenarioJson(s, a, "out.json"), "out.json");
   EXPECT_EQ(advised.sw.portDefaultCoppRate, a.portDefaultAdvised);
   NimbalHost::TrialResult const t = NimbalHost::playTrial(advised);
   for (char const* cmapName : {"copp-system-bgp", "copp-system-lacp"}) {
      NimbalHost::Admitted const got = t.byClass.at({"Ethernet1", cmapName});
      EXPECT_GT(got.offered, 0u) << cmapName;
      EXPECT_EQ(got.allowed, got.offered) << cmapName;
   }
   EXPECT_LE(static_cast<double>(t.byPort.at("Ethernet1").allowed) / 10, 400.0);
   // The ARP storm was cut to fit the budget.
   AdviceRow const& arp = row(a, "Ethernet1", "copp-system-arp");
   ASSERT_TRUE(arp.advised && arp.today);
   EXPECT_LT(arp.advised->rate, arp.today->rate);
}

TEST(Advisor, TheSameQuestionGetsTheSameAnswer) {
   std::string const flows =
       "{\"interface\": \"Ethernet1\", \"class\": \"copp-system-bgp\", \"pps\": 80, \"pattern\": "
       "{\"poisson\": {\"seed\": 3}}}, " +
       bursts("Ethernet1", "copp-system-dhcp", 4000, 40);
   std::string const question =
       "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") + "], \"cpuBudget\": 500}";
   Advice const a = adviseOn(flows, question);
   Advice const b = adviseOn(flows, question);
   EXPECT_EQ(NimbalHost::adviceJson(a), NimbalHost::adviceJson(b));
   EXPECT_EQ(NimbalHost::adviceText(a), NimbalHost::adviceText(b));
}

TEST(Advisor, ABudgetBelowWhatTheProtectedClassNeedsCannotBeMet) {
   Advice const a = adviseOn(
       bursts("Ethernet1", "copp-system-bgp", 200, 2) + ", " +
           bursts("Ethernet1", "copp-system-dhcp", 5000, 50),
       "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") + "], \"cpuBudget\": 100}");
   EXPECT_FALSE(a.met());
   ASSERT_EQ(a.unmet.size(), 1u);
   EXPECT_EQ(a.unmet[0].goal, "cpuBudget of 100 pps on Ethernet1");
   EXPECT_EQ(a.unmet[0].found, "it admits 200.1 pps with its unprotected chosen classes at 0");
   // The best found still keeps the protected class whole.
   EXPECT_EQ(row(a, "Ethernet1", "copp-system-bgp").after.loss(), 0.0);
   EXPECT_NE(NimbalHost::adviceText(a).find(
                 "advice: cannot be met: cpuBudget of 100 pps on Ethernet1: it admits 200.1 pps"),
             std::string::npos);
}

TEST(Advisor, AProtectedClassWhoseRateMayNotBeChosenIsNamed) {
   Advice const a = adviseOn(bursts("Ethernet1", "copp-system-bgp", 200, 2) + ", " +
                                 bursts("Ethernet1", "copp-system-dhcp", 100, 1),
                             "{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") +
                                 "], \"classes\": [\"copp-system-dhcp\"]}",
                             10,
                             "{\"police\": {\"interface\": \"Ethernet1\", \"class\": "
                             "\"copp-system-bgp\", \"cir\": 100, \"bc\": 10}}, ");
   ASSERT_EQ(a.unmet.size(), 1u);
   EXPECT_EQ(a.unmet[0].goal, "protect Ethernet1 copp-system-bgp within 0.0 %");
   EXPECT_NE(a.unmet[0].found.find("at its rate of today, which is not chosen"), std::string::npos);
   EXPECT_FALSE(row(a, "Ethernet1", "copp-system-bgp").chosen);
}

void expectRefused(std::string const& advise, std::string const& message) {
   try {
      NimbalHost::scenarioFromText(
          "{\"switch\": {}, \"steps\": [{\"traffic\": {\"seconds\": 1, \"flows\": ["
          "{\"interface\": \"Ethernet1\", \"class\": \"copp-system-bgp\", \"pps\": 10}]}}], "
          "\"advise\": " +
              advise + "}",
          "t.json");
      ADD_FAILURE() << "accepted " << advise;
   } catch (ScenarioError const& e) {
      EXPECT_EQ(std::string(e.what()), message) << advise;
   }
}

TEST(Advisor, BadQuestionsAreOneLine) {
   expectRefused("[]", "t.json: advise: key \"\": must be an object, not []");
   expectRefused("{}",
                 "t.json: advise: key \"protect\": is missing; it lists the classes to keep whole, "
                 "[{\"interface\": ..., \"class\": ..., \"maxLoss\": ...}]");
   expectRefused("{\"protect\": []}",
                 "t.json: advise: key \"protect\": must be a list of one or more goals, not []");
   expectRefused("{\"protect\": [" + protect("Ethernet1", "copp-system-bgp") + "], \"budget\": 5}",
                 "t.json: advise: key \"budget\": unknown key; the keys here are protect, "
                 "cpuBudget, classes");
   expectRefused("{\"protect\": [" + protect("Ethernet1", "copp-system-bpg") + "]}",
                 "t.json: advise: key \"protect[0].class\": no traffic step sends to class "
                 "\"copp-system-bpg\"; the closest is \"copp-system-bgp\"");
   expectRefused("{\"protect\": [" + protect("Ethernet2", "copp-system-bgp") + "]}",
                 "t.json: advise: key \"protect[0].class\": no traffic step sends to class "
                 "\"copp-system-bgp\" on Ethernet2");
   expectRefused("{\"protect\": [" + protect("Ethernet99", "copp-system-bgp") + "]}",
                 "t.json: advise: key \"protect[0].interface\": unknown interface "
                 "\"Ethernet99\"; the closest is \"Ethernet1\"");
   expectRefused("{\"protect\": [" + protect("Ethernet1", "copp-system-bgp", 1.5) + "]}",
                 "t.json: advise: key \"protect[0].maxLoss\": must be a share from 0 to 1 (0.01 "
                 "is 1 %), not 1.5");
   expectRefused("{\"protect\": [{\"interface\": \"Ethernet1\", \"class\": \"copp-system-bgp\"}]}",
                 "t.json: advise: key \"protect[0].maxLoss\": is missing");
   expectRefused("{\"protect\": [" + protect("*", "copp-system-bgp") + "], \"cpuBudget\": 0}",
                 "t.json: advise: key \"cpuBudget\": must be above 0 packets a second per port, "
                 "not 0");
   expectRefused("{\"protect\": [" + protect("*", "copp-system-bgp") + "], \"cpuBudget\": -3}",
                 "t.json: advise: key \"cpuBudget\": must not be negative, not -3");
   expectRefused("{\"protect\": [" + protect("*", "copp-system-bgp") + "], \"classes\": []}",
                 "t.json: advise: key \"classes\": must be a list of one or more class names, not "
                 "[]");
   expectRefused("{\"protect\": [" + protect("*", "copp-system-bgp") +
                     "], \"classes\": [\"copp-system-bgp\", \"copp-system-bgp\"]}",
                 "t.json: advise: key \"classes[1]\": names \"copp-system-bgp\" twice");
   expectRefused("{\"protect\": [" + protect("*", "copp-system-bgp") +
                     "], \"classes\": [\"copp-system-lldp\"]}",
                 "t.json: advise: key \"classes[0]\": no traffic step sends to class "
                 "\"copp-system-lldp\"; the traffic reaches copp-system-bgp");
}

TEST(Advisor, AScenarioWithoutTrafficToAClassHasNothingToAdvise) {
   try {
      NimbalHost::scenarioFromText(
          "{\"switch\": {}, \"steps\": [{\"traffic\": {\"interface\": \"Ethernet1\", \"queue\": "
          "3, \"pps\": 10, \"seconds\": 1}}], \"advise\": {\"protect\": []}}",
          "t.json");
      ADD_FAILURE() << "accepted";
   } catch (ScenarioError const& e) {
      EXPECT_EQ(std::string(e.what()),
                "t.json: advise: there is nothing to advise on: no traffic step sends to a class");
   }
}

TEST(AdvisorProgram, AdviseWithoutTheQuestionIsOneLineAndRunsNothing) {
   SimProgram::ProgramRun const r = SimProgram::run("--advise examples/basic.json");
   EXPECT_EQ(r.code, 1);
   EXPECT_EQ(r.out, "");
   EXPECT_EQ(r.err.find("examples/basic.json: key \"advise\" is missing"), 0u) << r.err;
   EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1);
}

TEST(AdvisorProgram, AnUnmetGoalEndsWithThree) {
   std::string const path = ::testing::TempDir() + "advisor-unmet.json";
   {
      std::ofstream out(path);
      out << "{\"switch\": {}, \"steps\": [{\"traffic\": {\"seconds\": 5, \"flows\": [" +
                 bursts("Ethernet1", "copp-system-bgp", 200, 2) +
                 "]}}], \"advise\": {\"protect\": [" + protect("*", "copp-system-bgp") +
                 "], \"cpuBudget\": 50}}";
   }
   SimProgram::ProgramRun const r = SimProgram::run("--advise '" + path + "'");
   EXPECT_EQ(r.code, 3) << r.err;
   EXPECT_NE(r.out.find("advice: cannot be met: cpuBudget of 50 pps on Ethernet1: it admits "
                        "200.0 pps, and it has no unprotected class to cut"),
             std::string::npos)
       << r.out;
   std::remove(path.c_str());
}

TEST(AdvisorProgram, AdviseOutWritesAScenarioThatPlaysFromWhereItIs) {
   std::string const out = ::testing::TempDir() + "advised-dhcp-flood.json";
   SimProgram::ProgramRun const r =
       SimProgram::run("--advise examples/advise-dhcp-flood.json --advise-out '" + out + "'");
   ASSERT_EQ(r.code, 0) << r.err;
   EXPECT_NE(r.out.find("advice: every goal is met"), std::string::npos);
   // Played from elsewhere, the capture is still found, and the protected classes lose nothing.
   SimProgram::ProgramRun const played = SimProgram::run("'" + out + "'");
   ASSERT_EQ(played.code, 0) << played.err;
   EXPECT_NE(played.out.find("traffic Ethernet1 queue 1: offered 248 allowed 248 dropped 0"),
             std::string::npos)
       << played.out;
   EXPECT_NE(played.out.find("traffic Ethernet1 queue 1: offered 200 allowed 200 dropped 0"),
             std::string::npos);
   EXPECT_NE(played.out.find("traffic Ethernet1 queue 5: offered 10 allowed 10 dropped 0"),
             std::string::npos);
   std::remove(out.c_str());
}

TEST(AdvisorProgram, AdviseOutNeedsAdvise) {
   SimProgram::ProgramRun const r = SimProgram::run("--advise-out x.json examples/basic.json");
   EXPECT_EQ(r.code, 2);
   EXPECT_NE(r.err.find("--advise-out requires --advise"), std::string::npos) << r.err;
}

}  // namespace
