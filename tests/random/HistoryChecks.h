#pragma once

// The invariants a history must keep after every step, checked against the simulated chip (and
// the packet driver) with the model's expectations.

#include <string>
#include <vector>

#include "host/agent/SimAgent.h"
#include "random/HistoryModel.h"
#include "random/HistoryStep.h"
#include "random/Observation.h"

namespace NimbalHistory {

// How often the histories met what the invariants are about, so that a run shows what it
// exercised.
struct Coverage {
   long steps = 0;
   long exactTraffic = 0;  // traffic steps whose every hit was accounted for
   long tunnelTraffic = 0;
   long droppedPackets = 0;
   long showTables = 0;
   long polls = 0;
   long verifies = 0;
   long verifyDifferences = 0;  // differences reported, all of them expected
   long waitingKeySteps = 0;    // steps after which kernel keys waited for hardware
   long missingVxlanSteps = 0;  // steps after which VXLAN entries waited for a retry
   long foldedHits = 0;         // hits saved into software from entries that went
   long queueResets = 0;
};
Coverage& coverage();

struct Violation {
   std::string invariant;
   std::string detail;
};

// What the checks need to know of the step just played.
struct StepFacts {
   HistoryStep const* step = nullptr;
   bool clockMoved = false;  // timers ran and waiting kernel keys were tried again
   std::vector<std::string> transcript;
};

class HistoryChecks {
  public:
   // The names of the invariants checked after every step, in the order they are checked.
   static std::vector<std::string> const& invariants();

   HistoryChecks(NimbalHost::SimAgent& agent, HistoryModel const& model)
       : agent_(agent), model_(model) {}

   std::vector<Violation> afterStep(Observation const& pre, Observation const& post,
                                    StepFacts const& facts);
   // Once everything is removed: the chip holds the per-port default entries and their meters
   // only, and every dynamic CPU queue is free.
   std::vector<Violation> afterTeardown();

  private:
   void fail(std::string const& invariant, std::string const& detail);

   // Records, entries and meters (RecordChecks.cpp).
   void kernelConfiguration();
   void kernelReactor();
   void kernelEntries();
   void vxlanEntries();
   void vxlanPool();
   void defaultPolicers();
   void vxlanRetry(Observation const& pre, Observation const& post);
   void nothingWithoutRecord();
   void waitingKeys(StepFacts const& facts);
   void cpuQueues();
   // Counters (CounterChecks.cpp).
   void hitCounters(Observation const& pre, Observation const& post, StepFacts const& facts);
   void softwareHits(Observation const& pre, Observation const& post);
   void driverCounters(Observation const& pre, Observation const& post, StepFacts const& facts);
   void traffic(Observation const& pre, Observation const& post, StepFacts const& facts);
   void show(Observation const& post, StepFacts const& facts);
   void poll(Observation const& post, StepFacts const& facts);
   void verify(Observation const& post, StepFacts const& facts);

   NimbalHost::SimAgent& agent_;
   HistoryModel const& model_;
   std::vector<Violation> violations_;
};

// The model's bookkeeping that follows what the step did to the entries: hits folded into
// software by entries that went, keys that got an entry, tampering undone by a new meter.
void settle(HistoryModel& model, Observation const& pre, Observation const& post);

}  // namespace NimbalHistory
