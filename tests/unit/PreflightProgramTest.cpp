#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "SourceTree.h"
#include "unit/SimProgram.h"
#include "unit/TempDir.h"

// nimbal-copp-sim --preflight as an operator runs it: its exit status, its report, and where it
// says the agent would stop compared with where the agent does stop.

namespace {

using SimProgram::ProgramRun;
using SimProgram::run;
using SimProgram::slurp;

bool has(std::string const& text, std::string const& part) {
   return text.find(part) != std::string::npos;
}

TEST(PreflightProgram, WhatFitsEndsWithZero) {
   ProgramRun const r = run("--preflight examples/basic.json");
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.out.rfind("preflight: examples/basic.json\nswitch: 1 module, 8 interfaces", 0), 0u)
       << r.out;
   EXPECT_TRUE(has(r.out, "unit 0 egress CoPP entries            312 of 4096       312 of 4096\n"))
       << r.out;
   EXPECT_TRUE(has(r.out, "\nverdict: everything fits\n")) << r.out;
   EXPECT_EQ(r.err, "");
}

TEST(PreflightProgram, TheDemoFits) {
   ProgramRun const r = run("--preflight");
   EXPECT_EQ(r.code, 0) << r.out;
   EXPECT_TRUE(has(r.out, "preflight: built-in demo\n"));
   EXPECT_TRUE(has(r.out, "VXLAN source-port entry pool            0 of 512        369 of 512 "))
       << r.out;
}

TEST(PreflightProgram, WhatDoesNotFitEndsWithThreeAndNamesWhatStaysUnpoliced) {
   ProgramRun const r = run("--preflight examples/vxlan-exhaustion.json");
   EXPECT_EQ(r.code, 3);
   EXPECT_TRUE(has(r.out, "    Ethernet8 queues 38-39 (CoppSystemMlag-CoppSystemDefault)\n"))
       << r.out;
   EXPECT_TRUE(has(r.out,
                   "the library would raise QOS_COPP_HW_RESOURCE_FULL 4 times and "
                   "QOS_COPP_HW_RESOURCE_NORMAL 2 times\n"))
       << r.out;
   EXPECT_TRUE(has(r.out, "\nverdict: something would not fit\n")) << r.out;
}

// The dry runs' children end without their destructors: what they made must be gone already.
TEST(PreflightProgram, LeavesNothingInTheTemporaryDirectory) {
   TestFiles::TempDir const tmp;
   for (std::string const args : {"--preflight examples/basic.json", "examples/basic.json"}) {
      ProgramRun const r = run(args, "TMPDIR='" + tmp.path() + "'");
      EXPECT_EQ(r.code, 0) << args << "\n" << r.err;
      EXPECT_TRUE(std::filesystem::is_empty(tmp.path()))
          << args << " left " << std::filesystem::directory_iterator(tmp.path())->path();
   }
}

TEST(PreflightProgram, NoTemporaryDirectoryEndsWithOneAndSaysWhere) {
   TestFiles::TempDir const parent;
   std::string const tmp = parent.file("no-such-directory");
   for (std::string const args : {"--preflight examples/basic.json", "examples/basic.json"}) {
      ProgramRun const r = run(args, "TMPDIR='" + tmp + "'");
      EXPECT_TRUE(r.exited) << args;
      EXPECT_EQ(r.code, 1) << args;
      EXPECT_EQ(r.err, "nimbal-copp-sim: cannot make a directory for the toggle file in " + tmp +
                           ": No such file or directory\n")
          << args;
   }
}

TEST(PreflightProgram, InvalidScenarioEndsWithOneAndItsLine) {
   ProgramRun const r = run("--preflight tests/scenarios/invalid/unknown-class.json");
   EXPECT_EQ(r.code, 1);
   EXPECT_EQ(r.out, "");
   EXPECT_EQ(r.err, slurp(SourceTree::path("tests/scenarios/invalid/unknown-class.stderr")));
}

TEST(PreflightProgram, JsonFormatGivesTheSwitchAndThePreflight) {
   ProgramRun const fits = run("--preflight --format json examples/basic.json");
   EXPECT_EQ(fits.code, 0) << fits.err;
   EXPECT_EQ(fits.out.rfind("{\"event\":\"switch\",", 0), 0u) << fits.out;
   EXPECT_TRUE(has(fits.out, "\n{\"event\":\"preflight\",\"file\":\"examples/basic.json\","))
       << fits.out;
   EXPECT_TRUE(has(fits.out, "\"fits\":true}\n")) << fits.out;
   ProgramRun const short_ = run("--preflight --format json examples/vxlan-exhaustion.json");
   EXPECT_EQ(short_.code, 3);
   EXPECT_TRUE(has(short_.out, "\"fits\":false}\n")) << short_.out;
   EXPECT_TRUE(has(short_.out, "\"resourceFullLogs\":4,\"resourceNormalLogs\":2,")) << short_.out;
}

TEST(PreflightProgram, CheckPointsToThePreflightWhenResourcesAreNamed) {
   ProgramRun const named = run("--check examples/vxlan-exhaustion.json");
   EXPECT_EQ(named.code, 0);
   EXPECT_TRUE(has(named.out, "examples/vxlan-exhaustion.json: valid, "));
   EXPECT_TRUE(has(named.out, "\nrun --preflight to see whether the switch has room\n"))
       << named.out;
   ProgramRun const unnamed = run("--check examples/basic.json");
   EXPECT_EQ(unnamed.code, 0);
   EXPECT_FALSE(has(unnamed.out, "--preflight")) << unnamed.out;
}

// With the TCAM-agent variant class police actions do not reach CoPP: a new class queue makes no
// kernel CoPP key to program. The toggle is read once per process, so each run is a program.
TEST(PreflightProgram, VerdictFollowsTheHelperVariantOfTheToggle) {
   for (bool tcamAgent : {false, true}) {
      std::string const path =
          ::testing::TempDir() + "preflight-toggle-" + std::to_string(tcamAgent) + ".json";
      std::ofstream(path) << R"({"switch": {"toggles": {"UseTcamAgentForPolicyQos": )"
                          << (tcamAgent ? "true" : "false") << R"(},
                                "resources": {"efpCoppEntries": 312}},
         "steps": [{"police": {"interface": "Ethernet1", "class": "copp-user-a", "cir": 300,
                               "bc": 30}}, {"advance": 1}]})";
      SCOPED_TRACE(tcamAgent ? "TCAM-agent variant" : "plain helper");
      ProgramRun const agent = run("--format json '" + path + "'");
      ASSERT_EQ(agent.code, 0) << agent.err;
      bool const waited =
          has(agent.out, R"("event":"kernelCopp","time":0.0,"step":1,"waiting":[{)");
      EXPECT_EQ(waited, !tcamAgent) << agent.out;
      ProgramRun const p = run("--preflight '" + path + "'");
      EXPECT_EQ(p.code, waited ? 3 : 0) << p.out;
      std::remove(path.c_str());
   }
}

// Each scenario that ends the agent: the preflight names the step, and the run ends in it.
TEST(PreflightProgram, ForeseesTheStepInWhichTheAgentStops) {
   int foreseen = 0;
   for (auto const& entry :
        std::filesystem::directory_iterator(SourceTree::path("tests/scenarios/abort"))) {
      if (entry.path().extension() != ".json") {
         continue;
      }
      std::string const scenario = "tests/scenarios/abort/" + entry.path().filename().string();
      SCOPED_TRACE(scenario);
      ProgramRun const agent = run(scenario);
      ASSERT_FALSE(agent.exited && (agent.code == 0 || agent.code == 1));
      std::size_t const last = agent.out.rfind("\nstep ");
      ASSERT_NE(last, std::string::npos);
      std::string const step = agent.out.substr(last + 1, agent.out.find(" at ", last) - last - 1);

      ProgramRun const p = run("--preflight " + scenario);
      EXPECT_EQ(p.code, 3);
      EXPECT_TRUE(p.exited);
      // The reason is the last line the agent wrote before it stopped.
      std::string const stderrFile =
          entry.path().string().substr(0, entry.path().string().size() - 5) + ".stderr";
      std::string const expected = slurp(stderrFile);
      std::string const lastLine = expected.substr(expected.rfind('\n', expected.size() - 2) + 1);
      EXPECT_TRUE(has(p.out, "the agent would stop at " + step + ": " + lastLine)) << step << "\n"
                                                                                   << p.out;
      ++foreseen;
   }
   EXPECT_GE(foreseen, 5);
}

}  // namespace
