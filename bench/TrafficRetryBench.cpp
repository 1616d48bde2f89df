// B10b: a traffic step on a switch whose egress meter pool ran out, against the same step on a
// switch with room. The keys that wait for hardware are tried again once per step, so the step
// costs about what it costs with room.

#include <benchmark/benchmark.h>

#include <string>

#include "Kiv/Activity.h"
#include "bench/BenchSwitch.h"
#include "host/agent/SimAgent.h"
#include "host/scenario/Scenario.h"

namespace {

using namespace NimbalBench;

// 32 ports; meters 0 means room for every key.
NimbalHost::Scenario trafficScenario(long meters, long packets) {
   std::string const resources =
       meters ? R"(, "resources": {"efpCoppMeters": )" + std::to_string(meters) + "}" : "";
   return NimbalHost::scenarioFromText(
       R"({"switch": {"interfaceRanges": [{"prefix": "Ethernet", "first": 1, "count": 32,
           "modId": 0, "port": 1}])" +
           resources + R"(}, "steps": [{"traffic": {"interface": "Ethernet1", "queue": 6,
           "pps": )" +
           std::to_string(packets) + R"(, "seconds": 1}}]})",
       "b10b.json");
}

void B10b_TrafficStep(benchmark::State& state) {
   Kiv::ActivityScope activity;
   NimbalHost::Scenario const scenario = trafficScenario(state.range(0), state.range(1));
   std::size_t waiting = 0;
   for (auto _ : state) {
      NimbalHost::SilentTranscript silent;
      NimbalHost::SimAgent agent(scenario, silent);
      waiting = agent.kernelCopp().failed().size();
      state.SetIterationTime(seconds([&] { agent.step(scenario.steps.front()); }));
      if (agent.now() < 1.0) {
         state.SkipWithError("the traffic step did not run");
      }
   }
   state.counters["waiting"] = static_cast<double>(waiting);
   state.counters["packets"] = static_cast<double>(state.range(1));
}
BENCHMARK(B10b_TrafficStep)
    ->Args({20, 100000})
    ->Args({0, 100000})
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace
