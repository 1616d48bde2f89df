#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "SourceTree.h"
#include "host/scenario/Demo.h"
#include "host/scenario/Scenario.h"
#include "host/scenario/StepText.h"
#include "host/transcript/KeyRanges.h"
#include "host/transcript/SvgPlot.h"
#include "host/transcript/TextTranscript.h"

// The JSON Lines transcript of a run says everything the text transcript of the same run says:
// the text is rebuilt here from the JSON events alone, with the formats of the text transcript and
// of the library's tables, and must equal the run's text transcript (the example's golden file,
// which the scenario tests hold to the text the simulator writes), byte for byte.

namespace {

using Json = nlohmann::json;

std::string slurp(std::string const& path) {
   std::ifstream in(path);
   std::ostringstream text;
   text << in.rdbuf();
   return text.str();
}

// The JSON Lines transcript of `scenario` (the demo when empty), run from the source tree.
std::string simulateJson(std::string const& scenario) {
   std::string const out = ::testing::TempDir() + "json-transcript-" +
                           ::testing::UnitTest::GetInstance()->current_test_info()->name() +
                           ".jsonl";
   std::string const command = "cd '" + SourceTree::dir() + "' && '" + SourceTree::simulator() +
                               "' --format json " + scenario + " >'" + out + "'";
   int const status = std::system(command.c_str());
   EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
   std::string text = slurp(out);
   std::remove(out.c_str());
   return text;
}

std::string format(char const* f, char const* a, char const* b, long long n, char const* end) {
   char buf[512];
   std::snprintf(buf, sizeof buf, f, a, b, n);
   return buf + std::string(end);
}

// The library's tables from their rows.
std::string table(Json const& e) {
   bool const hw = e.at("table") == "hw";
   std::string out;
   char buf[512];
   if (hw) {
      out = "Interface              Queue           Hits\n" + std::string(52, '-') + "\n";
   } else {
      std::snprintf(buf, sizeof buf, "%-15s %-26s %15s %15s\n", "Interface", "Queue", "Dropped",
                    "Allowed");
      out = buf;
   }
   std::string previous;
   for (Json const& row : e.at("rows")) {
      std::string const intf = row.at("interface");
      std::string const queue = row.at("queue");
      bool const first = intf != previous;
      previous = intf;
      std::string const shown = first ? intf : "";
      if (hw) {
         // The first row of an interface ends with a blank unless it is the default policer's.
         out += format("%-15s %-20s %15lld", shown.c_str(), queue.c_str(),
                       row.at("hits").get<long long>(), first && queue != "Default" ? " \n" : "\n");
      } else {
         std::snprintf(buf, sizeof buf, "%-15s %-26s %15lld %15lld\n", shown.c_str(), queue.c_str(),
                       row.at("dropped").get<long long>(), row.at("allowed").get<long long>());
         out += buf;
      }
   }
   return out + (hw ? "\n\n" : "");
}

std::string n(Json const& v) {
   return std::to_string(v.get<unsigned long long>());
}

std::string queueText(Json const& e) {
   return "CPU queue " + n(e.at("queue")) +
          (e.contains("queueName") ? " (" + e.at("queueName").get<std::string>() + ")" : "");
}

// The text lines of one event.
std::string text(Json const& e, NimbalHost::Scenario const& scenario) {
   using NimbalHost::counted;
   std::string const kind = e.at("event");
   std::string out;
   auto line = [&out](std::string const& l) { out += l + "\n"; };
   auto s = [&e](char const* key) { return e.at(key).get<std::string>(); };
   if (kind == "scenario") {
      line("nimbal-copp-sim: " + s("file"));
      for (std::string const& l : NimbalHost::wrapped(s("description"), 96)) {
         line("  " + l);
      }
   } else if (kind == "switch") {
      std::string intfs = counted(e.at("interfaces").get<std::size_t>(), "interface");
      if (e.at("fabricInterfaces") != 0) {
         intfs +=
             " and " + counted(e.at("fabricInterfaces").get<std::size_t>(), "fabric interface");
      }
      line("switch: " + n(e.at("modules")) + (e.at("modules") == 1 ? " module, " : " modules, ") +
           intfs + ", " + n(e.at("cpuQueues")) + " CPU queues (" + n(e.at("dynamicCpuQueues")) +
           " dynamic), port default CoPP rate " + n(e.at("portDefaultCoppRate")) +
           " pps, VXLAN workaround " + (e.at("vxlanWorkaround") == true ? "on" : "off"));
   } else if (kind == "helper") {
      line("helper: " + s("type") +
           (e.at("fromLibraryFile") == true
                ? ", from the library file through dlopen and getQosAclHelper"
                : ", from getQosAclHelper"));
   } else if (kind == "startUp") {
      line(
          "start-up: " +
          counted(e.at("portDefaultPolicers").get<std::size_t>(), "per-port default CoPP policer") +
          ", " + counted(e.at("kernelKeysProgrammed").get<std::size_t>(), "kernel CoPP key") +
          " programmed");
      if (e.at("interfacesOnHighPorts") != 0) {
         line("start-up: no per-port default CoPP policer on ports " + n(e.at("highPortsFrom")) +
              " and above (" +
              counted(e.at("interfacesOnHighPorts").get<std::size_t>(), "interface") + ")");
      }
      if (!e.at("interfacesWithoutDefaultPolicer").empty()) {
         line("start-up: no per-port default CoPP policer on " +
              counted(e.at("interfacesWithoutDefaultPolicer").size(), "interface") +
              " (the default-and-VXLAN group ran out), the first " +
              e.at("interfacesWithoutDefaultPolicer").at(0).get<std::string>());
      }
   } else if (kind == "step") {
      NimbalHost::ScenarioStep const& step =
          scenario.steps.at(e.at("step").get<std::size_t>() - 1u);
      // The step as the file wrote it.
      EXPECT_EQ(e.at("name"), step.name);
      EXPECT_EQ(e.at("value"), Json::parse(step.value));
      line("step " + n(e.at("step")) + " at " + NimbalHost::timeText(e.at("time").get<double>()) +
           " s: " + NimbalHost::stepText(step));
   } else if (kind == "classPoliced") {
      line("  " + s("interface") + " " + s("class") + " on " + queueText(e) + ", " +
           s("queueKind") + ": " + n(e.at("cir")) + " pps, burst " + n(e.at("bc")) + " packets" +
           (e.at("rateChanged") == true ? " (rate changed)" : ""));
   } else if (kind == "classNameNote") {
      line("  note: " + s("class") +
           " has no static CPU queue, so it is a user class on a dynamic queue and " +
           s("systemClass") + " stays as it was; did you mean " + s("systemClass") + "?");
   } else if (kind == "classNotProgrammed") {
      line("  " + s("interface") + " " + s("class") +
           ": no dynamic CPU queue is free; the class is not programmed");
   } else if (kind == "portDefaultPolicer") {
      line("  per-port default CoPP policer of " + s("interface") + ": " + n(e.at("rate")) +
           " pps, burst " + n(e.at("burst")) + " packets");
   } else if (kind == "classUnpoliced") {
      line("  " + s("interface") + " " + s("class") + ": police action removed; " +
           (e.at("programmed") == false ? "it was never programmed"
                                        : queueText(e) + (e.at("queueKind") == "dynamic"
                                                              ? " is given back to the pool"
                                                              : " is back to its default rate")));
   } else if (kind == "vxlan") {
      line(std::string("  VXLAN ") + (e.at("enabled") == true ? "enabled" : "disabled") + "; " +
           counted(e.at("entries").get<std::size_t>(), "VXLAN CoPP entry", "VXLAN CoPP entries") +
           " programmed");
   } else if (kind == "recirc") {
      line("  " + s("interface") +
           (e.at("enabled") == true ? " is a VXLAN recirculation interface"
                                    : " is no longer a VXLAN recirculation interface"));
   } else if (kind == "trafficNotSent") {
      line(e.at("reason") == "noCpuQueue"
               ? "  class " + s("class") + " has no CPU queue: nothing was sent"
               : "  no VXLAN recirculation interface: nothing was sent");
   } else if (kind == "tunnelTraffic") {
      line("  tunnel traffic of " + s("interface") + " reaches the CPU from " +
           s("recircInterface") + " with inner VLAN " + n(e.at("innerVlan")));
   } else if (kind == "trafficEmpty") {
      char seconds[48];
      std::snprintf(seconds, sizeof seconds, "%g", e.at("seconds").get<double>());
      line("  note: " + n(e.at("pps")) + " pps for " + seconds +
           " s is less than one packet: " + s("interface") + " sent nothing");
   } else if (kind == "traffic") {
      EXPECT_EQ(e.at("offered").get<U64>(),
                e.at("allowed").get<U64>() + e.at("dropped").get<U64>());
      line("traffic " + s("interface") + " queue " + n(e.at("queue")) + ": offered " +
           n(e.at("offered")) + " allowed " + n(e.at("allowed")) + " dropped " +
           n(e.at("dropped")));
   } else if (kind == "show") {
      out += table(e);
   } else if (kind == "clear") {
      line("  cleared the counters of " +
           counted(e.at("keys").get<std::size_t>(), "programmed port-queue key"));
   } else if (kind == "poll") {
      line("poll " + s("interface") + " " + s("class") + ": pktHits=" + n(e.at("pktHits")) +
           " drop=" + n(e.at("drop")) + " byteHits=" + n(e.at("byteHits")) +
           " dropBytes=" + n(e.at("dropBytes")));
   } else if (kind == "verify") {
      for (Json const& d : e.at("differences")) {
         line("verify: " + d.get<std::string>());
      }
      line("verify: " + std::to_string(e.at("differences").size()) + " differences");
      if (e.at("keysNotInHardware") != 0) {
         line("  not verified: " +
              counted(e.at("keysNotInHardware").get<std::size_t>(), "configured kernel CoPP key") +
              " not in hardware (waiting for resources)");
      }
   } else if (kind == "set") {
      line("  " + s("attribute") + " = " + s("value"));
   } else if (kind == "resources") {
      for (Json const& u : e.at("units")) {
         line("  unit " + n(u.at("unit")) + ": egress CoPP entries " + n(u.at("coppEntriesInUse")) +
              " of " + n(u.at("coppEntries")) + ", meters " + n(u.at("coppMetersInUse")) + " of " +
              n(u.at("coppMeters")) + "; default-and-VXLAN meters " +
              n(u.at("defaultMetersInUse")) + " of " + n(u.at("defaultMeters")));
      }
   } else if (kind == "tamper") {
      std::string const what = s("interface") + " queue " + n(e.at("queue"));
      line(e.at("changed") == false ? "  " + what + " has no programmed meter: nothing was changed"
                                    : "  policer " + n(e.at("policer")) + " of " + what +
                                          " now meters " + n(e.at("cir")) + " pps, burst " +
                                          n(e.at("bc")) + " packets, behind the agent's back");
   } else if (kind == "fail") {
      line("  the next " + s("call") + " returns " + std::to_string(e.at("rc").get<int>()) + " (" +
           s("rcText") + ")");
   } else if (kind == "kernelCopp") {
      line(e.at("waiting").empty() ? "  kernel CoPP: every key is programmed"
                                   : "  kernel CoPP: " + counted(e.at("waiting").size(), "key") +
                                         " waiting for hardware resources, tried again as the "
                                         "clock advances");
   } else if (kind == "vxlanRetry") {
      line(e.at("exhausted") == true
               ? "  VXLAN CoPP entries ran out; the state machine retries at " +
                     NimbalHost::timeText(e.at("retryAt").get<double>()) + " s"
               : "  VXLAN CoPP entries: nothing waits for a retry");
   } else if (kind == "capture") {
      line("capture " + s("file") + ": " + std::to_string(e.at("packets").get<U64>()) +
           " packets, " + std::to_string(e.at("classified").get<U64>()) + " classified, " +
           std::to_string(e.at("ignored").get<U64>()) + " ignored");
   } else if (kind == "log") {
      line("log: " + s("key") + ": " + s("text"));
      static char const* const names[] = {"emergency", "alert",  "critical",      "error",
                                          "warning",   "notice", "informational", "debug"};
      EXPECT_EQ(e.at("severityName"), names[e.at("severity").get<int>()]);
   } else if (kind == "end") {
      line("end at " + NimbalHost::timeText(e.at("time").get<double>()) +
           " s: " + counted(e.at("kernelKeysProgrammed").get<std::size_t>(), "kernel CoPP key") +
           " programmed");
      auto keys = [&](char const* what) {
         std::vector<NimbalHost::KeyName> names;
         for (Json const& k : e.at(what)) {
            names.push_back({k.at("interface").get<std::string>(), k.at("queue").get<U32>(),
                             k.value("queueName", "")});
         }
         return counted(names.size(), "key") + ", " +
                NimbalHost::keyRangesText(names, scenario.sw.interfaceNames());
      };
      if (!e.at("waiting").empty()) {
         line("  unpoliced, waiting for hardware: " + keys("waiting"));
      }
      if (!e.at("vxlanWithoutEntry").empty()) {
         line("  without a VXLAN CoPP entry: " + keys("vxlanWithoutEntry"));
      }
   } else {
      ADD_FAILURE() << "unknown event " << e.dump();
   }
   return out;
}

void expectJsonSaysWhatTextSays(std::string const& example) {
   NimbalHost::Scenario const scenario =
       example.empty() ? NimbalHost::demoScenario()
                       : NimbalHost::scenarioFromFile(SourceTree::path(example));
   std::string const expected =
       example.empty()
           ? slurp(SourceTree::path("examples/demo.expected"))
           : slurp(SourceTree::path(example.substr(0, example.size() - 5) + ".expected"));
   ASSERT_FALSE(expected.empty());
   std::istringstream jsonRun(simulateJson(example));
   std::string rebuilt;
   std::string line;
   std::size_t events = 0;
   while (std::getline(jsonRun, line)) {
      rebuilt += text(Json::parse(line), scenario);
      ++events;
   }
   EXPECT_GT(events, 5u);
   EXPECT_EQ(rebuilt, expected);
}

TEST(JsonTranscript, DemoSaysWhatItsTextSays) {
   expectJsonSaysWhatTextSays("");
}

TEST(JsonTranscript, EveryExampleSaysWhatItsTextSays) {
   std::vector<std::string> examples;
   for (auto const& entry : std::filesystem::directory_iterator(SourceTree::path("examples"))) {
      if (entry.path().extension() == ".json") {
         examples.push_back("examples/" + entry.path().filename().string());
      }
   }
   ASSERT_GE(examples.size(), 7u);
   for (std::string const& example : examples) {
      SCOPED_TRACE(example);
      expectJsonSaysWhatTextSays(example);
   }
}

}  // namespace
