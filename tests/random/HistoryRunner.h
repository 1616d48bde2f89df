#pragma once

// One seeded history: a random switch with the simulated agent on it, random steps played one
// by one, every invariant checked after each, then everything removed and the chip checked
// empty. The same seed and step count give the same history.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host/agent/SimAgent.h"
#include "random/HistoryChecks.h"
#include "random/HistoryModel.h"
#include "random/Rng.h"
#include "random/StepGenerator.h"

namespace NimbalHistory {

class HistoryRunner {
  public:
   // Builds the switch of `seed` and starts the agent on it; the caller holds the activity
   // lock. `verbose` writes every step and what the agent said to standard output.
   HistoryRunner(U64 seed, int steps, bool verbose = false);
   // On a given switch; the seed draws the steps.
   HistoryRunner(U64 seed, int steps, RandomSwitch const& sw, bool verbose = false);
   ~HistoryRunner();
   HistoryRunner(HistoryRunner const&) = delete;
   HistoryRunner& operator=(HistoryRunner const&) = delete;

   // The random steps, then the teardown; false at the first broken invariant.
   bool run();
   // One step; false when it broke an invariant.
   bool playNext();
   bool play(HistoryStep const& step);
   bool teardown();

   // The first failure: seed, step, what broke, and how to play the history again.
   std::string const& failure() const { return failure_; }
   int stepsPlayed() const { return stepsPlayed_; }
   std::vector<std::string> const& stepTexts() const { return stepTexts_; }

   NimbalHost::SimAgent& agent() { return *agent_; }
   HistoryModel& model() { return *model_; }
   // The checks on the state as it stands, as after a step that changed nothing.
   std::vector<Violation> checkNow(bool clockMoved = false);

  private:
   void start(RandomSwitch const& sw);
   void applyToModel(HistoryStep const& step, Observation const& pre);
   std::vector<std::string> drainTranscript();
   void failed(HistoryStep const* step, std::vector<Violation> const& violations,
               std::vector<std::string> const& transcript);

   U64 seed_;
   int steps_;
   bool verbose_;
   Rng rng_;
   NimbalHost::Scenario scenario_;
   std::FILE* out_ = nullptr;
   std::unique_ptr<NimbalHost::SimAgent> agent_;
   std::unique_ptr<HistoryModel> model_;
   std::unique_ptr<StepGenerator> generator_;
   std::unique_ptr<HistoryChecks> checks_;
   // What the last step left: the next step starts from it.
   Observation last_;
   int stepsPlayed_ = 0;
   std::vector<std::string> stepTexts_;
   std::string failure_;
};

// Where the agent stands, for the message of an abnormal end (an assertion of the library).
void historyContextIs(U64 seed, int step, int steps, std::string const& text);
// Writes that message on SIGABRT.
void historyAbortReportIs();

}  // namespace NimbalHistory
