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

// Each iteration on a switch of its own at the benchmark's scale; `timed` does the work, returns
// the seconds it measured and checks the result after the clock stopped.
template <class Timed>
void onFreshSwitches(benchmark::State& state, Timed timed) {
   Kiv::ActivityScope activity;
   warmHeap();
   std::size_t keys = 0;
   for (auto _ : state) {
      Agent a(scaleSwitch(static_cast<int>(state.range(0))));
      std::vector<KeyRate> const startUp = startUpKeys(*a.sw);
      keys = startUp.size();
      state.SetIterationTime(timed(a, startUp));
   }
   state.counters["keys"] = static_cast<double>(keys);
}

void B1_Boot(benchmark::State& state) {
   onFreshSwitches(state, [&](Agent& a, std::vector<KeyRate> const& startUp) {
      double const s = seconds([&] { a.boot(); });
      checkProgrammed(state, a, startUp.size());
      return s;
   });
}
BENCHMARK(B1_Boot)->Arg(1)->Arg(4)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

void B1_BootBare(benchmark::State& state) {
   onFreshSwitches(state, [](Agent& a, std::vector<KeyRate> const& startUp) {
      return seconds([&] { bareBoot(*a.sw, startUp); });
   });
}
BENCHMARK(B1_BootBare)
    ->Arg(1)
    ->Arg(4)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

void B2_Teardown(benchmark::State& state) {
   onFreshSwitches(state, [&](Agent& a, std::vector<KeyRate> const& startUp) {
      a.boot();
      checkProgrammed(state, a, startUp.size());
      auto const config = a.sw->kernelCoppConfig();
      double const s = seconds([&] {
         for (KeyRate const& k : startUp) {
            config->coppInfoDel(k.key);
         }
      });
      checkProgrammed(state, a, 0);
      return s;
   });
}
BENCHMARK(B2_Teardown)->Arg(4)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

void B2_TeardownBare(benchmark::State& state) {
   onFreshSwitches(state, [](Agent& a, std::vector<KeyRate> const& startUp) {
      std::vector<BareEntry> const made = bareBoot(*a.sw, startUp);
      return seconds([&] { bareTeardown(*a.sw, made); });
   });
}
BENCHMARK(B2_TeardownBare)->Arg(4)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
