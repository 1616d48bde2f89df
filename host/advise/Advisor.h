#pragma once

// The advisor: the class rates and bursts and the per-port default rate that keep the protected
// classes within their loss while each port sends the CPU no more than its budget, found by
// playing every configuration it considers through the real library on the simulated chip.

#include <optional>
#include <string>
#include <vector>

#include "host/advise/AdviceTrial.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

// One class on one port: what it has today, what the advisor sets, and what it admitted.
struct AdviceRow {
   ClassOnPort key;
   bool chosen = false;               // its rate may be chosen
   std::optional<double> maxLoss;     // protected
   std::optional<RateBurst> today;    // none: not policed and no queue of its own
   bool todayIsQueueDefault = false;  // today's rate is the CPU queue's own default
   std::optional<RateBurst> advised;  // chosen classes
   Admitted before;
   Admitted after;
};

struct PortAdvice {
   std::string interface;
   Admitted before;
   Admitted after;
};

// A goal the advised configuration does not meet, as one line.
struct UnmetGoal {
   std::string goal;
   std::string found;
};

struct Advice {
   std::string file;
   double seconds = 0;  // of traffic, over which rates are averaged
   U32 portDefaultToday = 0;
   U32 portDefaultAdvised = 0;
   std::optional<U32> cpuBudget;
   std::vector<AdviceRow> rows;
   std::vector<PortAdvice> ports;
   std::vector<UnmetGoal> unmet;
   std::size_t trials = 0;
   Candidate advised;
   bool met() const { return unmet.empty(); }
};

// The rate that no class meter or default policer reaches in a scenario: class meters open
// wide while the advisor looks at other things.
inline constexpr U32 openClassRate = 20'000'000;
// Twice the open class rate, and a tenth of it still fits the burst's 32 bits.
inline constexpr U32 openPortDefaultRate = 2 * openClassRate;

// Searches a scenario that has an `advise` question. Deterministic: the same answer on every
// run. Throws ScenarioError when the switch cannot be built.
Advice advise(Scenario const& s);

}  // namespace NimbalHost
