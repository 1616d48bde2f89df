#include "Shim/SimChip.h"

#include <algorithm>

namespace Shim {

void SimChip::reset() {
   units_.clear();
   unitIs(0);
}

void SimChip::unitIs(int unit) {
   units_.try_emplace(unit);
}

std::vector<int> SimChip::units() const {
   std::vector<int> out;
   for (auto const& kv : units_) {
      out.push_back(kv.first);
   }
   return out;
}

SimChip::Unit* SimChip::unitFind(int unit) {
   auto it = units_.find(unit);
   return it == units_.end() ? nullptr : &it->second;
}

SimChip::Unit const* SimChip::unitFind(int unit) const {
   auto it = units_.find(unit);
   return it == units_.end() ? nullptr : &it->second;
}

int SimChip::entryFind(int unit, bcm_field_entry_t entry, Unit*& u, FieldEntry*& e) {
   u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   auto it = u->entries.find(entry);
   if (it == u->entries.end()) {
      return BCM_E_NOT_FOUND;
   }
   e = &it->second;
   return BCM_E_NONE;
}

int SimChip::entryFind(int unit, bcm_field_entry_t entry, Unit const*& u,
                       FieldEntry const*& e) const {
   u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   auto it = u->entries.find(entry);
   if (it == u->entries.end()) {
      return BCM_E_NOT_FOUND;
   }
   e = &it->second;
   return BCM_E_NONE;
}

void SimChip::portBitmapIs(int unit, bcm_pbmp_t const& pbm) {
   unitIs(unit);
   units_[unit].ports = pbm;
}

void SimChip::allPortsBitmapIs(int unit, bcm_pbmp_t const& pbm) {
   unitIs(unit);
   units_[unit].allPorts = pbm;
}

bcm_pbmp_t SimChip::portBitmap(int unit) const {
   Unit const* u = unitFind(unit);
   return u ? u->ports : bcm_pbmp_t();
}

bcm_pbmp_t SimChip::allPortsBitmap(int unit) const {
   Unit const* u = unitFind(unit);
   if (!u) {
      return bcm_pbmp_t();
   }
   return u->allPorts ? *u->allPorts : u->ports;
}

FieldGroup& SimChip::groupMake(Unit& u, bcm_field_group_t group) {
   auto [it, created] = u.groups.try_emplace(group);
   if (created) {
      it->second.id = group;
      it->second.entryPoolSize = defaultEntryPoolSize;
      it->second.meterPoolSize = defaultMeterPoolSize;
   }
   return it->second;
}

void SimChip::groupIs(int unit, bcm_field_group_t group) {
   unitIs(unit);
   groupMake(units_[unit], group);
}

bool SimChip::groupHas(int unit, bcm_field_group_t group) const {
   return this->group(unit, group) != nullptr;
}

void SimChip::entryPoolSizeIs(int unit, bcm_field_group_t group, U32 size) {
   unitIs(unit);
   groupMake(units_[unit], group).entryPoolSize = size;
}

void SimChip::meterPoolSizeIs(int unit, bcm_field_group_t group, U32 size) {
   unitIs(unit);
   groupMake(units_[unit], group).meterPoolSize = size;
}

FieldGroup const* SimChip::group(int unit, bcm_field_group_t group) const {
   Unit const* u = unitFind(unit);
   if (!u) {
      return nullptr;
   }
   auto it = u->groups.find(group);
   return it == u->groups.end() ? nullptr : &it->second;
}

U32 SimChip::entriesInUse(int unit, bcm_field_group_t g) const {
   FieldGroup const* grp = group(unit, g);
   return grp ? grp->entriesInUse : 0;
}

U32 SimChip::metersInUse(int unit, bcm_field_group_t g) const {
   FieldGroup const* grp = group(unit, g);
   return grp ? grp->metersInUse : 0;
}

int SimChip::groupCreate(int unit, bcm_field_group_t group) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (u->groups.count(group)) {
      return BCM_E_EXISTS;
   }
   groupMake(*u, group);
   return BCM_E_NONE;
}

int SimChip::groupCompress(int unit, bcm_field_group_t group) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   auto it = u->groups.find(group);
   if (it == u->groups.end()) {
      return BCM_E_NOT_FOUND;
   }
   ++it->second.compressions;
   return BCM_E_NONE;
}

int SimChip::entryAdd(Unit& u, bcm_field_group_t group, bcm_field_entry_t entry) {
   auto git = u.groups.find(group);
   if (git == u.groups.end()) {
      return BCM_E_NOT_FOUND;
   }
   if (git->second.entriesInUse >= git->second.entryPoolSize) {
      return BCM_E_RESOURCE;
   }
   ++git->second.entriesInUse;
   FieldEntry& e = u.entries[entry];
   e.id = entry;
   e.group = group;
   return BCM_E_NONE;
}

int SimChip::entryCreate(int unit, bcm_field_group_t group, bcm_field_entry_t* entry) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (!entry) {
      return BCM_E_PARAM;
   }
   bool const reused = !u->freeAutoEntryIds.empty();
   bcm_field_entry_t id = reused ? *u->freeAutoEntryIds.begin() : u->nextAutoEntryId;
   int rc = entryAdd(*u, group, id);
   if (rc == BCM_E_NONE) {
      *entry = id;
      if (reused) {
         u->freeAutoEntryIds.erase(u->freeAutoEntryIds.begin());
      } else {
         // Ids above may have been taken by number.
         do {
            ++u->nextAutoEntryId;
         } while (u->entries.count(u->nextAutoEntryId));
      }
   }
   return rc;
}

int SimChip::entryCreateId(int unit, bcm_field_group_t group, bcm_field_entry_t entry) {
   Unit* u = unitFind(unit);
   if (!u) {
      return BCM_E_UNIT;
   }
   if (entry <= 0) {
      return BCM_E_PARAM;
   }
   if (u->entries.count(entry)) {
      return BCM_E_EXISTS;
   }
   int rc = entryAdd(*u, group, entry);
   if (rc == BCM_E_NONE) {
      u->freeAutoEntryIds.erase(entry);
      while (u->entries.count(u->nextAutoEntryId)) {
         ++u->nextAutoEntryId;
      }
   }
   return rc;
}

void SimChip::metersRelease(Unit& u, FieldEntry& e) {
   auto git = u.groups.find(e.group);
   if (git != u.groups.end()) {
      git->second.metersInUse -= static_cast<U32>(e.metersHeld);
   }
   e.metersHeld = 0;
}

void SimChip::entryForget(Unit& u, FieldEntry& e) {
   if (e.installed) {
      auto it = u.packetIndex.find(e.group);
      if (it != u.packetIndex.end()) {
         it->second.remove(&e);
         if (it->second.empty()) {
            u.packetIndex.erase(it);
         }
      }
   }
   for (EntryProgram const* p : {&e.sw, &e.hw}) {
      for (bcm_policer_t id : p->policer) {
         if (id == 0) {
            continue;
         }
         auto it = u.policerRefs.find(id);
         if (it != u.policerRefs.end() && --it->second == 0) {
            u.policerRefs.erase(it);
         }
      }
   }
}

void SimChip::entryNote(Unit& u, FieldEntry& e) {
   if (e.installed) {
      u.packetIndex[e.group].add(&e);
   }
   for (EntryProgram const* p : {&e.sw, &e.hw}) {
      for (bcm_policer_t id : p->policer) {
         if (id != 0) {
            ++u.policerRefs[id];
         }
      }
   }
}

int SimChip::entryDestroy(int unit, bcm_field_entry_t entry) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   entryForget(*u, *e);
   metersRelease(*u, *e);
   if (e->statId) {
      if (FieldStat* stat = u->stats.find(e->statId)) {
         stat->entry = 0;
      }
   }
   auto git = u->groups.find(e->group);
   if (git != u->groups.end()) {
      --git->second.entriesInUse;
   }
   u->entries.erase(entry);
   if (entry >= firstAutoEntryId && entry < u->nextAutoEntryId) {
      u->freeAutoEntryIds.insert(entry);
   }
   return BCM_E_NONE;
}

int SimChip::entryInstall(int unit, bcm_field_entry_t entry) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   FieldGroup& g = groupMake(*u, e->group);
   int need = static_cast<int>(std::count_if(e->sw.policer.begin(), e->sw.policer.end(),
                                             [](bcm_policer_t p) { return p != 0; }));
   if (need > e->metersHeld &&
       g.metersInUse + static_cast<U32>(need - e->metersHeld) > g.meterPoolSize) {
      return BCM_E_RESOURCE;
   }
   g.metersInUse = g.metersInUse + static_cast<U32>(need) - static_cast<U32>(e->metersHeld);
   e->metersHeld = need;
   entryChange(*u, *e, [e] {
      e->hw = e->sw;
      e->installed = true;
   });
   return BCM_E_NONE;
}

int SimChip::entryRemove(int unit, bcm_field_entry_t entry) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   // Removing an entry that is not in hardware leaves nothing to do.
   metersRelease(*u, *e);
   entryChange(*u, *e, [e] {
      e->hw = EntryProgram();
      e->installed = false;
   });
   return BCM_E_NONE;
}

int SimChip::entryPrioSet(int unit, bcm_field_entry_t entry, int priority) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   // Moving an installed entry moves it in hardware at once.
   entryChange(*u, *e, [e, priority] {
      e->sw.priority = priority;
      if (e->installed) {
         e->hw.priority = priority;
      }
   });
   return BCM_E_NONE;
}

int SimChip::qualify(int unit, bcm_field_entry_t entry, QualKind kind, U32 data, U32 mask) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   e->sw.qualifierIs(kind, Qualifier{data, mask});
   return BCM_E_NONE;
}

int SimChip::qualifyInPorts(int unit, bcm_field_entry_t entry, bcm_pbmp_t const& data,
                            bcm_pbmp_t const& mask) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   e->sw.inPorts = std::make_shared<PortsQualifier const>(PortsQualifier{data, mask});
   return BCM_E_NONE;
}

int SimChip::actionAdd(int unit, bcm_field_entry_t entry, int action, U32 param0, U32 param1) {
   Unit* u;
   FieldEntry* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   e->sw.actionIs(action, ActionParams{param0, param1});
   return BCM_E_NONE;
}

int SimChip::actionGet(int unit, bcm_field_entry_t entry, int action, U32* param0,
                       U32* param1) const {
   Unit const* u;
   FieldEntry const* e;
   if (int rc = entryFind(unit, entry, u, e); rc != BCM_E_NONE) {
      return rc;
   }
   if (!param0 || !param1) {
      return BCM_E_PARAM;
   }
   std::optional<ActionParams> const params = e->sw.action(action);
   if (!params) {
      return BCM_E_NOT_FOUND;
   }
   *param0 = params->param0;
   *param1 = params->param1;
   return BCM_E_NONE;
}

}  // namespace Shim
