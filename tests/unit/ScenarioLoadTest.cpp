#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <variant>

#include "host/agent/SimAgent.h"
#include "host/scenario/Scenario.h"

namespace {

using NimbalHost::Scenario;
using NimbalHost::ScenarioError;
using NimbalHost::scenarioFromFile;
using NimbalHost::scenarioFromText;
namespace step = NimbalHost::step;

// The one line a scenario is rejected with; empty when it is accepted.
std::string rejection(std::string const& text) {
   try {
      scenarioFromText(text, "s.json");
   } catch (ScenarioError const& e) {
      return e.what();
   }
   return "";
}

std::string withSteps(std::string const& steps, std::string const& sw = "{}") {
   return "{\"switch\": " + sw + ", \"steps\": [" + steps + "]}";
}

TEST(ScenarioLoad, DefaultsMakeASmallCompleteSwitch) {
   Scenario const s = scenarioFromText("{\"steps\": []}", "s.json");
   ASSERT_EQ(s.sw.modules.size(), 1u);
   EXPECT_EQ(s.sw.modules[0].modId, 0);
   EXPECT_EQ(s.sw.modules[0].unit, 0);
   ASSERT_EQ(s.sw.interfaces.size(), 8u);
   for (U16 i = 0; i < 8; ++i) {
      EXPECT_EQ(s.sw.interfaces[i].name, "Ethernet" + std::to_string(i + 1));
      EXPECT_EQ(s.sw.interfaces[i].modId, 0);
      EXPECT_EQ(s.sw.interfaces[i].port, i + 1);
   }
   EXPECT_TRUE(s.sw.fabricInterfaces.empty());
   ASSERT_EQ(s.sw.cpuQueues.size(), 48u);
   EXPECT_EQ(s.sw.cpuQueues[1].name, Nimbal::builtInCpuQTable()[1].name);
   EXPECT_EQ(s.sw.portDefaultCoppRate, 1000u);
   EXPECT_FALSE(s.sw.vxlanWorkaround);
   EXPECT_FALSE(s.sw.resources.efpCoppEntries.has_value());
   EXPECT_FALSE(s.sw.toggle("UseTcamAgentForPolicyQos"));
   EXPECT_TRUE(s.steps.empty());
}

TEST(ScenarioLoad, ReadsTheSwitch) {
   Scenario const s = scenarioFromText(
       R"({"switch": {"modules": [{"modId": 0, "unit": 0}, {"modId": 1, "unit": 1}],
           "interfaces": [{"name": "Ethernet1/1", "modId": 1, "port": 7}],
           "fabricInterfaces": [{"name": "Fabric1", "modId": 0, "port": 100}],
           "portDefaultCoppRate": 2000, "vxlanWorkaround": true,
           "resources": {"efpCoppMeters": 12},
           "toggles": {"UseTcamAgentForPolicyQos": true}},
          "steps": []})",
       "s.json");
   ASSERT_EQ(s.sw.modules.size(), 2u);
   EXPECT_EQ(s.sw.modules[1].unit, 1);
   ASSERT_EQ(s.sw.interfaces.size(), 1u);
   EXPECT_EQ(s.sw.interface("Ethernet1/1")->port, 7);
   EXPECT_EQ(s.sw.interface("Fabric1")->modId, 0);
   EXPECT_EQ(s.sw.interface("Ethernet1"), nullptr);
   EXPECT_EQ(s.sw.portDefaultCoppRate, 2000u);
   EXPECT_TRUE(s.sw.vxlanWorkaround);
   EXPECT_EQ(s.sw.resources.efpCoppMeters, 12u);
   EXPECT_FALSE(s.sw.resources.efpCoppEntries.has_value());
   EXPECT_TRUE(s.sw.toggle("UseTcamAgentForPolicyQos"));
}

TEST(ScenarioLoad, ReadsEveryStep) {
   Scenario const s = scenarioFromText(withSteps(R"(
      {"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 300, "bc": 30}},
      {"vxlan": true},
      {"recirc": {"interface": "Ethernet8", "enabled": true}},
      {"advance": 1.5},
      {"traffic": {"interface": "Ethernet1", "class": "copp-system-bgp", "pps": 100,
                   "seconds": 2, "vxlan": true}},
      {"traffic": {"interface": "Ethernet2", "queue": 7, "pps": 10, "seconds": 0.5}},
      {"show": "sw"},
      {"clear": {"queue": 1}},
      {"poll": {"interface": "Ethernet1", "class": "copp-system-bgp"}},
      {"verify": {}},
      {"set": {"createCoppPolicerAlwaysFalse": true}},
      {"resources": {"efpCoppEntries": 5, "efpDefaultMeters": 0}},
      {"tamper": {"interface": "Ethernet1", "queue": 1, "cir": 9, "bc": 1}},
      {"fail": {"call": "bcm_policer_create", "rc": -14}},
      {"unpolice": {"interface": "Ethernet1", "class": "copp-system-bgp"}})",
                                                 R"({"vxlanWorkaround": true})"),
                                       "s.json");
   ASSERT_EQ(s.steps.size(), 15u);
   EXPECT_EQ(s.steps[0].number, 1);
   EXPECT_EQ(s.steps[0].name, "police");
   auto const& police = std::get<step::Police>(s.steps[0].action);
   EXPECT_EQ(police.interface, "Ethernet1");
   EXPECT_EQ(police.cmapName, "copp-system-bgp");
   EXPECT_EQ(police.cir, 300u);
   EXPECT_EQ(police.bc, 30u);
   EXPECT_TRUE(std::get<step::Vxlan>(s.steps[1].action).enabled);
   EXPECT_EQ(std::get<step::Recirc>(s.steps[2].action).interface, "Ethernet8");
   EXPECT_DOUBLE_EQ(std::get<step::Advance>(s.steps[3].action).seconds, 1.5);
   auto const& byClass = std::get<step::Traffic>(s.steps[4].action);
   EXPECT_FALSE(byClass.queue.has_value());
   EXPECT_EQ(byClass.cmapName, "copp-system-bgp");
   EXPECT_EQ(byClass.pps, 100u);
   EXPECT_TRUE(byClass.vxlan);
   auto const& byQueue = std::get<step::Traffic>(s.steps[5].action);
   EXPECT_EQ(byQueue.queue, 7u);
   EXPECT_DOUBLE_EQ(byQueue.seconds, 0.5);
   EXPECT_FALSE(byQueue.vxlan);
   EXPECT_FALSE(std::get<step::Show>(s.steps[6].action).hw);
   auto const& clear = std::get<step::Clear>(s.steps[7].action);
   EXPECT_FALSE(clear.interface.has_value());
   EXPECT_EQ(clear.queue, 1u);
   EXPECT_EQ(std::get<step::Poll>(s.steps[8].action).cmapName, "copp-system-bgp");
   EXPECT_TRUE(std::holds_alternative<step::Verify>(s.steps[9].action));
   auto const& set = std::get<step::Set>(s.steps[10].action);
   ASSERT_EQ(set.attributes.size(), 1u);
   EXPECT_EQ(set.attributes[0].first, "createCoppPolicerAlwaysFalse");
   EXPECT_EQ(set.attributes[0].second, "true");
   auto const& res = std::get<step::Resources>(s.steps[11].action);
   EXPECT_EQ(res.sizes.efpCoppEntries, 5u);
   EXPECT_EQ(res.sizes.efpDefaultMeters, 0u);
   EXPECT_FALSE(res.sizes.efpCoppMeters.has_value());
   auto const& tamper = std::get<step::Tamper>(s.steps[12].action);
   EXPECT_EQ(tamper.queue, 1u);
   EXPECT_EQ(tamper.cir, 9u);
   auto const& fail = std::get<step::Fail>(s.steps[13].action);
   EXPECT_EQ(fail.call, "bcm_policer_create");
   EXPECT_EQ(fail.rc, -14);
   EXPECT_EQ(std::get<step::Unpolice>(s.steps[14].action).cmapName, "copp-system-bgp");
}

TEST(ScenarioLoad, RecircIsEnabledUnlessSaidOtherwise) {
   Scenario const s = scenarioFromText(withSteps(R"({"recirc": {"interface": "Ethernet2"}},
      {"recirc": {"interface": "Ethernet2", "enabled": false}})"),
                                       "s.json");
   EXPECT_TRUE(std::get<step::Recirc>(s.steps[0].action).enabled);
   EXPECT_FALSE(std::get<step::Recirc>(s.steps[1].action).enabled);
}

TEST(ScenarioLoad, BadJsonNamesTheLineAndColumn) {
   EXPECT_EQ(rejection("{\"steps\": [\n  {\"advance\": 1,}\n]}"),
             "s.json: line 2, column 17: not valid JSON: syntax error while parsing object key - "
             "unexpected '}'; expected string literal");
}

// The parser refuses such a number with an error of its own kind; it must still be one line.
TEST(ScenarioLoad, NumberBeyondADoubleIsRefusedInOneLine) {
   EXPECT_EQ(rejection(withSteps(R"({"advance": 2e308})")),
             "s.json: not valid JSON: number overflow parsing '2e308'");
   EXPECT_EQ(rejection(withSteps(R"({"advance": -1e999})")),
             "s.json: not valid JSON: number overflow parsing '-1e999'");
}

TEST(ScenarioLoad, UnknownStepIsNamed) {
   EXPECT_EQ(rejection(withSteps(R"({"advance": 1}, {"polish": {}})")),
             "s.json: step 2: key \"polish\": unknown step; the steps are police, unpolice, "
             "vxlan, recirc, advance, traffic, show, clear, poll, verify, set, resources, "
             "tamper, fail");
}

TEST(ScenarioLoad, StepWithTwoKeysIsRejected) {
   EXPECT_EQ(rejection(withSteps(R"({"advance": 1, "vxlan": true})")),
             "s.json: step 1: a step is an object with exactly one key, the step's name; it has "
             "advance, vxlan");
   EXPECT_EQ(rejection(withSteps(R"([1])")),
             "s.json: step 1: a step is an object with exactly one key, the step's name; it is "
             "[1]");
}

TEST(ScenarioLoad, UnknownInterfaceIsNamed) {
   EXPECT_EQ(rejection(withSteps(
                 R"({"police": {"interface": "Ethernet9", "class": "copp-system-bgp", "cir": 1,
                    "bc": 1}})")),
             "s.json: step 1 (police): key \"interface\": unknown interface \"Ethernet9\"; the "
             "switch has Ethernet1-Ethernet8");
}

TEST(ScenarioLoad, UnknownInterfaceOfAnUnknownPrefixNamesTheClosest) {
   EXPECT_EQ(rejection(withSteps(R"({"poll": {"interface": "Etherent3", "class": "x"}})")),
             "s.json: step 1 (poll): key \"interface\": unknown interface \"Etherent3\"; the "
             "switch has Ethernet1-Ethernet8; the closest is \"Ethernet3\"");
}

TEST(ScenarioLoad, UnknownInterfaceOfALongListIsCutShort) {
   std::string interfaces;
   for (int i = 1; i <= 60; i += 2) {
      interfaces += std::string(interfaces.empty() ? "" : ", ") + R"({"name": "Ethernet)" +
                    std::to_string(i) + R"(", "modId": 0, "port": )" + std::to_string(i) + "}";
   }
   std::string const line =
       rejection(withSteps(R"({"advance": 1}, {"clear": {"interface": "Ethernet2"}})",
                           R"({"interfaces": [)" + interfaces + "]}"));
   EXPECT_EQ(line.rfind("s.json: step 2 (clear): key \"interface\": unknown interface "
                        "\"Ethernet2\"; the switch has Ethernet1, Ethernet3, ",
                        0),
             0u)
       << line;
   EXPECT_EQ(line.substr(line.size() - 5), ", ...") << line;
   EXPECT_LT(line.size(), 300u);
}

TEST(ScenarioLoad, ClassRateWhoseDoubleDoesNotFitIn32BitsIsRefused) {
   auto police = [](std::string const& cir) {
      return withSteps(R"({"police": {"interface": "Ethernet1", "class": "copp-system-bgp",
                          "cir": )" +
                       cir + R"(, "bc": 30}})");
   };
   EXPECT_EQ(rejection(police("2147483647")), "");
   EXPECT_EQ(rejection(police("2147483648")),
             "s.json: step 1 (police): key \"cir\": 2147483648 pps is more than 2147483647, the "
             "highest class rate: the port's default policer meters twice the class rate in 32 "
             "bits");
}

TEST(ScenarioLoad, UnpoliceOfAClassNeverPolicedIsAnUnknownClass) {
   EXPECT_EQ(rejection(withSteps(R"(
      {"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 1, "bc": 1}},
      {"unpolice": {"interface": "Ethernet2", "class": "copp-system-bgp"}})")),
             "s.json: step 2 (unpolice): key \"class\": unknown class \"copp-system-bgp\": no "
             "police step before this one polices it on Ethernet2");
}

TEST(ScenarioLoad, PollAfterUnpoliceIsAnUnknownClass) {
   EXPECT_EQ(rejection(withSteps(R"(
      {"police": {"interface": "Ethernet1", "class": "user1", "cir": 1, "bc": 1}},
      {"unpolice": {"interface": "Ethernet1", "class": "user1"}},
      {"poll": {"interface": "Ethernet1", "class": "user1"}})")),
             "s.json: step 3 (poll): key \"class\": unknown class \"user1\": no police step "
             "before this one polices it on Ethernet1");
}

TEST(ScenarioLoad, TrafficToAClassWithoutQueueIsAnUnknownClass) {
   EXPECT_EQ(rejection(withSteps(
                 R"({"traffic": {"interface": "Ethernet1", "class": "user1", "pps": 1,
                    "seconds": 1}})")),
             "s.json: step 1 (traffic): key \"class\": unknown class \"user1\": it has no static "
             "CPU queue and no police step before this one gives it one");
   // A static class needs no police step; a dynamic one policed anywhere has a queue.
   EXPECT_EQ(rejection(withSteps(R"(
      {"traffic": {"interface": "Ethernet1", "class": "copp-system-lldp", "pps": 1, "seconds": 1}},
      {"police": {"interface": "Ethernet2", "class": "user1", "cir": 1, "bc": 1}},
      {"traffic": {"interface": "Ethernet1", "class": "user1", "pps": 1, "seconds": 1}})")),
             "");
}

TEST(ScenarioLoad, NegativeRateIsRejected) {
   EXPECT_EQ(
       rejection(withSteps(
           R"({"police": {"interface": "Ethernet1", "class": "user1", "cir": -5, "bc": 1}})")),
       "s.json: step 1 (police): key \"cir\": must not be negative, not -5");
}

TEST(ScenarioLoad, MissingRateIsRejected) {
   EXPECT_EQ(
       rejection(withSteps(R"({"police": {"interface": "Ethernet1", "class": "user1", "bc": 1}})")),
       "s.json: step 1 (police): key \"cir\": is missing");
}

TEST(ScenarioLoad, WrongTypeIsRejected) {
   EXPECT_EQ(rejection(withSteps(
                 R"({"police": {"interface": "Ethernet1", "class": "user1", "cir": "100",
                    "bc": 1}})")),
             "s.json: step 1 (police): key \"cir\": must be a whole number, not \"100\"");
   EXPECT_EQ(rejection(withSteps(R"({"vxlan": "yes"})")),
             "s.json: step 1 (vxlan): key \"vxlan\": must be true or false, not \"yes\"");
   EXPECT_EQ(rejection(withSteps(R"({"advance": "1s"})")),
             "s.json: step 1 (advance): key \"advance\": must be a number of seconds, not \"1s\"");
   EXPECT_EQ(rejection(withSteps(R"({"show": "all"})")),
             "s.json: step 1 (show): key \"show\": must be \"hw\" or \"sw\", not \"all\"");
}

TEST(ScenarioLoad, UnknownKeyOfAStepIsNamed) {
   EXPECT_EQ(rejection(withSteps(R"({"clear": {"intf": "Ethernet1"}})")),
             "s.json: step 1 (clear): key \"intf\": unknown key; the keys here are interface, "
             "queue");
   EXPECT_EQ(rejection(withSteps(R"({"verify": {"all": true}})")),
             "s.json: step 1 (verify): key \"all\": unknown key; this object takes no keys");
}

TEST(ScenarioLoad, QueueOutOfRangeIsRejected) {
   EXPECT_EQ(
       rejection(withSteps(
           R"({"traffic": {"interface": "Ethernet1", "queue": 48, "pps": 1, "seconds": 1}})")),
       "s.json: step 1 (traffic): key \"queue\": must be from 0 to 47, not 48");
}

TEST(ScenarioLoad, TrafficNamesQueueOrClassNotBoth) {
   EXPECT_EQ(rejection(withSteps(R"({"traffic": {"interface": "Ethernet1", "queue": 1,
                 "class": "copp-system-bgp", "pps": 1, "seconds": 1}})")),
             "s.json: step 1 (traffic): key \"class\": a traffic step names either a CPU "
             "\"queue\" or a \"class\", not both");
   EXPECT_EQ(rejection(withSteps(R"({"traffic": {"interface": "Ethernet1", "pps": 1,
                 "seconds": 1}})")),
             "s.json: step 1 (traffic): key \"queue\": a traffic step names either a CPU "
             "\"queue\" or a \"class\", not both");
}

TEST(ScenarioLoad, TrafficOfZeroSecondsIsRejected) {
   EXPECT_EQ(rejection(withSteps(
                 R"({"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 1, "seconds": 0}})")),
             "s.json: step 1 (traffic): key \"seconds\": must be above 0, not 0");
   EXPECT_EQ(rejection(withSteps(
                 R"({"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 0, "seconds": 1}})")),
             "s.json: step 1 (traffic): key \"pps\": must be from 1 to 4294967295, not 0");
}

TEST(ScenarioLoad, TunnelTrafficNeedsARecirculationInterfaceWithTheWorkaround) {
   std::string const traffic =
       R"({"traffic": {"interface": "Ethernet1", "queue": 1, "pps": 1, "seconds": 1,
           "vxlan": true}})";
   EXPECT_EQ(rejection(withSteps(traffic, R"({"vxlanWorkaround": true})")),
             "s.json: step 1 (traffic): key \"vxlan\": tunnel traffic reaches the CPU through a "
             "recirculation interface on this switch; enable one with a recirc step first");
   EXPECT_EQ(rejection(withSteps(R"({"recirc": {"interface": "Ethernet8"}},)" + traffic,
                                 R"({"vxlanWorkaround": true})")),
             "");
   EXPECT_EQ(rejection(withSteps(traffic)), "");
}

TEST(ScenarioLoad, SetNamesOnlySettableAttributes) {
   EXPECT_EQ(rejection(withSteps(R"({"set": {"kernelCoppConfig": 1}})")),
             "s.json: step 1 (set): key \"kernelCoppConfig\": not an attribute of the helper "
             "that can be set; those are createCoppPolicerAlwaysFalse");
   EXPECT_EQ(rejection(withSteps(R"({"set": {"createCoppPolicerAlwaysFalse": [true]}})")),
             "s.json: step 1 (set): key \"createCoppPolicerAlwaysFalse\": must be true, false, a "
             "whole number or a string, not [true]");
}

TEST(ScenarioLoad, FailNamesAnSdkCallAndAnErrorCode) {
   std::string const unknownCall =
       rejection(withSteps(R"({"fail": {"call": "bcm_fly", "rc": -1}})"));
   EXPECT_EQ(unknownCall.rfind("s.json: step 1 (fail): key \"call\": unknown SDK call \"bcm_fly\"; "
                               "the calls are bcm_field_group_create_id, ",
                               0),
             0u)
       << unknownCall;
   EXPECT_NE(unknownCall.find(", bcm_policer_create, "), std::string::npos);
   EXPECT_EQ(rejection(withSteps(R"({"fail": {"call": "bcm_policer_create", "rc": 0}})")),
             "s.json: step 1 (fail): key \"rc\": must be from -1000 to -1, not 0");
}

TEST(ScenarioLoad, SwitchFaultsNameTheKey) {
   EXPECT_EQ(rejection(withSteps("", R"({"interfaces": [{"name": "Ethernet1", "modId": 0,
                 "port": 1}, {"name": "Ethernet1", "modId": 0, "port": 2}]})")),
             "s.json: switch: key \"interfaces[1].name\": interface Ethernet1 appears twice");
   EXPECT_EQ(rejection(withSteps("", R"({"interfaces": [{"name": "Ethernet1", "modId": 3,
                 "port": 1}]})")),
             "s.json: switch: key \"interfaces[0].modId\": module 3 is not in \"modules\"");
   EXPECT_EQ(rejection(withSteps("", R"({"modules": [{"modId": 2, "unit": 0}]})")),
             "s.json: switch: key \"interfaces\": the default interfaces are on module 0, module "
             "0 is not in \"modules\"");
   EXPECT_EQ(rejection(withSteps("", R"({"interfaces": [{"name": "Ethernet1", "modId": 0,
                 "port": 1024}]})")),
             "s.json: switch: key \"interfaces[0].port\": must be from 0 to 1023, not 1024");
   EXPECT_EQ(rejection(withSteps("", R"({"portDefaultCopRate": 5})")),
             "s.json: switch: key \"portDefaultCopRate\": unknown key; the keys here are modules, "
             "interfaces, interfaceRanges, fabricInterfaces, cpuQueues, portDefaultCoppRate, "
             "vxlanWorkaround, resources, toggles");
   EXPECT_EQ(rejection(withSteps("", R"({"resources": {"efpCoppMeters": -1}})")),
             "s.json: switch: key \"resources.efpCoppMeters\": must not be negative, not -1");
}

TEST(ScenarioLoad, InterfaceRangesMakeManyInterfaces) {
   Scenario const s = scenarioFromText(
       withSteps("", R"({"modules": [{"modId": 0, "unit": 0}, {"modId": 1, "unit": 1}],
           "interfaces": [{"name": "Management1", "modId": 0, "port": 1000}],
           "interfaceRanges": [{"prefix": "Ethernet", "first": 1, "count": 512, "modId": 0,
                                "port": 1},
                               {"prefix": "Ethernet", "first": 513, "count": 512, "modId": 1,
                                "port": 1}]})"),
       "s.json");
   ASSERT_EQ(s.sw.interfaces.size(), 1025u);
   EXPECT_EQ(s.sw.interfaces[0].name, "Management1");
   EXPECT_EQ(s.sw.interfaces[1].name, "Ethernet1");
   EXPECT_EQ(s.sw.interfaces[512].name, "Ethernet512");
   EXPECT_EQ(s.sw.interfaces[512].port, 512);
   EXPECT_EQ(s.sw.interface("Ethernet513")->modId, 1);
   EXPECT_EQ(s.sw.interface("Ethernet1024")->port, 512);
   // Ranges alone replace the default interfaces.
   Scenario const only = scenarioFromText(
       withSteps("", R"({"interfaceRanges": [{"prefix": "Et", "first": 1, "count": 2,
                                               "modId": 0, "port": 5}]})"),
       "s.json");
   ASSERT_EQ(only.sw.interfaces.size(), 2u);
   EXPECT_EQ(only.sw.interfaces[1].name, "Et2");
   EXPECT_EQ(only.sw.interfaces[1].port, 6);
}

TEST(ScenarioLoad, InterfaceRangePastTheLastPortIsRejected) {
   EXPECT_EQ(rejection(withSteps("", R"({"interfaceRanges": [{"prefix": "Et", "first": 1,
                 "count": 30, "modId": 0, "port": 1000}]})")),
             "s.json: switch: key \"interfaceRanges[0].count\": the last port would be 1029; "
             "ports go up to 1023");
   EXPECT_EQ(rejection(withSteps("", R"({"interfaces": [{"name": "Et2", "modId": 0, "port": 1}],
                 "interfaceRanges": [{"prefix": "Et", "first": 1, "count": 2, "modId": 0,
                 "port": 5}]})")),
             "s.json: switch: key \"interfaces[2].name\": interface Et2 appears twice");
}

TEST(ScenarioLoad, SwitchConfigCarriesTheSwitch) {
   Scenario const s =
       scenarioFromText(withSteps("", R"({"portDefaultCoppRate": 700, "vxlanWorkaround": true,
                          "fabricInterfaces": [{"name": "Fabric1", "modId": 0, "port": 99}],
                          "resources": {"efpCoppEntries": 3}})"),
                        "s.json");
   NimbalHost::SwitchConfig const c = NimbalHost::switchConfigOf(s.sw);
   EXPECT_EQ(c.modules.size(), 1u);
   EXPECT_EQ(c.interfaces.size(), 8u);
   ASSERT_EQ(c.fabricInterfaces.size(), 1u);
   EXPECT_EQ(c.fabricInterfaces[0].port, 99);
   EXPECT_EQ(c.cpuQueues.size(), 48u);
   EXPECT_EQ(c.portDefaultCoppRate, 700u);
   EXPECT_TRUE(c.vxlanWorkaround);
   EXPECT_EQ(c.resources.efpCoppEntries, 3u);
}

TEST(ScenarioLoad, CpuQueueTableIsCheckedWhole) {
   EXPECT_EQ(rejection(withSteps("", R"({"cpuQueues": [{"id": 0, "name": "Drop", "rate": 0,
                 "burst": 0}]})")),
             "s.json: switch: key \"cpuQueues\": the CPU queue table needs exactly 48 queues, not "
             "1");
   EXPECT_EQ(rejection(withSteps("", R"({"cpuQueues": [{"id": 0, "name": "Drop", "rate": 0}]})")),
             "s.json: switch: key \"cpuQueues[0].burst\": is missing");
}

TEST(ScenarioLoad, CpuQueueTableOfTheFileReplacesTheBuiltInOne) {
   std::string rows;
   for (int id = 0; id < 48; ++id) {
      rows += std::string(id ? "," : "") + "{\"id\": " + std::to_string(id) + ", \"name\": \"Q" +
              std::to_string(id) + "\", \"rate\": " + std::to_string(100 + id) + ", \"burst\": 10" +
              (id == 5 ? ", \"classes\": [\"c5\"]" : "") + (id > 40 ? ", \"dynamic\": true" : "") +
              "}";
   }
   Scenario const s = scenarioFromText(withSteps("", "{\"cpuQueues\": [" + rows + "]}"), "s.json");
   ASSERT_EQ(s.sw.cpuQueues.size(), 48u);
   EXPECT_EQ(s.sw.cpuQueues[7].name, "Q7");
   EXPECT_EQ(s.sw.cpuQueues[7].rate, 107u);
   EXPECT_EQ(s.sw.staticQueue("c5"), 5);
   EXPECT_EQ(s.sw.staticQueue("copp-system-bgp"), -1);
   EXPECT_TRUE(s.sw.cpuQueues[41].dynamic);
   EXPECT_FALSE(s.sw.cpuQueues[40].dynamic);
}

TEST(ScenarioLoad, TopLevelNeedsSteps) {
   EXPECT_EQ(rejection("{\"switch\": {}}"),
             "s.json: key \"steps\": is missing; a scenario is {\"switch\": {...}, \"steps\": "
             "[...]}");
   EXPECT_EQ(rejection("[]"),
             "s.json: a scenario is an object {\"switch\": {...}, \"steps\": [...]}, not []");
}

TEST(ScenarioLoad, UnreadableFileIsNamed) {
   try {
      scenarioFromFile("/nonexistent/s.json");
      FAIL() << "no error";
   } catch (ScenarioError const& e) {
      EXPECT_STREQ(e.what(),
                   "/nonexistent/s.json: cannot read the file (No such file or directory)");
   }
}

TEST(ScenarioLoad, FileIsReadAndNamedByItsPath) {
   std::string const path = ::testing::TempDir() + "scenario-load-test.json";
   {
      std::ofstream out(path);
      out << withSteps(R"({"show": "everything"})");
   }
   try {
      scenarioFromFile(path);
      FAIL() << "no error";
   } catch (ScenarioError const& e) {
      EXPECT_EQ(
          std::string(e.what()),
          path + ": step 1 (show): key \"show\": must be \"hw\" or \"sw\", not \"everything\"");
   }
   std::remove(path.c_str());
}

TEST(ScenarioLoad, EveryRejectionIsOneLine) {
   for (std::string const& text :
        {std::string("{"), withSteps(R"({"nope": 1})"), withSteps("", R"({"modules": 3})")}) {
      std::string const line = rejection(text);
      EXPECT_FALSE(line.empty());
      EXPECT_EQ(line.find('\n'), std::string::npos) << line;
   }
}

}  // namespace
