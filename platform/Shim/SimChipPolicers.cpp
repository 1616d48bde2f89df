// Policers, statistics, read-back, tampering and the packet path of the simulated chip.
#include <algorithm>

#include "Kiv/Clock.h"
#include "Shim/SimChip.h"

namespace Shim {

bool SimChip::policerInUse(Unit const& u, bcm_policer_t id) const {
   return u.policerRefs.count(id) != 0;
}

int SimChip::policerAttach(int unit, bcm_field_entry_t entry, int level, bcm_policer_t policer) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   if (level < 0 || level > 1) {
      return BCM_E_PARAM;
   }
   if (!u->policers.count(policer)) {
      return BCM_E_NOT_FOUND;
   }
   if (e->sw.policer[level] != 0) {
      return BCM_E_EXISTS;
   }
   entryChange(*u, *e, [e, level, policer] { e->sw.policer[level] = policer; });
   return BCM_E_NONE;
}

int SimChip::policerDetach(int unit, bcm_field_entry_t entry, int level) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   if (level < 0 || level > 1) {
      return BCM_E_PARAM;
   }
   if (e->sw.policer[level] == 0) {
      return BCM_E_NOT_FOUND;
   }
   entryChange(*u, *e, [e, level] { e->sw.policer[level] = 0; });
   return BCM_E_NONE;
}

int SimChip::entryPolicerGet(int unit, bcm_field_entry_t entry, int level,
                             bcm_policer_t* policer) const {
   Unit const* u;
   FieldEntry const* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   if (level < 0 || level > 1 || !policer) {
      return BCM_E_PARAM;
   }
   if (e->sw.policer[level] == 0) {
      return BCM_E_NOT_FOUND;
   }
   *policer = e->sw.policer[level];
   return BCM_E_NONE;
}

int SimChip::policerCreate(int unit, bcm_policer_config_s const* config, bcm_policer_t* id) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (!config || !id) {
      return BCM_E_PARAM;
   }
   bcm_policer_t newId;
   if (config->flags() & BCM_POLICER_WITH_ID) {
      newId = *id;
      if (newId <= 0) {
         return BCM_E_PARAM;
      }
      if (u->policers.count(newId)) {
         return BCM_E_EXISTS;
      }
   } else {
      newId = u->nextPolicerId;
      while (u->policers.count(newId)) {
         ++newId;
      }
      u->nextPolicerId = newId + 1;
   }
   Policer& p = u->policers[newId];
   p.id = newId;
   p.config = *config;
   p.bucket = TokenBucket(Kiv::activityClock()->now(), config->ckbits_burst());
   *id = newId;
   return BCM_E_NONE;
}

int SimChip::policerDestroy(int unit, bcm_policer_t id) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (!u->policers.count(id)) {
      return BCM_E_NOT_FOUND;
   }
   if (policerInUse(*u, id)) {
      return BCM_E_BUSY;
   }
   u->policers.erase(id);
   return BCM_E_NONE;
}

int SimChip::policerGet(int unit, bcm_policer_t id, bcm_policer_config_s* config) const {
   Unit const* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (!config) {
      return BCM_E_PARAM;
   }
   auto it = u->policers.find(id);
   if (it == u->policers.end()) {
      return BCM_E_NOT_FOUND;
   }
   *config = it->second.config;
   return BCM_E_NONE;
}

int SimChip::statCreate(int unit, bcm_field_group_t group, int nstat, int const* types,
                        int* statId) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (nstat <= 0 || !types || !statId) {
      return BCM_E_PARAM;
   }
   if (!u->groups.count(group)) {
      return BCM_E_NOT_FOUND;
   }
   int id = u->nextStatId++;
   FieldStat& s = u->stats.make(id);
   s.id = id;
   s.group = group;
   s.typesIs(nstat, types);
   *statId = id;
   return BCM_E_NONE;
}

int SimChip::statAttach(int unit, bcm_field_entry_t entry, int statId) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   FieldStat* const stat = u->stats.find(statId);
   if (!stat) {
      return BCM_E_NOT_FOUND;
   }
   if (e->statId != 0) {
      return BCM_E_EXISTS;
   }
   if (stat->entry != 0) {
      return BCM_E_BUSY;
   }
   e->statId = statId;
   stat->entry = entry;
   return BCM_E_NONE;
}

int SimChip::statGet(int unit, int statId, int statType, U64* value) const {
   Unit const* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (!value) {
      return BCM_E_PARAM;
   }
   FieldStat const* const stat = u->stats.find(statId);
   if (!stat) {
      return BCM_E_NOT_FOUND;
   }
   U64 const* count = stat->count(statType);
   if (!count) {
      return BCM_E_PARAM;
   }
   *value = *count;
   return BCM_E_NONE;
}

int SimChip::statDestroy(int unit, int statId) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   FieldStat const* const stat = u->stats.find(statId);
   if (!stat) {
      return BCM_E_NOT_FOUND;
   }
   if (stat->entry != 0) {
      return BCM_E_BUSY;
   }
   u->stats.erase(statId);
   return BCM_E_NONE;
}

FieldEntry const* SimChip::entry(int unit, bcm_field_entry_t entry) const {
   Unit const* u;
   FieldEntry const* e = nullptr;
   return entryFind(unit, entry, u, e) == BCM_E_NONE ? e : nullptr;
}

std::vector<bcm_field_entry_t> SimChip::entries(int unit) const {
   std::vector<bcm_field_entry_t> out;
   if (Unit const* u = unitFind(unit)) {
      for (auto const& kv : u->entries) {
         out.push_back(kv.first);
      }
   }
   std::sort(out.begin(), out.end());
   return out;
}

std::vector<bcm_field_entry_t> SimChip::entries(int unit, bcm_field_group_t group) const {
   std::vector<bcm_field_entry_t> out;
   if (Unit const* u = unitFind(unit)) {
      for (auto const& kv : u->entries) {
         if (kv.second.group == group) {
            out.push_back(kv.first);
         }
      }
   }
   std::sort(out.begin(), out.end());
   return out;
}

Policer const* SimChip::policer(int unit, bcm_policer_t id) const {
   Unit const* u = unitFind(unit);
   if (!u) {
      return nullptr;
   }
   auto it = u->policers.find(id);
   return it == u->policers.end() ? nullptr : &it->second;
}

std::size_t SimChip::policers(int unit) const {
   Unit const* u = unitFind(unit);
   return u ? u->policers.size() : 0;
}

std::size_t SimChip::stats(int unit) const {
   Unit const* u = unitFind(unit);
   return u ? u->stats.size() : 0;
}

FieldStat const* SimChip::stat(int unit, int statId) const {
   Unit const* u = unitFind(unit);
   if (!u) {
      return nullptr;
   }
   return u->stats.find(statId);
}

U64 SimChip::entryStat(int unit, bcm_field_entry_t entry, int statType) const {
   FieldEntry const* e = this->entry(unit, entry);
   U64 value = 0;
   if (e && e->statId) {
      statGet(unit, e->statId, statType, &value);
   }
   return value;
}

bool SimChip::tamperPolicer(int unit, bcm_policer_t id, bcm_policer_config_s const& config) {
   Unit* u = unitFind(unit);
   if (!u || !u->policers.count(id)) {
      return false;
   }
   u->policers[id].config = config;
   return true;
}

bool SimChip::tamperDetachPolicer(int unit, bcm_field_entry_t entry, int level) {
   Unit* u;
   FieldEntry* e;
   if (entryFind(unit, entry, u, e) != BCM_E_NONE || level < 0 || level > 1 ||
       (e->sw.policer[level] == 0 && e->hw.policer[level] == 0)) {
      return false;
   }
   // As if someone had detached it and re-installed the entry: the meter goes back too.
   entryChange(*u, *e, [e, level] {
      e->sw.policer[level] = 0;
      e->hw.policer[level] = 0;
   });
   if (e->metersHeld > 0) {
      --e->metersHeld;
      FieldGroup& g = groupMake(*u, e->group);
      --g.metersInUse;
   }
   return true;
}

bool SimChip::tamperDestroyPolicer(int unit, bcm_policer_t id) {
   Unit* u = unitFind(unit);
   return u && u->policers.erase(id) != 0;
}

PacketResult SimChip::sendToCpu(int unit, int port, int cpuQueue, int innerVlan) {
   return sendToCpu(unit, port, cpuQueue, innerVlan, Kiv::activityClock()->now());
}

PacketResult SimChip::sendToCpu(int unit, int port, int cpuQueue, int innerVlan, double time) {
   PacketResult result;
   Unit* u = unitFind(unit);
   if (!u) {
      return result;
   }
   PacketFields const fields{static_cast<U32>(port), static_cast<U32>(cpuQueue) & 0xFFu,
                             static_cast<U32>(innerVlan) & 0xFFFFu};
   // Groups without an installed entry have no index; the rest are met in group order.
   for (auto const& [group, index] : u->packetIndex) {
      FieldEntry* best = index.match(fields);
      if (!best) {
         continue;
      }
      PacketMatch m{best->id, group, false};
      auto pit = u->policers.find(best->hw.policer[0]);
      if (best->hw.policer[0] != 0 && pit != u->policers.end()) {
         Policer& pol = pit->second;
         m.red = !pol.bucket.take(time, pol.config.ckbits_sec(), pol.config.ckbits_burst());
      }
      if (FieldStat* stat = best->statId ? u->stats.find(best->statId) : nullptr) {
         if (U64* c = stat->count(bcmFieldStatPackets)) {
            ++*c;
         }
         if (U64* c = stat->count(bcmFieldStatRedPackets); m.red && c) {
            ++*c;
         }
      }
      if ((m.red && best->hw.hasAction(bcmFieldActionRpDrop)) ||
          best->hw.hasAction(bcmFieldActionDrop)) {
         result.dropped = true;
      }
      result.matches.push_back(m);
   }
   return result;
}

}  // namespace Shim
