// Speed of the paths that grow with the switch: port-queue entries on a large switch, the
// VXLAN entry pool as it fills, and the collections under them.

#include <benchmark/benchmark.h>

#include <memory>

#include "Kiv/Activity.h"
#include "Kiv/Collection.h"
#include "host/agent/SwitchBuilder.h"

namespace {

NimbalHost::SwitchConfig bigSwitch(int ports, bool vxlan) {
   NimbalHost::SwitchConfig config;
   config.interfaces.clear();
   for (int p = 1; p <= ports; ++p) {
      config.interfaces.push_back({"Ethernet" + std::to_string(p), 0, static_cast<U16>(p)});
   }
   config.vxlanWorkaround = vxlan;
   return config;
}

// Programs and removes one (module, port, queue) entry with `entries` others in place.
void BM_PortQueueCreateDestroy(benchmark::State& state) {
   Kiv::ActivityScope scope;
   int const entries = static_cast<int>(state.range(0));
   NimbalHost::Switch sw(bigSwitch(1023, false));
   auto helper = sw.helper();
   for (int p = 1; p <= entries; ++p) {
      helper->createCoppPolicerByPortQueue(Oskel::ModIdPortQueueKey(0, p, 1));
   }
   Oskel::ModIdPortQueueKey key(0, 1023, 2);
   for (auto _ : state) {
      benchmark::DoNotOptimize(helper->createCoppPolicerByPortQueue(key));
      helper->destroyCoppPolicerByPortQueue(key);
   }
}
BENCHMARK(BM_PortQueueCreateDestroy)->Arg(8)->Arg(1000)->Unit(benchmark::kMicrosecond);

// Allocates and frees one VXLAN pool index with `taken` lower indices in use.
void BM_VxlanPoolAllocate(benchmark::State& state) {
   Kiv::ActivityScope scope;
   NimbalHost::Switch sw(bigSwitch(8, true));
   auto helper = sw.helper();
   for (int i = 0; i < state.range(0); ++i) {
      helper->allocateCoppVxlanDynEntry();
   }
   for (auto _ : state) {
      U32 entry = helper->allocateCoppVxlanDynEntry();
      helper->freeCoppVxlanEntry(entry);
   }
}
BENCHMARK(BM_VxlanPoolAllocate)->Arg(0)->Arg(256)->Arg(511);

struct Owner : Kiv::Entity {
   KIV_VALUE_MAP(Oskel::ModIdPortQueueKey, U64, counts)
};

// Insert-or-update and lookup in a collection of `size` keys.
void BM_CollectionIsAndLookup(benchmark::State& state) {
   Kiv::Ptr<Owner> owner(new Owner());
   U32 const size = static_cast<U32>(state.range(0));
   for (U32 i = 0; i < size; ++i) {
      owner->countsIs(Oskel::ModIdPortQueueKey(0, i % 1024, i / 1024), i);
   }
   U64 v = 0;
   for (auto _ : state) {
      Oskel::ModIdPortQueueKey key(0, v % 1024, (v / 1024) % 48);
      owner->countsIs(key, ++v);
      benchmark::DoNotOptimize(owner->counts(key));
   }
}
BENCHMARK(BM_CollectionIsAndLookup)->Arg(64)->Arg(49152);

}  // namespace

BENCHMARK_MAIN();
