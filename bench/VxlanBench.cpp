// B4: the state machine programming a VXLAN source-port entry for every kernel CoPP key when
// VXLAN is enabled, more keys than the pool of 512 holds, and taking them all away again.

#include <benchmark/benchmark.h>

#include "Kiv/Activity.h"
#include "Kiv/Log.h"
#include "bench/BenchSwitch.h"

namespace {

using namespace NimbalBench;

// 15 ports: with 40 queues, 600 keys (512 programmed, 88 left to the retry); with 10, 150.
void B4_VxlanSync(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   // The agent hands log messages to its logger; what that costs is not the library's.
   Kiv::logSinkIs([](Kiv::LogHandle const&, std::string const&) {});
   NimbalHost::SwitchConfig config = scaleSwitch(1, 15, static_cast<int>(state.range(0)));
   config.vxlanWorkaround = true;
   Agent a(config);
   a.boot();
   auto const scsd = a.sw->scsd();
   scsd->vxlanRecircIntfIs(Orvik::IntfId("Ethernet15"), true);
   std::size_t programmed = 0;
   for (auto _ : state) {
      scsd->vxlanEnabledIs(true);
      programmed = a.sw->helper()->kernelDynamicCoppVxlanData();
      scsd->vxlanEnabledIs(false);
      if (a.sw->helper()->kernelDynamicCoppVxlanData() != 0) {
         state.SkipWithError("VXLAN entries left after disabling VXLAN");
      }
   }
   Kiv::logSinkIs(nullptr);
   state.counters["keys"] = static_cast<double>(a.reactor->programmed().size());
   state.counters["programmed"] = static_cast<double>(programmed);
}
BENCHMARK(B4_VxlanSync)->Arg(10)->Arg(40)->Unit(benchmark::kMicrosecond);

}  // namespace
