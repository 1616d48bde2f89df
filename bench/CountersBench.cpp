// B3 and B5: the two counter tables with a row for every programmed key, and the agent's counter
// poll of many classes.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "Kiv/Activity.h"
#include "bench/BenchSwitch.h"
#include "host/agent/QosClassConfig.h"

namespace {

using namespace NimbalBench;

// Every key sees a packet, so that both tables have a row for it.
void onePacketPerKey(Agent& a) {
   double t = 1.0;
   for (KeyRate const& k : startUpKeys(*a.sw)) {
      U32 const unit = a.sw->unitOfModule(static_cast<U16>(k.key.modId()));
      a.sw->pktDrv()->sendToCpu(unit, k.key.port(), k.key.queue(), 0, t);
      t += 1e-6;
   }
}

template <bool hardware>
void showTable(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   Agent a(scaleSwitch(static_cast<int>(state.range(0))));
   a.boot();
   onePacketPerKey(a);
   int const devNull = ::open("/dev/null", O_WRONLY);
   auto const helper = a.sw->helper();
   for (auto _ : state) {
      if (hardware) {
         helper->showCoppIntfCountersHw(static_cast<U32>(devNull));
      } else {
         helper->showCoppIntfCountersSw(static_cast<U32>(devNull));
      }
   }
   ::close(devNull);
   state.counters["rows"] = static_cast<double>(a.reactor->programmed().size());
}

void B3_ShowHw(benchmark::State& state) {
   showTable<true>(state);
}
void B3_ShowSw(benchmark::State& state) {
   showTable<false>(state);
}
BENCHMARK(B3_ShowHw)->Arg(1)->Arg(4)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(B3_ShowSw)->Arg(1)->Arg(4)->Iterations(5)->Unit(benchmark::kMillisecond);

// 125 interfaces with eight policed classes each.
void B5_Poll(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   Agent a(scaleSwitch(1, 125));
   a.boot();
   NimbalHost::QosClassConfig classes(*a.sw);
   for (int p = 1; p <= 125; ++p) {
      for (int c = 1; c <= 8; ++c) {
         classes.police("Ethernet" + std::to_string(p), "copp-bench-" + std::to_string(c), 100, 10);
      }
   }
   onePacketPerKey(a);
   auto const helper = a.sw->helper();
   for (auto _ : state) {
      for (auto const& [intfClass, policed] : classes.all()) {
         benchmark::DoNotOptimize(helper->counterUpdateRequest(policed.classData, Oskel::AclKey()));
      }
   }
   state.counters["classes"] = static_cast<double>(classes.all().size());
}
BENCHMARK(B5_Poll)->Unit(benchmark::kMillisecond);

}  // namespace
