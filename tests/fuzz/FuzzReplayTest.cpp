#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "SourceTree.h"
#include "fuzz/FuzzTargets.h"
#include "fuzz/StepScenario.h"
#include "host/scenario/Scenario.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using Json = nlohmann::ordered_json;

fs::path const source = SourceTree::dir();

Bytes fileBytes(fs::path const& path) {
   std::ifstream in(path, std::ios::binary);
   return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The files of the folders, in name order; folders that do not exist hold none.
std::vector<fs::path> filesIn(std::vector<fs::path> const& dirs, std::string const& ext = "") {
   std::vector<fs::path> out;
   for (fs::path const& dir : dirs) {
      if (!fs::is_directory(dir)) {
         continue;
      }
      for (auto const& e : fs::directory_iterator(dir)) {
         if (e.is_regular_file() && (ext.empty() || e.path().extension() == ext)) {
            out.push_back(e.path());
         }
      }
   }
   std::sort(out.begin(), out.end());
   return out;
}

// The transcript of one step input played on a fresh agent.
std::string played(Bytes const& bytes) {
   std::FILE* out = std::tmpfile();
   EXPECT_NE(out, nullptr);
   if (!out) {
      return "";
   }
   NimbalFuzz::playStepBytes(bytes.data(), bytes.size(), out);
   std::fflush(out);
   std::rewind(out);
   std::string text;
   char buf[4096];
   std::size_t n;
   while ((n = std::fread(buf, 1, sizeof buf, out)) > 0) {
      text.append(buf, n);
   }
   std::fclose(out);
   return text;
}

// The last line that is not indented: the end line comes before the summary under it.
std::string lastLine(std::string const& text) {
   std::size_t end = text.empty() ? 0 : text.size() - 1;
   for (;;) {
      std::size_t const start = text.rfind('\n', end == 0 ? 0 : end - 1);
      std::size_t const from = start == std::string::npos ? 0 : start + 1;
      std::string line = text.substr(from, end - from);
      if (line.rfind("  ", 0) != 0 || from == 0) {
         return line;
      }
      end = start;
   }
}

TEST(LoaderFuzzTarget, LoadsEveryExampleAndRefusesEveryInvalidScenario) {
   std::vector<fs::path> const examples = filesIn({source / "examples"}, ".json");
   ASSERT_FALSE(examples.empty());
   for (fs::path const& p : examples) {
      Bytes const b = fileBytes(p);
      EXPECT_TRUE(NimbalFuzz::loadScenarioBytes(b.data(), b.size())) << p;
   }
   std::vector<fs::path> const invalid = filesIn({source / "tests/scenarios/invalid"}, ".json");
   ASSERT_FALSE(invalid.empty());
   for (fs::path const& p : invalid) {
      Bytes const b = fileBytes(p);
      EXPECT_FALSE(NimbalFuzz::loadScenarioBytes(b.data(), b.size())) << p;
   }
}

// Each found a crash once; each must now end as a loaded scenario or a ScenarioError.
TEST(LoaderFuzzTarget, RegressionInputsLoadOrEndInAScenarioError) {
   std::vector<fs::path> const inputs = filesIn({source / "fuzz/regressions/loader"});
   for (fs::path const& p : inputs) {
      Bytes const b = fileBytes(p);
      EXPECT_NO_THROW(NimbalFuzz::loadScenarioBytes(b.data(), b.size())) << p;
   }
}

TEST(StepFuzzTarget, CorpusAndRegressionInputsPlayToTheEndTheSameWayTwice) {
   std::vector<fs::path> const inputs =
       filesIn({source / "fuzz/corpus/steps", source / "fuzz/regressions/steps"});
   ASSERT_GE(inputs.size(), 10u);
   for (fs::path const& p : inputs) {
      SCOPED_TRACE(p.string());
      Bytes const b = fileBytes(p);
      std::string const first = played(b);
      EXPECT_EQ(lastLine(first).rfind("end at ", 0), 0u) << lastLine(first);
      EXPECT_EQ(played(b), first);
   }
}

TEST(StepFuzzTarget, AnInputPlaysTheSameAfterAnotherOne) {
   // Ethernet1 polices copp-system-bgp at 300 pps and takes 300 packets at 500 pps.
   Bytes const a = {0x00, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00, 0x01, 0x00,
                    0x05, 0x04, 0x06, 0x00, 0x01, 0x03, 0x04, 0x07, 0x01};
   // Two modules, VXLAN, time and traffic of their own.
   Bytes const b = {0x15, 0x02, 0x02, 0x00, 0x81, 0x06, 0x03, 0x01, 0x05, 0x09, 0x06,
                    0x01, 0x00, 0x03, 0x06, 0x00, 0x05, 0x02, 0x06, 0x00, 0x02, 0x05};
   std::string const alone = played(a);
   ASSERT_NE(alone.find("traffic Ethernet1 queue 1: offered 300 allowed "), std::string::npos)
       << alone;
   played(b);
   EXPECT_EQ(played(a), alone);
}

TEST(StepFuzzTarget, EmptyInputIsOneInterfaceAndNoStep) {
   Json const doc = Json::parse(NimbalFuzz::stepScenarioText(nullptr, 0));
   EXPECT_EQ(doc.at("switch").at("interfaces").size(), 1u);
   EXPECT_TRUE(doc.at("steps").empty());
}

// Random inputs, as the fuzzer starts with: every decoded scenario is valid, bounded, and free
// of what ends the agent by design.
TEST(StepFuzzTarget, DecodedScenariosAreValidBoundedAndNeverEndTheAgentByDesign) {
   std::mt19937 random(20261123);
   std::set<std::string> stepsSeen;
   std::set<std::string> patternsSeen;
   int flowSteps = 0;
   for (int input = 0; input < 2000; ++input) {
      Bytes bytes(random() % 200);
      for (auto& b : bytes) {
         b = static_cast<std::uint8_t>(random());
      }
      std::string const text = NimbalFuzz::stepScenarioText(bytes.data(), bytes.size());
      SCOPED_TRACE(text);
      ASSERT_NO_THROW(NimbalHost::scenarioFromText(text, "decoded.json"));
      Json const doc = Json::parse(text);
      Json const& sw = doc.at("switch");
      std::size_t const interfaces = sw.at("interfaces").size();
      ASSERT_GE(interfaces, 1u);
      ASSERT_LE(interfaces, NimbalFuzz::maxInterfaces);
      for (Json const& intf : sw.at("interfaces")) {
         EXPECT_LT(intf.at("port").get<int>(), 256);
      }
      EXPECT_FALSE(sw.contains("fabricInterfaces"));
      EXPECT_FALSE(sw.contains("toggles"));
      if (sw.contains("resources") && sw.at("resources").contains("efpDefaultMeters")) {
         EXPECT_GE(sw.at("resources").at("efpDefaultMeters").get<std::size_t>(), interfaces);
      }
      ASSERT_LE(doc.at("steps").size(), NimbalFuzz::maxSteps);
      for (Json const& step : doc.at("steps")) {
         std::string const name = step.begin().key();
         stepsSeen.insert(name);
         EXPECT_NE(name, "fail");
         if (name == "traffic") {
            Json const& t = step.at("traffic");
            double pps = 0;
            if (t.contains("flows")) {
               EXPECT_GE(t.at("flows").size(), 1u);
               EXPECT_LE(t.at("flows").size(), 3u);
               ++flowSteps;
               for (Json const& f : t.at("flows")) {
                  pps += f.at("pps").get<double>();
                  patternsSeen.insert(f.contains("exact")     ? "exact"
                                      : f.contains("pattern") ? f.at("pattern").dump()[0] == '"'
                                                                    ? "constant"
                                                                    : f.at("pattern").begin().key()
                                                              : "default");
               }
            } else {
               pps = t.at("pps").get<double>();
            }
            EXPECT_LE(pps * t.at("seconds").get<double>(), NimbalFuzz::maxTrafficPackets + 1e-9);
         }
      }
   }
   // Every kind of step but the fatal one turns up.
   std::vector<std::string> expected;
   for (std::string const& name : NimbalHost::scenarioStepNames()) {
      if (name != "fail") {
         expected.push_back(name);
      }
   }
   EXPECT_EQ(std::vector<std::string>(stepsSeen.begin(), stepsSeen.end()).size(), expected.size());
   for (std::string const& name : expected) {
      EXPECT_TRUE(stepsSeen.count(name)) << name;
   }
   // Traffic steps of several flows turn up, with every arrival pattern.
   EXPECT_GT(flowSteps, 0);
   EXPECT_EQ(patternsSeen,
             (std::set<std::string>{"bursts", "constant", "default", "exact", "poisson"}));
}

}  // namespace
