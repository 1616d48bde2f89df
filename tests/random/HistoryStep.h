#pragma once

#include <optional>
#include <string>
#include <variant>

#include "Oskel/KernelCoPPConfig.h"
#include "host/scenario/Scenario.h"

namespace NimbalHistory {

// What the agent's kernel CoPP configuration does on its own, for which a scenario has no
// step: a key withdrawn, or a key published again at its queue's default rate.
struct KernelKeyStep {
   Oskel::ModIdPortQueueKey key;
   std::optional<Oskel::CoppInfo> info;  // none: the key is withdrawn
};

struct HistoryStep {
   int number = 0;
   std::variant<NimbalHost::ScenarioStep, KernelKeyStep> action;

   NimbalHost::ScenarioStep const* scenarioStep() const {
      return std::get_if<NimbalHost::ScenarioStep>(&action);
   }
   // A scenario step as its JSON object; a kernel key step in words.
   std::string text() const;
};

}  // namespace NimbalHistory
