#pragma once

// Random switches and random valid steps for them. Steps are drawn from what the history has
// configured so far, with the scenario loader's checks mirrored, and they keep clear of what
// ends the agent by design: no failing SDK calls, no class policer or recirculation on a port
// without a per-port default entry, no verify on a switch whose fabric interface has a per-port
// default entry, and no meter pool of the default-and-VXLAN group shrunk below what it holds
// (meter swaps must find their meter).

#include <string>
#include <vector>

#include "host/agent/SimAgent.h"
#include "random/HistoryModel.h"
#include "random/HistoryStep.h"
#include "random/Rng.h"

namespace NimbalHistory {

struct RandomSwitch {
   NimbalHost::ScenarioSwitch sw;
   // Classes without a static queue: they take one from the dynamic pool.
   std::vector<std::string> dynamicClasses;
};

RandomSwitch randomSwitch(Rng& rng);

class StepGenerator {
  public:
   StepGenerator(Rng& rng, HistoryModel const& model, NimbalHost::SimAgent& agent)
       : rng_(rng), model_(model), agent_(agent) {}

   HistoryStep next(int number);
   // Everything taken away again: classes, kernel keys, VXLAN, recirculation, then a minute
   // for the state machine's retry.
   std::vector<HistoryStep> teardown(int firstNumber) const;

  private:
   std::optional<HistoryStep> police(int number);
   std::optional<HistoryStep> unpolice(int number);
   std::optional<HistoryStep> vxlan(int number);
   std::optional<HistoryStep> recirc(int number);
   std::optional<HistoryStep> resources(int number);
   std::optional<HistoryStep> advance(int number);
   std::optional<HistoryStep> traffic(int number);
   std::optional<HistoryStep> show(int number);
   std::optional<HistoryStep> clear(int number);
   std::optional<HistoryStep> poll(int number);
   std::optional<HistoryStep> verify(int number);
   std::optional<HistoryStep> tamper(int number);
   std::optional<HistoryStep> set(int number);
   std::optional<HistoryStep> withdrawKey(int number);
   std::optional<HistoryStep> publishKey(int number);

   std::vector<ModelInterface const*> defaultEntryInterfaces() const;
   U32 rate();

   Rng& rng_;
   HistoryModel const& model_;
   NimbalHost::SimAgent& agent_;
};

}  // namespace NimbalHistory
