#pragma once

// nimbal-copp-sim --preflight: before a change, whether the switch has room for it. Two dry runs
// of the scenario on the simulated agent with the real library (traffic reduced to its clock
// advance): one with the scenario's pools, which shows what fails, and one with pools too large
// to run out, which shows what the switch wants. The report gives the demand at start-up and at
// its peak over the steps against the pools, what stays unpoliced from which step to which, the
// resource messages the library raises, and whether and where the agent stops.

#include <optional>
#include <set>
#include <string>
#include <utility>

#include "host/preflight/DryRun.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

struct Preflight {
   std::string text;  // the report
   std::string json;  // the same as JSON Lines
   bool fits = true;  // nothing would stay unpoliced and the agent would not stop
   // What the run would end with, and raise on the way.
   std::size_t resourceFullLogs = 0;
   std::size_t resourceNormalLogs = 0;
   std::set<CoppKey> waitingKeysAtEnd;
   std::set<CoppKey> keysWithoutVxlanEntryAtEnd;
   std::set<std::pair<std::string, std::string>> classesWithoutQueueAtEnd;
   std::optional<int> stopStep;
   std::string stopReason;
};

// Throws ScenarioError when the switch cannot be built.
Preflight preflight(Scenario const& scenario);

}  // namespace NimbalHost
