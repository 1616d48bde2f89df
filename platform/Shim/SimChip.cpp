#include "Shim/SimChip.h"

#include <algorithm>

namespace Shim {

void EntryProgram::qualifierIs(QualKind k, Qualifier q) {
   auto const i = static_cast<std::size_t>(k);
   quals_[i] = q;
   qualsSet_ = static_cast<U8>(qualsSet_ | (1u << i));
}

namespace {

using Action = std::pair<int, ActionParams>;

Action* actionsCopy(Action const* from, std::size_t n) {
   if (n == 0) {
      return nullptr;
   }
   auto* to = static_cast<Action*>(Kiv::blockAllocate(n * sizeof(Action)));
   std::uninitialized_copy(from, from + n, to);
   return to;
}

}  // namespace

EntryProgram::EntryProgram(EntryProgram const& o)
    : policer(o.policer),
      priority(o.priority),
      qualsSet_(o.qualsSet_),
      actionCount_(o.actionCount_),
      inPorts(o.inPorts),
      quals_(o.quals_),
      actions_(actionsCopy(o.actions_, o.actionCount_)) {}

EntryProgram& EntryProgram::operator=(EntryProgram const& o) {
   if (this != &o) {
      EntryProgram copy(o);
      std::swap(policer, copy.policer);
      std::swap(priority, copy.priority);
      std::swap(qualsSet_, copy.qualsSet_);
      std::swap(actionCount_, copy.actionCount_);
      std::swap(inPorts, copy.inPorts);
      std::swap(quals_, copy.quals_);
      std::swap(actions_, copy.actions_);
   }
   return *this;
}

EntryProgram::~EntryProgram() {
   if (actions_) {
      Kiv::blockFree(actions_, actionCount_ * sizeof(Action));
   }
}

std::optional<ActionParams> EntryProgram::action(int action) const {
   Action const* it = std::lower_bound(static_cast<Action const*>(actions_), actionsEnd(), action,
                                       [](auto const& a, int id) { return a.first < id; });
   if (it == actionsEnd() || it->first != action) {
      return std::nullopt;
   }
   return it->second;
}

void EntryProgram::actionIs(int action, ActionParams params) {
   Action* it = std::lower_bound(actions_, actions_ + actionCount_, action,
                                 [](auto const& a, int id) { return a.first < id; });
   if (it != actionsEnd() && it->first == action) {
      it->second = params;
      return;
   }
   // Actions are few and set once: the block is made again one larger.
   std::size_t const at = static_cast<std::size_t>(it - actions_);
   std::size_t const n = actionCount_;
   auto* grown = static_cast<Action*>(Kiv::blockAllocate((n + 1) * sizeof(Action)));
   std::uninitialized_copy(actions_, actions_ + at, grown);
   grown[at] = {action, params};
   std::uninitialized_copy(actions_ + at, actions_ + n, grown + at + 1);
   if (actions_) {
      Kiv::blockFree(actions_, n * sizeof(Action));
   }
   actions_ = grown;
   actionCount_ = static_cast<U16>(n + 1);
}

bool EntryProgram::matches(PacketFields const& p) const {
   for (std::size_t i = 0; i < qualKinds; ++i) {
      if (!(qualsSet_ & (1u << i))) {
         continue;
      }
      U32 value = 0;
      switch (static_cast<QualKind>(i)) {
         case QualKind::InPort:
            value = p.port;
            break;
         case QualKind::CpuQueue:
            value = p.cpuQueue;
            break;
         case QualKind::InnerVlanId:
            value = p.innerVlan;
            break;
         case QualKind::InterfaceClassPort:
            // Every packet to the CPU carries the CPU port's class bit.
            value = 2;
            break;
      }
      Qualifier const& q = quals_[i];
      if ((value & q.mask) != (q.data & q.mask)) {
         return false;
      }
   }
   int const port = static_cast<int>(p.port);
   if (inPorts && inPorts->mask.portMember(port) && !inPorts->data.portMember(port)) {
      return false;
   }
   return true;
}

void FieldStat::typesIs(int n, int const* types) {
   more_.reset(n > inlineCounters ? new Counter[static_cast<std::size_t>(n - inlineCounters)]
                                  : nullptr);
   types_ = n;
   for (int i = 0; i < n; ++i) {
      *counter(i) = {types[i], 0};
   }
}

std::vector<int> FieldStat::types() const {
   std::vector<int> out;
   for (int i = 0; i < types_; ++i) {
      out.push_back(const_cast<FieldStat*>(this)->counter(i)->type);
   }
   return out;
}

U64* FieldStat::count(int type) {
   for (int i = 0; i < types_; ++i) {
      Counter* c = counter(i);
      if (c->type == type) {
         return &c->count;
      }
   }
   return nullptr;
}

U64 const* FieldStat::count(int type) const {
   return const_cast<FieldStat*>(this)->count(type);
}

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
      auto sit = u->stats.find(e->statId);
      if (sit != u->stats.end()) {
         sit->second.entry = 0;
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
