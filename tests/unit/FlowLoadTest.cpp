#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "host/scenario/Scenario.h"
#include "host/scenario/StepText.h"

namespace {

using NimbalHost::Scenario;
using NimbalHost::ScenarioError;
using NimbalHost::scenarioFromText;
namespace step = NimbalHost::step;

std::string rejection(std::string const& traffic, std::string const& file = "s.json") {
   try {
      scenarioFromText("{\"steps\": [{\"traffic\": " + traffic + "}]}", file);
   } catch (ScenarioError const& e) {
      return e.what();
   }
   return "";
}

step::Traffic traffic(std::string const& value, std::string const& file = "s.json") {
   Scenario const s = scenarioFromText("{\"steps\": [{\"traffic\": " + value + "}]}", file);
   return std::get<step::Traffic>(s.steps.at(0).action);
}

}  // namespace

TEST(FlowLoad, OneFlowFormIsOneConstantFlow) {
   step::Traffic const t =
       traffic(R"({"interface": "Ethernet1", "class": "copp-system-bgp", "pps": 100,
                   "seconds": 2})");
   EXPECT_TRUE(t.oneFlow);
   ASSERT_EQ(t.flows.size(), 1u);
   EXPECT_EQ(t.flows[0].interface, "Ethernet1");
   EXPECT_EQ(t.flows[0].cmapName, "copp-system-bgp");
   EXPECT_EQ(t.flows[0].pps, 100u);
   EXPECT_EQ(t.flows[0].pattern.kind, step::Pattern::Kind::constant);
   EXPECT_FALSE(t.flows[0].exact);
   EXPECT_EQ(t.seconds, 2);
   EXPECT_EQ(t.interface, "Ethernet1");
   EXPECT_EQ(t.pps, 100u);
}

TEST(FlowLoad, ReadsFlowsInTheirOrderWithTheirPatterns) {
   step::Traffic const t = traffic(R"({"seconds": 10, "flows": [
       {"interface": "Ethernet1", "class": "copp-system-dhcp", "pps": 5000,
        "pattern": {"bursts": {"size": 50}}},
       {"interface": "Ethernet1", "queue": 1, "pps": 10, "pattern": {"poisson": {"seed": 7}}},
       {"interface": "Ethernet2", "class": "copp-system-bgp", "pps": 3, "exact": true,
        "pattern": "constant"}]})");
   EXPECT_FALSE(t.oneFlow);
   ASSERT_EQ(t.flows.size(), 3u);
   EXPECT_EQ(t.flows[0].pattern.kind, step::Pattern::Kind::bursts);
   EXPECT_EQ(t.flows[0].pattern.burstSize, 50u);
   EXPECT_EQ(t.flows[1].pattern.kind, step::Pattern::Kind::poisson);
   EXPECT_EQ(t.flows[1].pattern.seed, 7u);
   EXPECT_EQ(*t.flows[1].queue, 1u);
   EXPECT_TRUE(t.flows[2].exact);
   EXPECT_EQ(t.seconds, 10);
}

TEST(FlowLoad, CaptureFlowFileIsBesideTheScenario) {
   step::Traffic const t = traffic(R"({"seconds": 5, "flows": [
       {"interface": "Ethernet3", "pcap": "caps/x.pcap", "speed": 2,
        "classes": [{"class": "copp-system-bgp", "filter": "tcp port 179"},
                    {"queue": 5, "filter": "arp"}],
        "otherwise": "copp-system-l2broadcast",
        "save": {"allowed": "out/a.pcap", "dropped": "/tmp/d.pcap"}}]})",
                                   "examples/s.json");
   ASSERT_EQ(t.flows.size(), 1u);
   ASSERT_TRUE(t.flows[0].capture);
   step::Capture const& c = *t.flows[0].capture;
   EXPECT_EQ(c.file, "caps/x.pcap");
   EXPECT_EQ(c.path, "examples/caps/x.pcap");
   EXPECT_EQ(c.speed, 2);
   ASSERT_EQ(c.classes.size(), 2u);
   EXPECT_EQ(c.classes[0].filter, "tcp port 179");
   EXPECT_EQ(*c.classes[1].queue, 5u);
   EXPECT_EQ(c.otherwise.cmapName, "copp-system-l2broadcast");
   EXPECT_FALSE(c.ignoresTheRest());
   EXPECT_EQ(c.saveAllowed, "examples/out/a.pcap");
   EXPECT_EQ(c.saveDropped, "/tmp/d.pcap");
}

TEST(FlowLoad, CaptureIgnoresTheRestByDefault) {
   step::Traffic const t = traffic(R"({"seconds": 1, "flows": [
       {"interface": "Ethernet1", "pcap": "x.pcap", "classes": []}]})");
   EXPECT_TRUE(t.flows[0].capture->ignoresTheRest());
   EXPECT_EQ(t.flows[0].capture->speed, 1);
   step::Traffic const u = traffic(R"({"seconds": 1, "flows": [
       {"interface": "Ethernet1", "pcap": "x.pcap", "classes": [], "otherwise": 3}]})");
   EXPECT_EQ(*u.flows[0].capture->otherwise.queue, 3u);
}

TEST(FlowLoad, BadFlowsAreOneLineNamingTheKey) {
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": []})"),
             "s.json: step 1 (traffic): key \"flows\": must list at least one flow");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "queue": 1,
                          "pps": 1, "pattern": {"bursts": {"size": 2, "gap": 1}}}]})"),
             "s.json: step 1 (traffic): key \"flows[0].pattern.bursts.gap\": unknown key; the "
             "keys here are size");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "queue": 1,
                          "pps": 1, "pattern": "steady"}]})"),
             "s.json: step 1 (traffic): key \"flows[0].pattern\": must be \"constant\", "
             "{\"bursts\": {\"size\": N}} or {\"poisson\": {\"seed\": N}}, not \"steady\"");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "queue": 1,
                          "pps": 1, "pattern": {"poisson": {"seed": -1}}}]})"),
             "s.json: step 1 (traffic): key \"flows[0].pattern.poisson.seed\": must not be "
             "negative, not -1");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet9", "queue": 1,
                          "pps": 1}]})")
                 .rfind("s.json: step 1 (traffic): key \"flows[0].interface\": unknown interface "
                        "\"Ethernet9\"",
                        0),
             0u);
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "queue": 1,
                          "class": "copp-system-bgp", "pps": 1}]})"),
             "s.json: step 1 (traffic): key \"flows[0].class\": a flow names either a CPU "
             "\"queue\" or a \"class\", not both");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "pcap": "x",
                          "classes": [{"class": "copp-nothing", "filter": "arp"}]}]})"),
             "s.json: step 1 (traffic): key \"flows[0].classes[0].class\": unknown class "
             "\"copp-nothing\": it has no static CPU queue and no police step before this one "
             "gives it one");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "pcap": "x",
                          "classes": [], "speed": 0}]})"),
             "s.json: step 1 (traffic): key \"flows[0].speed\": must be above 0, not 0");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [{"interface": "Ethernet1", "pcap": "x",
                          "classes": [{"class": "copp-system-bgp"}]}]})"),
             "s.json: step 1 (traffic): key \"flows[0].classes[0].filter\": is missing");
   EXPECT_EQ(rejection(R"({"seconds": 1, "flows": [3]})"),
             "s.json: step 1 (traffic): key \"flows[0]\": must be an object, a flow, not 3");
   EXPECT_EQ(rejection(R"({"seconds": 2, "flows": [
                 {"interface": "Ethernet1", "queue": 1, "pps": 3000000},
                 {"interface": "Ethernet2", "queue": 1, "pps": 3000000}]})"),
             "s.json: step 1 (traffic): key \"flows\": pps * seconds is more than 10000000 "
             "packets; split the traffic into several steps");
}

TEST(FlowLoad, StepTextNamesEveryFlow) {
   Scenario const s = scenarioFromText(R"({"steps": [{"traffic": {"seconds": 10, "flows": [
       {"interface": "Ethernet1", "class": "copp-system-dhcp", "pps": 5000,
        "pattern": {"bursts": {"size": 50}}},
       {"interface": "Ethernet1", "queue": 1, "pps": 10, "pattern": {"poisson": {"seed": 7}}},
       {"interface": "Ethernet2", "pcap": "x.pcap", "classes": [], "speed": 2}]}}]})",
                                       "s.json");
   EXPECT_EQ(NimbalHost::stepText(s.steps[0]),
             "traffic 3 flows for 10 s: Ethernet1 class copp-system-dhcp 5000 pps in bursts of "
             "50; Ethernet1 queue 1 10 pps as Poisson arrivals (seed 7); Ethernet2 capture "
             "x.pcap at speed 2");
}
