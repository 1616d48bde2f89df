#pragma once

// Switches at the scale of a large chassis and the bare baseline the benchmarks compare the
// library against: the SDK and TCAM-manager calls the library makes for a kernel CoPP key, made
// directly, in the same order, with nothing else around them.

#include <memory>
#include <vector>

#include "Oskel/KernelCoPPConfig.h"
#include "host/agent/KernelCoppReactor.h"
#include "host/agent/SwitchBuilder.h"

namespace NimbalBench {

inline constexpr int portsPerModule = 256;
// Every CPU queue but the drop queue carries a class: 47 kernel CoPP keys per port.
inline constexpr int queuesPerPort = 47;
inline constexpr int modulesAtFullScale = 4;

// `modules` modules on units 0.. with ports 0 to portsPerModule - 1 each (interfaces Ethernet1
// on), and a CPU queue table whose queues 1 to 47 each statically carry a class. `queues` limits
// the allocated queues to 1..queues. The start-up does not publish the default rates.
NimbalHost::SwitchConfig scaleSwitch(int modules, int ports = portsPerModule,
                                     int queues = queuesPerPort);

// The switch with the agent's kernel CoPP reactor following its configuration, as the agent
// runs it. boot() is the agent's publication of the default rates, which the reactor programs.
struct Agent {
   explicit Agent(NimbalHost::SwitchConfig const& config);
   ~Agent();
   void boot() { sw->helper()->createDefaultCoppRates(); }
   std::unique_ptr<NimbalHost::Switch> sw;
   std::unique_ptr<NimbalHost::KernelCoppReactor> reactor;
};

// Once per process: one untimed boot at full scale, and freed heap kept rather than given back,
// so that every timed run meets a heap that is already the process's, whatever ran before it.
// Without it the first benchmark pays the kernel's first touch of the memory the later reuse.
void warmHeap();

// Seconds of this thread's processor time that `work` takes: on a shared machine, time spent
// waiting for a processor is not the work's.
double threadSeconds();
template <class Work>
double seconds(Work&& work) {
   double const start = threadSeconds();
   work();
   return threadSeconds() - start;
}

// A kernel CoPP key with the rate the start-up publishes for it, and the description its TCAM
// entry is made with.
struct KeyRate {
   Oskel::ModIdPortQueueKey key;
   U32 rate = 0;
   U32 burst = 0;
   Kiv::String description;
};
// The keys createDefaultCoppRates publishes on the switch, in the order it publishes them.
std::vector<KeyRate> startUpKeys(NimbalHost::Switch const& sw);
// Publishes them into the kernel CoPP configuration directly, as the library would.
void publish(NimbalHost::Switch& sw, std::vector<KeyRate> const& keys);

// What the bare baseline made for a key.
struct BareEntry {
   U32 unit = 0;
   U32 entry = 0;
   U32 policer = 0;
};
// The calls of createCoppPolicerByPortQueue for each key (no VXLAN).
std::vector<BareEntry> bareBoot(NimbalHost::Switch& sw, std::vector<KeyRate> const& keys);
// The calls of destroyCoppPolicerByPortQueue for each entry (no VXLAN).
void bareTeardown(NimbalHost::Switch& sw, std::vector<BareEntry> const& entries);

}  // namespace NimbalBench
