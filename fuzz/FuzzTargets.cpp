#include "fuzz/FuzzTargets.h"

#include <string>

#include "Kiv/Activity.h"
#include "Kiv/Clock.h"
#include "fuzz/StepScenario.h"
#include "host/agent/SimAgent.h"
#include "host/scenario/Scenario.h"

namespace NimbalFuzz {

bool loadScenarioBytes(std::uint8_t const* data, std::size_t size) {
   try {
      NimbalHost::scenarioFromText(std::string(reinterpret_cast<char const*>(data), size),
                                   "fuzz.json");
      return true;
   } catch (NimbalHost::ScenarioError const&) {
      return false;
   }
}

void playStepBytes(std::uint8_t const* data, std::size_t size, std::FILE* out) {
   // The decoder makes valid scenarios only: a ScenarioError here is a bug and escapes.
   NimbalHost::Scenario const scenario =
       NimbalHost::scenarioFromText(stepScenarioText(data, size), "fuzz input");
   // Meters and timers run on absolute virtual time; each input starts where the first did.
   Kiv::activityClock()->reset();
   Kiv::ActivityScope activity;
   NimbalHost::SimAgent agent(scenario, out);
   agent.run();
}

}  // namespace NimbalFuzz
