#pragma once

// One configuration tried by the advisor: the scenario's switch and traffic with chosen class
// rates and a per-port default rate, played by the simulated agent with the real library on the
// simulated chip, and what each class and port admitted.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/Types.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

// An interface and a class on it.
using ClassOnPort = std::pair<std::string, std::string>;

struct RateBurst {
   U32 rate = 0;   // pps
   U32 burst = 0;  // packets
   bool operator==(RateBurst const& o) const { return rate == o.rate && burst == o.burst; }
};

// The rates the advisor may set: a police action per chosen class and port, and the configured
// rate of every port's default policer.
struct Candidate {
   U32 portDefaultRate = 0;
   std::map<ClassOnPort, RateBurst> rates;
};

struct Admitted {
   U64 offered = 0;
   U64 allowed = 0;
   double loss() const {
      return offered == 0 ? 0.0 : static_cast<double>(offered - allowed) / offered;
   }
};

struct TrialResult {
   std::map<ClassOnPort, Admitted> byClass;     // traffic sent by class
   std::map<std::string, Admitted> byPort;      // all traffic of the interface
   std::map<ClassOnPort, bool> reachedNoQueue;  // a class whose packets found no CPU queue
};

// The scenario that plays a candidate: the switch with the candidate's default rate, a police
// step for each chosen class first, then the scenario's steps without the police and unpolice
// steps of those classes.
Scenario candidateScenario(Scenario const& s, Candidate const& c);

// Plays a scenario silently and counts what its traffic steps offered and admitted.
TrialResult playTrial(Scenario const& s);

}  // namespace NimbalHost
