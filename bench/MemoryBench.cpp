// B7: heap bytes per programmed kernel CoPP key, the library's own and the platform's, measured
// by the allocator's statistics. The library's path (createDefaultCoppRates, then
// createCoppPolicerByPortQueue for every key) and the bare path (the same configuration records
// and the same SDK and TCAM calls made directly) leave the platform holding the same things, so
// what the library's path holds beyond the bare one is the library's own.

#include <malloc.h>

#include <cstdio>

#include "Kiv/Activity.h"
#include "Kiv/BlockAccounting.h"
#include "bench/BenchSwitch.h"

namespace {

using namespace NimbalBench;

// Blocks of the framework's slabs count when taken, not when their slab was: a slab filled by
// one path and reused by the next would otherwise count for the first only.
double heapBytes() {
   struct mallinfo2 const m = ::mallinfo2();
   return static_cast<double>(m.uordblks + m.hblkhd) - static_cast<double>(Kiv::blockSlabBytes()) +
          static_cast<double>(Kiv::blockBytesInUse());
}

struct Measured {
   double keys = 0;
   double library = 0;        // bytes the library's path added
   double bare = 0;           // bytes the bare path added
   double afterTeardown = 0;  // bytes the library's path still holds with every key removed
};

Measured measure(int modules) {
   Measured m;
   {
      auto const sw = NimbalHost::buildSwitch(scaleSwitch(modules));
      sw->sdk().journalLimitIs(0);
      std::vector<KeyRate> const keys = startUpKeys(*sw);
      m.keys = static_cast<double>(keys.size());
      auto const helper = sw->helper();
      double const before = heapBytes();
      helper->createDefaultCoppRates();
      for (KeyRate const& k : keys) {
         helper->createCoppPolicerByPortQueue(k.key);
      }
      m.library = heapBytes() - before;
      for (KeyRate const& k : keys) {
         helper->destroyCoppPolicerByPortQueue(k.key);
         sw->kernelCoppConfig()->coppInfoDel(k.key);
      }
      m.afterTeardown = heapBytes() - before;
   }
   {
      auto const sw = NimbalHost::buildSwitch(scaleSwitch(modules));
      sw->sdk().journalLimitIs(0);
      std::vector<KeyRate> const keys = startUpKeys(*sw);
      std::vector<BareEntry> made;
      made.reserve(keys.size());
      double const before = heapBytes();
      publish(*sw, keys);
      std::vector<BareEntry> const got = bareBoot(*sw, keys);
      // The baseline's own list of what it made is not the platform's.
      m.bare = heapBytes() - before - static_cast<double>(got.capacity() * sizeof(BareEntry));
   }
   return m;
}

}  // namespace

int main() {
   Kiv::ActivityScope activity;
   Measured const m = measure(modulesAtFullScale);
   // One figure a line: name, value; read by bench/figures.py.
   std::printf("keys %.0f\n", m.keys);
   std::printf("library_bytes_per_key %.1f\n", (m.library - m.bare) / m.keys);
   std::printf("platform_bytes_per_key %.1f\n", m.bare / m.keys);
   std::printf("library_bytes_per_key_after_teardown %.1f\n", m.afterTeardown / m.keys);
   return 0;
}
