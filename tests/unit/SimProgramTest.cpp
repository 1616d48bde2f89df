#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "unit/SimProgram.h"
#include "unit/TempDir.h"

#include "NimbalVersion.h"
#include "host/scenario/Demo.h"
#include "host/scenario/Scenario.h"

namespace {

using SimProgram::ProgramRun;
using SimProgram::run;
using SimProgram::slurp;

// A scenario file for one test, in a folder removed with it.
struct ScenarioFile {
   ScenarioFile(std::string const& name, std::string const& text) : path(dir.file(name)) {
      std::ofstream(path) << text;
   }
   TestFiles::TempDir const dir;
   std::string const path;
};

TEST(SimProgram, HelpEndsWithZero) {
   ProgramRun const r = run("--help");
   EXPECT_TRUE(r.exited);
   EXPECT_EQ(r.code, 0);
   EXPECT_NE(r.out.find("Usage: nimbal-copp-sim [OPTIONS] [SCENARIO.json]"), std::string::npos);
}

TEST(SimProgram, VersionPrintsTheProjectVersionAndEndsWithZero) {
   ProgramRun const r = run("--version");
   EXPECT_TRUE(r.exited);
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.out, "nimbal-copp-sim " NIMBAL_VERSION "\n");
   EXPECT_EQ(r.err, "");
   EXPECT_TRUE(
       std::regex_match(std::string(NIMBAL_VERSION), std::regex("[0-9]+\\.[0-9]+\\.[0-9]+")))
       << NIMBAL_VERSION;
}

TEST(SimProgram, UnreadableScenarioEndsWithOneAndOneLine) {
   ProgramRun const r = run("no-such-scenario.json");
   EXPECT_EQ(r.code, 1);
   EXPECT_EQ(r.out, "");
   EXPECT_EQ(r.err, "no-such-scenario.json: cannot read the file (No such file or directory)\n");
}

TEST(SimProgram, InvalidScenarioRunsNothing) {
   ScenarioFile const pathFile(
       "sim-program-invalid.json",
       R"({"steps": [{"advance": 1}, {"police": {"interface": "Ethernet1", "class": "c",
           "cir": 10, "bc": -1}}]})");
   std::string const& path = pathFile.path;
   ProgramRun const r = run("'" + path + "'");
   EXPECT_EQ(r.code, 1);
   EXPECT_EQ(r.out, "");
   EXPECT_EQ(r.err, path + ": step 2 (police): key \"bc\": must not be negative, not -1\n");
}

TEST(SimProgram, CheckReadsTheScenarioAndRunsNothing) {
   ProgramRun const r = run("--check examples/basic.json");
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.out, "examples/basic.json: valid, 11 steps\n");
}

TEST(SimProgram, PrintDemoWritesTheDemoScenario) {
   ProgramRun const r = run("--print-demo");
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.out, NimbalHost::demoScenarioText());
   NimbalHost::Scenario const demo = NimbalHost::scenarioFromText(r.out, "demo.json");
   EXPECT_EQ(demo.sw.interfaces.size(), 16u);
   EXPECT_TRUE(demo.sw.vxlanWorkaround);
}

TEST(SimProgram, ScenarioRunsToItsEnd) {
   ScenarioFile const pathFile("sim-program-run.json", R"({"steps": [{"advance": 1.25}]})");
   std::string const& path = pathFile.path;
   ProgramRun const r = run("'" + path + "'");
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.out.rfind("nimbal-copp-sim: " + path + "\n", 0), 0u) << r.out;
   EXPECT_NE(r.out.find("\nstep 1 at 0.000 s: advance 1.25 s\n"), std::string::npos);
   EXPECT_NE(r.out.find("\nend at 1.250 s: "), std::string::npos);
   EXPECT_EQ(r.err, "");
}

TEST(SimProgram, TraceGoesToStandardError) {
   ScenarioFile const pathFile("sim-program-trace.json", R"({"steps": []})");
   std::string const& path = pathFile.path;
   ProgramRun const r = run("--trace NimbalQosSm:1 '" + path + "'");
   EXPECT_EQ(r.code, 0);
   EXPECT_NE(r.err.find("NimbalQosSm[1] QosHelperV1::hwInit\n"), std::string::npos) << r.err;
   EXPECT_EQ(r.out.find("hwInit"), std::string::npos);
   ProgramRun const quiet = run("'" + path + "'");
   EXPECT_EQ(quiet.err, "");
}

TEST(SimProgram, BadTraceIsAUsageError) {
   ProgramRun const r = run("--trace NimbalQosSm examples/basic.json");
   EXPECT_EQ(r.code, 2);
   EXPECT_EQ(r.out, "");
}

TEST(SimProgram, UnknownTraceHandleIsAUsageErrorNamingTheKnownOnes) {
   ProgramRun const r = run("--trace NimbalQosSm:4,NimbalSm:4 examples/basic.json");
   EXPECT_EQ(r.code, 2);
   EXPECT_EQ(r.out, "");
   EXPECT_EQ(r.err.rfind("nimbal-copp-sim: --trace names an unknown trace handle: \"NimbalSm\"; "
                         "the handles are ",
                         0),
             0u)
       << r.err;
   // The handles the library makes on first use are known before anything is played.
   EXPECT_NE(r.err.find("ApiNimbal"), std::string::npos) << r.err;
   EXPECT_NE(r.err.find("NimbalQosSm"), std::string::npos) << r.err;
}

TEST(SimProgram, TraceOfTheSdkHandleIsAccepted) {
   ScenarioFile const pathFile("sim-program-trace-api.json", R"({"steps": []})");
   std::string const& path = pathFile.path;
   ProgramRun const r = run("--trace ApiNimbal:4 '" + path + "'");
   EXPECT_EQ(r.code, 0) << r.err;
   EXPECT_NE(r.err.find("ApiNimbal[4] "), std::string::npos) << r.err;
}

TEST(SimProgram, PlotOfAnAgentThatStopsLeavesNoFile) {
   std::string const svg = ::testing::TempDir() + "sim-program-plot-stop.svg";
   std::remove(svg.c_str());
   ProgramRun const r = run("--plot '" + svg + "' tests/scenarios/abort/fatal-sdk-error.json");
   EXPECT_FALSE(r.exited && r.code == 0);
   EXPECT_FALSE(std::filesystem::exists(svg));
   std::error_code ec;
   for (auto const& entry : std::filesystem::directory_iterator(::testing::TempDir(), ec)) {
      EXPECT_EQ(entry.path().filename().string().rfind("sim-program-plot-stop.svg", 0),
                std::string::npos)
          << entry.path();
   }
}

TEST(SimProgram, ToggleFileChoosesTheTcamAgentVariant) {
   ScenarioFile const onFile(
       "sim-program-toggle.json",
       R"({"switch": {"toggles": {"UseTcamAgentForPolicyQos": true}}, "steps": []})");
   std::string const& on = onFile.path;
   EXPECT_NE(run("'" + on + "'").out.find("\nhelper: Nimbal::QosTcamAclHelperV1, "),
             std::string::npos);
   ScenarioFile const offFile("sim-program-no-toggle.json", R"({"steps": []})");
   std::string const& off = offFile.path;
   // The scenario's toggle file is the one read, whatever the environment names.
   TestFiles::TempDir const dir;
   std::ofstream(dir.file("NimbalTcam.json")) << "{\"UseTcamAgentForPolicyQos\": true}\n";
   ProgramRun const r = run("'" + off + "'", "NIMBAL_TOGGLE_DIR='" + dir.path() + "'");
   EXPECT_NE(r.out.find("\nhelper: Nimbal::QosAclHelperV1, "), std::string::npos) << r.out;
}

TEST(SimProgram, PlotIsWrittenAsSvg) {
   ScenarioFile const scenarioFile(
       "sim-program-plot.json",
       R"({"steps": [{"traffic": {"interface": "Ethernet1", "queue": 6, "pps": 100,
           "seconds": 1}}]})");
   std::string const& scenario = scenarioFile.path;
   std::string const svg = ::testing::TempDir() + "sim-program-plot.svg";
   std::remove(svg.c_str());
   ProgramRun const r = run("--plot '" + svg + "' '" + scenario + "'");
   EXPECT_EQ(r.code, 0);
   EXPECT_EQ(r.err, "nimbal-copp-sim: traffic chart written to " + svg + "\n");
   std::string const chart = slurp(svg);
   EXPECT_EQ(chart.rfind("<?xml", 0), 0u);
   EXPECT_NE(chart.find(">Ethernet1 to CPU queue 6 (CoppSystemLldp)</text>"), std::string::npos);
   std::remove(svg.c_str());
}

TEST(SimProgram, UnwritablePlotIsAUsageErrorAndRunsNothing) {
   ProgramRun const r = run("--plot /no-such-directory/chart.svg examples/basic.json");
   EXPECT_EQ(r.code, 2);
   EXPECT_EQ(r.out, "");
   EXPECT_EQ(r.err, "nimbal-copp-sim: cannot write /no-such-directory/chart.svg\n");
}

}  // namespace
