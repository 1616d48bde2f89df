// B1 and B2: programming every (module, port, queue) of a switch at start-up, and removing them
// all, through the library and the agent's kernel CoPP reactor, against the bare SDK and TCAM
// calls that cannot be avoided.

#include <benchmark/benchmark.h>

#include "Kiv/Activity.h"
#include "bench/BenchSwitch.h"

namespace {

using namespace NimbalBench;

void checkProgrammed(benchmark::State& state, Agent const& a, std::size_t keys) {
   if (a.reactor->programmed().size() != keys || !a.reactor->failed().empty()) {
      state.SkipWithError("not every kernel CoPP key was programmed");
   }
}

void B1_Boot(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   std::size_t keys = 0;
   for (auto _ : state) {
      Agent a(scaleSwitch(static_cast<int>(state.range(0))));
      keys = startUpKeys(*a.sw).size();
      state.SetIterationTime(seconds([&] { a.boot(); }));
      checkProgrammed(state, a, keys);
   }
   state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(B1_Boot)->Arg(1)->Arg(4)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

void B1_BootBare(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   std::size_t keys = 0;
   for (auto _ : state) {
      Agent a(scaleSwitch(static_cast<int>(state.range(0))));
      std::vector<KeyRate> const startUp = startUpKeys(*a.sw);
      keys = startUp.size();
      state.SetIterationTime(seconds([&] { bareBoot(*a.sw, startUp); }));
   }
   state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(B1_BootBare)
    ->Arg(1)
    ->Arg(4)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

void B2_Teardown(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   std::size_t keys = 0;
   for (auto _ : state) {
      Agent a(scaleSwitch(static_cast<int>(state.range(0))));
      std::vector<KeyRate> const startUp = startUpKeys(*a.sw);
      keys = startUp.size();
      a.boot();
      checkProgrammed(state, a, keys);
      auto const config = a.sw->kernelCoppConfig();
      state.SetIterationTime(seconds([&] {
         for (KeyRate const& k : startUp) {
            config->coppInfoDel(k.key);
         }
      }));
      checkProgrammed(state, a, 0);
   }
   state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(B2_Teardown)->Arg(4)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

void B2_TeardownBare(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   std::size_t keys = 0;
   for (auto _ : state) {
      Agent a(scaleSwitch(static_cast<int>(state.range(0))));
      std::vector<KeyRate> const startUp = startUpKeys(*a.sw);
      keys = startUp.size();
      std::vector<BareEntry> const made = bareBoot(*a.sw, startUp);
      state.SetIterationTime(seconds([&] { bareTeardown(*a.sw, made); }));
   }
   state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(B2_TeardownBare)->Arg(4)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
