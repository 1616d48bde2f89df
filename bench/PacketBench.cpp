// B8: one packet to the CPU through the chip, its entries matched, metered and counted, with few
// and with very many entries installed.

#include <benchmark/benchmark.h>

#include "Kiv/Activity.h"
#include "bench/BenchSwitch.h"

namespace {

using namespace NimbalBench;

// range(0) ports of one unit with 47 queues each (1,024 ports: 48,128 entries in the unit the
// packet meets); 0 is eight ports with one queue: eight entries.
void B8_Packet(benchmark::State& state) {
   Kiv::ActivityScope activity;
   warmHeap();
   int const ports = static_cast<int>(state.range(0));
   Agent a(ports == 0 ? scaleSwitch(1, 8, 1) : scaleSwitch(1, ports));
   a.boot();
   auto const pktDrv = a.sw->pktDrv();
   double t = 1.0;
   for (auto _ : state) {
      t += 1e-3;
      benchmark::DoNotOptimize(pktDrv->sendToCpu(0, 1, 1, 0, t));
   }
   state.counters["entries"] =
       static_cast<double>(a.sw->chip().entriesInUse(0, NimbalHost::Switch::efpCoppGroupId));
}
BENCHMARK(B8_Packet)->Arg(0)->Arg(256)->Arg(1024);

}  // namespace
