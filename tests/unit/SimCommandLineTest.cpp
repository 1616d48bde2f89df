#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "NimbalVersion.h"
#include "host/CommandLine.h"

namespace {

using NimbalHost::parseCommandLine;
using NimbalHost::SimOptions;

struct Parsed {
   std::optional<int> exit;
   SimOptions options;
   std::string out;
   std::string err;
};

Parsed parse(std::vector<char const*> args) {
   args.insert(args.begin(), "nimbal-copp-sim");
   Parsed p;
   std::ostringstream out;
   std::ostringstream err;
   p.exit = parseCommandLine(static_cast<int>(args.size()), args.data(), p.options, out, err);
   p.out = out.str();
   p.err = err.str();
   return p;
}

TEST(SimCommandLine, NoArgumentPlaysTheDemo) {
   Parsed const p = parse({});
   EXPECT_FALSE(p.exit.has_value());
   EXPECT_EQ(p.options.scenario, "");
   EXPECT_EQ(p.options.trace, "");
   EXPECT_EQ(p.options.plot, "");
   EXPECT_FALSE(p.options.check);
}

TEST(SimCommandLine, ReadsScenarioTraceAndPlot) {
   Parsed const p =
       parse({"--trace", "NimbalQosSm:4,ApiNimbal:4", "examples/basic.json", "--plot", "a.svg"});
   EXPECT_FALSE(p.exit.has_value());
   EXPECT_EQ(p.options.scenario, "examples/basic.json");
   EXPECT_EQ(p.options.trace, "NimbalQosSm:4,ApiNimbal:4");
   EXPECT_EQ(p.options.plot, "a.svg");
}

TEST(SimCommandLine, HelpListsTheStepsAndTheCpuQueuesAndEndsWithZero) {
   Parsed const p = parse({"--help"});
   ASSERT_EQ(p.exit, 0);
   for (char const* step : {"police", "unpolice", "vxlan", "recirc", "advance", "traffic", "show",
                            "clear", "poll", "verify", "set", "resources", "tamper", "fail"}) {
      EXPECT_NE(p.out.find("\n  " + std::string(step) + " "), std::string::npos) << step;
   }
   EXPECT_NE(p.out.find("--trace NAME:LEVEL,..."), std::string::npos);
   EXPECT_NE(p.out.find("--plot FILE.svg"), std::string::npos);
   EXPECT_NE(p.out.find("  1   CoppSystemBgp             5000    500  copp-system-bgp\n"),
             std::string::npos);
   EXPECT_NE(p.out.find("  40  CoppUserDefined1          1000    100  (dynamic"),
             std::string::npos);
   EXPECT_NE(p.out.find("Exit status: 0 the scenario ran to its end; 1 the scenario"),
             std::string::npos);
}

TEST(SimCommandLine, BadTraceIsAUsageError) {
   Parsed const p = parse({"--trace", "NimbalQosSm"});
   EXPECT_EQ(p.exit, NimbalHost::usageExitCode);
   EXPECT_NE(p.err.find("\"NimbalQosSm\" is not NAME:LEVEL"), std::string::npos) << p.err;
}

TEST(SimCommandLine, VersionPrintsTheVersionAndEndsWithZero) {
   Parsed const p = parse({"--version", "examples/basic.json"});
   EXPECT_EQ(p.exit, 0);
   EXPECT_EQ(p.out, "nimbal-copp-sim " NIMBAL_VERSION "\n");
   EXPECT_EQ(p.err, "");
   EXPECT_NE(parse({"--help"}).out.find("--version"), std::string::npos);
}

TEST(SimCommandLine, UnknownOptionIsAUsageError) {
   Parsed const p = parse({"--fast"});
   EXPECT_EQ(p.exit, NimbalHost::usageExitCode);
   EXPECT_NE(p.err.find("--fast"), std::string::npos) << p.err;
   EXPECT_NE(p.err.find("Run with --help"), std::string::npos);
}

TEST(SimCommandLine, TwoScenariosAreAUsageError) {
   EXPECT_EQ(parse({"a.json", "b.json"}).exit, NimbalHost::usageExitCode);
}

TEST(SimCommandLine, TraceOptionIsNameColonLevelPairs) {
   EXPECT_EQ(NimbalHost::traceConfigError("NimbalQosSm:4"), "");
   EXPECT_EQ(NimbalHost::traceConfigError("NimbalQosSm:4,ApiNimbal:9"), "");
   EXPECT_EQ(NimbalHost::traceConfigError("NimbalQosSm:x"),
             "\"NimbalQosSm:x\": the level must be a whole number from 0 to 9");
   EXPECT_EQ(NimbalHost::traceConfigError("NimbalQosSm:12"),
             "\"NimbalQosSm:12\": the level must be a whole number from 0 to 9");
   EXPECT_EQ(NimbalHost::traceConfigError(":4"), "\":4\" is not NAME:LEVEL");
   EXPECT_EQ(NimbalHost::traceConfigError("A:1,"), "ends with a comma");
   EXPECT_EQ(NimbalHost::traceConfigError(""),
             "names no trace handle; write NAME:LEVEL[,NAME:LEVEL...]");
}

}  // namespace

namespace {

TEST(SimCommandLine, FormatIsTextOrJson) {
   EXPECT_FALSE(parse({}).options.json);
   EXPECT_FALSE(parse({"--format", "text"}).options.json);
   Parsed const json = parse({"--format", "json", "examples/basic.json"});
   EXPECT_FALSE(json.exit.has_value());
   EXPECT_TRUE(json.options.json);
   Parsed const xml = parse({"--format", "xml"});
   EXPECT_EQ(xml.exit, NimbalHost::usageExitCode);
   EXPECT_NE(xml.err.find("--format"), std::string::npos) << xml.err;
}

TEST(SimCommandLine, PreflightRunsNothingSoItTakesNoCheckOrPlot) {
   Parsed const p = parse({"--preflight", "examples/basic.json"});
   EXPECT_FALSE(p.exit.has_value());
   EXPECT_TRUE(p.options.preflight);
   EXPECT_EQ(parse({"--preflight", "--check"}).exit, NimbalHost::usageExitCode);
   EXPECT_EQ(parse({"--preflight", "--plot", "a.svg"}).exit, NimbalHost::usageExitCode);
}

TEST(SimCommandLine, HelpListsFormatPreflightAndTheirExitStatuses) {
   Parsed const p = parse({"--help"});
   ASSERT_EQ(p.exit, 0);
   EXPECT_NE(p.out.find("--format text|json"), std::string::npos);
   EXPECT_NE(p.out.find("--preflight"), std::string::npos);
   EXPECT_NE(p.out.find("With --preflight: 0 everything fits; 3\nsomething would not fit"),
             std::string::npos);
   EXPECT_NE(p.out.find("or no directory for the toggle file can be made under TMPDIR"),
             std::string::npos);
}

}  // namespace
