// nimbal-copp-sim: the simulated switch agent. It reads a scenario (or takes the built-in demo),
// builds the switch, loads the CoPP library as the agent does and plays the scenario's steps on
// a virtual clock, writing what an operator would see on standard output.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>

#include "Kiv/Activity.h"
#include "Kiv/Trace.h"
#include "host/CommandLine.h"
#include "host/advise/AdviceReport.h"
#include "host/advise/Advisor.h"
#include "host/agent/SimAgent.h"
#include "host/preflight/Preflight.h"
#include "host/scenario/Demo.h"
#include "host/scenario/Scenario.h"
#include "host/traffic/CaptureCheck.h"
#include "host/traffic/TrafficError.h"
#include "host/transcript/JsonTranscript.h"
#include "host/transcript/TextTranscript.h"

namespace {

int adviseMain(NimbalHost::Scenario const& scenario, NimbalHost::SimOptions const& options) {
   if (!scenario.advise) {
      std::fprintf(stderr,
                   "%s: key \"advise\" is missing; --advise needs {\"protect\": [{\"interface\": "
                   "..., \"class\": ..., \"maxLoss\": ...}], \"cpuBudget\": ...} at the top of "
                   "the scenario\n",
                   scenario.file.c_str());
      return 1;
   }
   if (!options.adviseOut.empty() && !NimbalHost::plotWritable(options.adviseOut)) {
      std::fprintf(stderr, "nimbal-copp-sim: cannot write %s\n", options.adviseOut.c_str());
      return NimbalHost::usageExitCode;
   }
   if (!options.trace.empty()) {
      Kiv::traceConfigIs(options.trace);
   }
   Kiv::ActivityScope activity;
   NimbalHost::Advice advice;
   try {
      advice = NimbalHost::advise(scenario);
   } catch (NimbalHost::ScenarioError const& e) {
      std::fprintf(stderr, "%s\n", e.what());
      return 1;
   }
   std::string const text =
       options.json ? NimbalHost::adviceJson(advice) : NimbalHost::adviceText(advice);
   std::fputs(text.c_str(), stdout);
   if (!options.adviseOut.empty()) {
      if (!NimbalHost::writeFileWhole(
              options.adviseOut,
              NimbalHost::advisedScenarioJson(scenario, advice, options.adviseOut))) {
         std::fprintf(stderr, "nimbal-copp-sim: cannot write %s\n", options.adviseOut.c_str());
         return NimbalHost::usageExitCode;
      }
      std::fprintf(stderr, "nimbal-copp-sim: the advised scenario written to %s\n",
                   options.adviseOut.c_str());
   }
   return advice.met() ? 0 : NimbalHost::adviceUnmetExitCode;
}

}  // namespace

int main(int argc, char** argv) {
   NimbalHost::SimOptions options;
   if (auto const code = NimbalHost::parseCommandLine(argc, argv, options, std::cout, std::cerr)) {
      return *code;
   }
   if (options.printDemo) {
      std::cout << NimbalHost::demoScenarioText();
      return 0;
   }
   // Each line reaches the reader as it is made, also when an assertion ends the agent.
   std::setvbuf(stdout, nullptr, _IOLBF, 0);

   NimbalHost::Scenario scenario;
   try {
      scenario = options.scenario.empty() ? NimbalHost::demoScenario()
                                          : NimbalHost::scenarioFromFile(options.scenario);
      NimbalHost::checkCaptures(scenario);
   } catch (NimbalHost::ScenarioError const& e) {
      std::fprintf(stderr, "%s\n", e.what());
      return 1;
   } catch (NimbalHost::TrafficError const& e) {
      std::fprintf(stderr, "%s\n", e.what());
      return 1;
   }
   if (options.advise) {
      return adviseMain(scenario, options);
   }
   if (options.preflight) {
      if (!options.trace.empty()) {
         Kiv::traceConfigIs(options.trace);
      }
      try {
         NimbalHost::Preflight const p = NimbalHost::preflight(scenario);
         std::fputs(options.json ? p.json.c_str() : p.text.c_str(), stdout);
         return p.fits ? 0 : NimbalHost::preflightShortExitCode;
      } catch (NimbalHost::ScenarioError const& e) {
         std::fprintf(stderr, "%s\n", e.what());
         return 1;
      }
   }
   if (options.check) {
      std::printf("%s: valid, %zu steps\n", scenario.file.c_str(), scenario.steps.size());
      // Whether the pools suffice is for the dry run to say, not the format.
      if (scenario.namesResources()) {
         std::printf("run --preflight to see whether the switch has room\n");
      }
      return 0;
   }
   // The chart is written whole at the end, so that an agent that stops leaves no file.
   if (!options.plot.empty() && !NimbalHost::plotWritable(options.plot)) {
      std::fprintf(stderr, "nimbal-copp-sim: cannot write %s\n", options.plot.c_str());
      return NimbalHost::usageExitCode;
   }

   // The agent's event loop holds the activity lock; SDK calls release it for their duration.
   Kiv::ActivityScope activity;
   if (!options.trace.empty()) {
      // The library makes some trace handles on first use: a silent start-up makes them.
      try {
         NimbalHost::SilentTranscript silent;
         NimbalHost::SimAgent const probe(scenario, silent);
      } catch (NimbalHost::ScenarioError const& e) {
         std::fprintf(stderr, "%s\n", e.what());
         return 1;
      }
      std::string const error = NimbalHost::traceNamesError(options.trace);
      if (!error.empty()) {
         std::fprintf(stderr, "nimbal-copp-sim: --trace %s\n", error.c_str());
         return NimbalHost::usageExitCode;
      }
      Kiv::traceConfigIs(options.trace);
   }
   std::unique_ptr<NimbalHost::TranscriptWriter> transcript;
   if (options.json) {
      transcript = std::make_unique<NimbalHost::JsonTranscript>(stdout);
   } else {
      transcript = std::make_unique<NimbalHost::TextTranscript>(stdout);
   }
   try {
      NimbalHost::SimAgent agent(scenario, *transcript);
      agent.run();
      if (!options.plot.empty()) {
         if (!NimbalHost::writeFileWhole(options.plot, agent.plot())) {
            std::fprintf(stderr, "nimbal-copp-sim: cannot write %s\n", options.plot.c_str());
            return NimbalHost::usageExitCode;
         }
         std::fprintf(stderr, "nimbal-copp-sim: traffic chart written to %s\n",
                      options.plot.c_str());
      }
   } catch (NimbalHost::ScenarioError const& e) {
      std::fflush(stdout);
      std::fprintf(stderr, "%s\n", e.what());
      return 1;
   } catch (NimbalHost::TrafficError const& e) {
      std::fflush(stdout);
      std::fprintf(stderr, "%s\n", e.what());
      return 1;
   }
   return 0;
}
