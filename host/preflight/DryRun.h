#pragma once

// A dry run: the scenario played by the simulated agent, with the real library on the simulated
// chip, traffic reduced to the clock advance it makes. It runs in a child process, so that an
// agent the library stops by design (an assertion, a fatal SDK error) ends the child and not
// the caller. What the child saw comes back through a pipe: the pools after the start-up and
// after every step, what lacked hardware from when to when, the resource messages, and where
// and why the agent stopped.

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Kiv/Types.h"
#include "Oskel/KernelCoPPConfig.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

using CoppKey = Oskel::ModIdPortQueueKey;

// Why something has no hardware.
enum class Shortage {
   coppEntry,          // no egress CoPP entry left
   coppMeter,          // no egress CoPP meter left
   debugAlwaysFalse,   // createCoppPolicerAlwaysFalse is set
   vxlanPool,          // the library's pool of VXLAN source-port entries is full
   defaultEntry,       // no default-and-VXLAN entry left
   defaultMeter,       // no default-and-VXLAN meter left
   vxlanDefaultFirst,  // a VXLAN default entry is missing, so source-port entries wait
   dynamicCpuQueue,    // no dynamic CPU queue is free
};
std::string shortageText(Shortage s);

// Something that should have hardware and has none, from when to when.
struct Shortfall {
   enum class What { kernelKey, vxlanSourcePort, vxlanDefault, portDefault, classQueue };
   What what = What::kernelKey;
   std::string interface;
   std::optional<CoppKey> key;  // kernelKey, vxlanSourcePort
   std::string queueName;       // of the key's queue
   std::string cmapName;        // classQueue
   Shortage reason = Shortage::coppEntry;
   int fromStep = 0;  // 0: from the start-up
   double fromTime = 0;
   std::optional<int> toStep;  // none: to the end
   double toTime = 0;
   bool programmed = false;  // it got its hardware in the end (else it was no longer needed)
};

struct PoolUse {
   U32 size = 0;
   U32 inUse = 0;
};

// One unit's pools as the chip counts them, and what the library's records want of the
// default-and-VXLAN group.
struct UnitUse {
   PoolUse coppEntries;
   PoolUse coppMeters;
   PoolUse defaultEntries;
   PoolUse defaultMeters;
   U32 portDefaults = 0;     // per-port default policers the agent made
   U32 vxlanDefaults = 0;    // their VXLAN twins, wanted while VXLAN needs them
   U32 vxlanSourcePort = 0;  // VXLAN source-port entries, wanted while VXLAN needs them
   U32 waitingKeys = 0;      // kernel CoPP keys the agent retries: each wants an entry and meter
};

// After the start-up (step 0) or a step.
struct Snapshot {
   int step = 0;
   std::map<U16, UnitUse> units;
   PoolUse vxlanPool;         // the library's VXLAN source-port entry indices
   PoolUse dynamicCpuQueues;  // in use: held by a class
   U32 dynamicClasses = 0;    // classes that want a dynamic queue
};

// A `fail` step and the step in which the call it failed was made.
struct InjectedFailure {
   int step = 0;
   std::optional<int> hitStep;
};

struct DryRun {
   std::vector<Snapshot> snapshots;
   std::vector<Shortfall> shortfalls;
   std::size_t resourceFullLogs = 0;
   std::size_t resourceNormalLogs = 0;
   std::vector<InjectedFailure> injected;
   // Where the agent stopped (0: in the start-up) and the last line it wrote before.
   std::optional<int> stopStep;
   std::string stopReason;
};

// Plays the scenario in a child process. With `roomForAll` every pool the scenario sizes is too
// large to run out (its `resources` steps too), which shows what the switch wants. Throws
// ScenarioError when the switch cannot be built.
DryRun dryRun(Scenario const& scenario, bool roomForAll);

// What the child does: plays and writes its observations to `fd`.
void playDry(Scenario const& scenario, bool roomForAll, int fd);

}  // namespace NimbalHost
