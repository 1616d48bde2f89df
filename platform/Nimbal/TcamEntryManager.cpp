#include "Nimbal/TcamEntryManager.h"

#include "Kiv/Assert.h"
#include "Nimbal/TcamGroupManager.h"
#include "Shim/Sdk.h"

namespace Nimbal {

void NimbalTcamEntryManager::groupEnsure(U32 unit) {
   if (groupUnits_.count(unit)) {
      return;
   }
   int rc = ::Shim::sdk_->bcm_field_group_create_id(unit, groupId_);
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE || rc == ::Shim::BCM_E_EXISTS);
   groupUnits_.insert(unit);
}

U32 NimbalTcamEntryManager::entryAllocate(U32 unit, std::optional<U32> entry,
                                          Kiv::String description, RequestKey const& requestKey,
                                          StatTypes const& statTypes) {
   groupEnsure(unit);
   Shim::bcm_field_entry_t id = 0;
   int rc;
   if (entry) {
      id = static_cast<Shim::bcm_field_entry_t>(*entry);
      rc = ::Shim::sdk_->bcm_field_entry_create_id(unit, groupId_, id);
   } else {
      rc = ::Shim::sdk_->bcm_field_entry_create(unit, groupId_, &id);
   }
   if (rc == ::Shim::BCM_E_RESOURCE || rc == ::Shim::BCM_E_EXISTS) {
      return 0;
   }
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE);

   EntryRecord record;
   record.description = Kiv::BlockString(description);
   record.requestKey = requestKey;
   std::vector<Shim::bcm_field_stat_t> types = statTypes.list();
   if (!types.empty()) {
      rc = ::Shim::sdk_->bcm_field_stat_create(unit, groupId_, static_cast<int>(types.size()),
                                               types.data(), &record.statId);
      KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
      rc = ::Shim::sdk_->bcm_field_entry_stat_attach(unit, id, record.statId);
      KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   }
   U32 allocated = static_cast<U32>(id);
   entries_[{unit, allocated}] = std::move(record);
   if (groupManager_) {
      groupManager_->tcamEntryMgrIs(allocated, Kiv::Ptr<NimbalTcamEntryManager>(this));
   }
   return allocated;
}

bool NimbalTcamEntryManager::entryHeldInOtherUnit(U32 unit, U32 entry) const {
   // A chip has few units and a group many entries: ask each unit.
   for (U32 other : groupUnits_) {
      if (other != unit && entries_.count({other, entry})) {
         return true;
      }
   }
   return false;
}

void NimbalTcamEntryManager::destroyEntry(U32 unit, U32 entry) {
   auto it = entries_.find({unit, entry});
   KIV_ASSERT_MSG(it != entries_.end(), "destroyEntry of an entry that the manager does not hold");
   int rc = ::Shim::sdk_->bcm_field_entry_destroy(unit, entry);
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   if (it->second.statId) {
      rc = ::Shim::sdk_->bcm_field_stat_destroy(unit, it->second.statId);
      KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   }
   entries_.erase(it);
   ports_.erase({unit, entry});
   if (groupManager_ && !entryHeldInOtherUnit(unit, entry) &&
       groupManager_->tcamEntryMgr(entry).ptr() == this) {
      groupManager_->tcamEntryMgrDel(entry);
   }
}

void NimbalTcamEntryManager::attachPolicer(U32 unit, U32 entry, U32 policerId, bool attach) {
   auto it = entries_.find({unit, entry});
   U32 current = it == entries_.end() ? 0 : it->second.policer;
   if (!attach || current != 0) {
      int rc = ::Shim::sdk_->bcm_field_entry_policer_detach(unit, entry, 0);
      // Clearing an entry that has no meter is not an error.
      KIV_ASSERT(rc == ::Shim::BCM_E_NONE || rc == ::Shim::BCM_E_NOT_FOUND);
   }
   if (attach) {
      int rc = ::Shim::sdk_->bcm_field_entry_policer_attach(unit, entry, 0, policerId);
      KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   }
   if (it != entries_.end()) {
      it->second.policer = attach ? policerId : 0;
   }
}

U32 NimbalTcamEntryManager::policerForEntry(U32 unit, U32 entry) const {
   auto it = entries_.find({unit, entry});
   return it == entries_.end() ? 0 : it->second.policer;
}

int NimbalTcamEntryManager::installEntry(U32 unit, U32 entry) {
   int rc = ::Shim::sdk_->bcm_field_entry_install(unit, entry);
   if (groupManager_ && groupManager_->returnErrorOnInstall()) {
      return rc;
   }
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   return rc;
}

void NimbalTcamEntryManager::setPriorityForEntry(U32 unit, U32 entry, int priority) {
   int rc = ::Shim::sdk_->bcm_field_entry_prio_set(unit, entry, priority);
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
}

U64 NimbalTcamEntryManager::hitsForEntry(U32 unit, U32 entry) const {
   auto it = entries_.find({unit, entry});
   if (it == entries_.end() || it->second.statId == 0) {
      return 0;
   }
   U64 hits = 0;
   int rc =
       ::Shim::sdk_->bcm_field_stat_get(unit, it->second.statId, Shim::bcmFieldStatPackets, &hits);
   return rc == ::Shim::BCM_E_NONE ? hits : 0;
}

bool NimbalTcamEntryManager::addInPortsForEntry(U32 unit, U32 entry, Shim::bcm_pbmp_t const& pbm,
                                                Shim::bcm_pbmp_t const& mask) {
   PortsRecord& r = ports_[{unit, entry}];
   if (r.permanent) {
      return false;
   }
   r.pbm = pbm;
   r.mask = mask;
   return true;
}

void NimbalTcamEntryManager::setTcamEntryBcmPbmpPermanent(U32 unit, U32 entry, bool permanent) {
   ports_[{unit, entry}].permanent = permanent;
}

bool NimbalTcamEntryManager::tcamEntryBcmPbmpPermanent(U32 unit, U32 entry) const {
   auto it = ports_.find({unit, entry});
   return it != ports_.end() && it->second.permanent;
}

Shim::bcm_pbmp_t NimbalTcamEntryManager::tcamEntryBcmPbmp(U32 unit, U32 entry) const {
   auto it = ports_.find({unit, entry});
   return it == ports_.end() ? Shim::bcm_pbmp_t() : it->second.pbm;
}

Shim::bcm_pbmp_t NimbalTcamEntryManager::tcamEntryBcmPbmpMask(U32 unit, U32 entry) const {
   auto it = ports_.find({unit, entry});
   return it == ports_.end() ? Shim::bcm_pbmp_t() : it->second.mask;
}

void NimbalTcamEntryManager::compressEntries(U32 unit) {
   groupEnsure(unit);
   int rc = ::Shim::sdk_->bcm_field_group_compress(unit, groupId_);
   KIV_ASSERT(rc == ::Shim::BCM_E_NONE);
   ++compressions_[unit];
}

U32 NimbalTcamEntryManager::compressions(U32 unit) const {
   auto it = compressions_.find(unit);
   return it == compressions_.end() ? 0 : it->second;
}

Kiv::String NimbalTcamEntryManager::entryDescription(U32 unit, U32 entry) const {
   auto it = entries_.find({unit, entry});
   return it == entries_.end() ? Kiv::String() : it->second.description.string();
}

RequestKey NimbalTcamEntryManager::entryRequestKey(U32 unit, U32 entry) const {
   auto it = entries_.find({unit, entry});
   return it == entries_.end() ? RequestKey() : it->second.requestKey;
}

U32 NimbalBoundedTcamEntryManager::getEntryWithStats(U32 unit, U32 entry, Kiv::String description,
                                                     RequestKey const& requestKey,
                                                     StatTypes const& statTypes) {
   KIV_ASSERT(entry != 0 && entry >= baseIndex_);
   return entryAllocate(unit, entry, std::move(description), requestKey, statTypes);
}

}  // namespace Nimbal
