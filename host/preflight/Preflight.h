#pragma once

// nimbal-copp-sim --preflight: before a change, whether the switch has room for it. From the
// scenario alone (the resource model, no chip and no library): the hardware demand of the switch
// at start-up and at its peak over the steps against its pools, what would stay unpoliced and
// from which step to which, the resource messages the library would raise, and whether the agent
// would stop.

#include <optional>
#include <set>
#include <string>
#include <utility>

#include "host/preflight/CoppResourceModel.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

struct Preflight {
   std::string text;  // the report
   bool fits = true;  // nothing would stay unpoliced and the agent would not stop
   // What the run would end with, and raise on the way.
   std::size_t resourceFullLogs = 0;
   std::size_t resourceNormalLogs = 0;
   std::set<CoppResourceModel::Key> waitingKeysAtEnd;
   std::set<CoppResourceModel::Key> keysWithoutVxlanEntryAtEnd;
   std::set<std::pair<std::string, std::string>> classesWithoutQueueAtEnd;
   std::optional<int> stopStep;
};

Preflight preflight(Scenario const& scenario);

}  // namespace NimbalHost
