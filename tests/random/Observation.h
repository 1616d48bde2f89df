#pragma once

// What the checks read from the simulated chip, the packet driver and the helper at the end
// of a step, kept so that the next step can be compared with it.

#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "host/agent/SimAgent.h"
#include "random/HistoryModel.h"

namespace NimbalHistory {

// A helper record of a port-queue entry, with the chip's statistics of its entry.
struct RecordView {
   U32 entry = 0;
   U32 policer = 0;
   int statId = 0;  // the chip's counter set: a new one with every entry made
   U64 packets = 0;
};

// An installed entry as far as a packet can tell it apart from another.
struct InstalledEntry {
   int statId = 0;
   int policer = 0;
   bool operator==(InstalledEntry const&) const = default;
};

using UnitStat = std::pair<int, int>;             // (unit, stat id)
using UnitPortQueue = std::tuple<U32, U32, U32>;  // (unit, port, queue)
using UnitEntry = std::pair<int, int>;            // (unit, entry)

struct Observation {
   double now = 0;
   std::map<Key, RecordView> kernel;  // kernelDynamicCoppData
   std::map<Key, RecordView> vxlan;   // kernelDynamicCoppVxlanData
   // The helper's software hit counts (coppIntfCounterData), by key.
   std::map<Key, U64> softwareHits;
   // Default and VXLAN default entries' hits, by interface.
   std::map<std::string, U64> defaultHits;
   std::map<std::string, U64> vxlanDefaultHits;
   std::map<std::string, int> vxlanDefaultStat;
   // Every counter set of an entry on the chip: (packets, red packets).
   std::map<UnitStat, std::pair<U64, U64>> stats;
   std::map<UnitEntry, InstalledEntry> installed;
   // The packet driver's counters of every port of every unit.
   std::map<UnitPortQueue, DdeCounters> dde;
   // When the state machine retries VXLAN entries; never when it does not wait.
   double vxlanRetryAt = 0;

   DdeCounters ddeOf(U32 unit, U32 port, U32 queue) const;
};

Observation observe(NimbalHost::SimAgent& agent, HistoryModel const& model);

// The chip's count of a statistic of an entry's counter set, 0 when there is none.
U64 statOf(NimbalHost::SimAgent& agent, int unit, int entry, int statType);

}  // namespace NimbalHistory
