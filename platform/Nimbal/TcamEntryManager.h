#pragma once

#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "Kiv/Allocator.h"
#include "Kiv/BlockString.h"
#include "Kiv/Entity.h"
#include "Nimbal/StatTypes.h"
#include "Nimbal/TcamRequestKey.h"
#include "Shim/BcmTypes.h"

namespace Nimbal {

class NimbalTcamGroupManager;

// Owns the field entries of one field-processor group of the chip. The group is created in a
// unit when the manager first needs it there.
class NimbalTcamEntryManager : public Kiv::Entity {
  public:
   explicit NimbalTcamEntryManager(U32 groupId) : groupId_(groupId) {
      hasNotificationActiveIs(true);
   }
   U32 groupId() const { return groupId_; }

   NimbalTcamGroupManager* groupManager() const { return groupManager_; }
   void groupManagerIs(NimbalTcamGroupManager* g) { groupManager_ = g; }

   // The priority that CoPP entries of this manager are given.
   int coppPriority() const { return coppPriority_; }
   void coppPriorityIs(int p) { coppPriority_ = p; }

   // Records the meter of an entry (attach) or clears it (0, false); hardware follows at the
   // next install.
   void attachPolicer(U32 unit, U32 entry, U32 policerId, bool attach);
   // The policer recorded for the entry, 0 when none.
   U32 policerForEntry(U32 unit, U32 entry) const;
   // Writes the entry to hardware. While the group manager's returnErrorOnInstall is set the
   // SDK's code comes back; otherwise a failing install is fatal.
   int installEntry(U32 unit, U32 entry);
   void setPriorityForEntry(U32 unit, U32 entry, int priority);
   // Frees the software entry and its counters and gives the entry back to the group's pool.
   virtual void destroyEntry(U32 unit, U32 entry);
   // Packets the entry matched in hardware, 0 for an entry this manager does not hold.
   U64 hitsForEntry(U32 unit, U32 entry) const;

   // Records the in-ports of an entry; an entry whose ports are permanent keeps its ports and
   // false comes back.
   bool addInPortsForEntry(U32 unit, U32 entry, Shim::bcm_pbmp_t const& pbm,
                           Shim::bcm_pbmp_t const& mask);
   void setTcamEntryBcmPbmpPermanent(U32 unit, U32 entry, bool permanent);
   bool tcamEntryBcmPbmpPermanent(U32 unit, U32 entry) const;
   // The in-ports recorded for the entry (empty when none).
   Shim::bcm_pbmp_t tcamEntryBcmPbmp(U32 unit, U32 entry) const;
   Shim::bcm_pbmp_t tcamEntryBcmPbmpMask(U32 unit, U32 entry) const;

   // Compacts the group's entries in the unit.
   void compressEntries(U32 unit);
   U32 compressions(U32 unit) const;

   // Entries this manager holds.
   bool entryHas(U32 unit, U32 entry) const { return entries_.count({unit, entry}) != 0; }
   std::size_t entryCount() const { return entries_.size(); }
   Kiv::String entryDescription(U32 unit, U32 entry) const;
   RequestKey entryRequestKey(U32 unit, U32 entry) const;

  protected:
   // Creates an entry in the chip (with the given id, or any) and its statistics, and records
   // it; 0 when the group has no entry left or the id is taken.
   U32 entryAllocate(U32 unit, std::optional<U32> entry, Kiv::String description,
                     RequestKey const& requestKey, StatTypes const& statTypes);

  private:
   struct EntryRecord {
      Kiv::BlockString description;
      RequestKey requestKey;
      int statId = 0;
      U32 policer = 0;
   };
   struct PortsRecord {
      Shim::bcm_pbmp_t pbm;
      Shim::bcm_pbmp_t mask;
      bool permanent = false;
   };
   using UnitEntry = std::pair<U32, U32>;
   struct UnitEntryHash {
      std::size_t operator()(UnitEntry const& k) const noexcept {
         return std::hash<U64>()((U64(k.first) << 32) | k.second);
      }
   };

   void groupEnsure(U32 unit);
   bool entryHeldInOtherUnit(U32 unit, U32 entry) const;

   U32 groupId_;
   NimbalTcamGroupManager* groupManager_ = nullptr;
   int coppPriority_ = 100;
   std::set<U32> groupUnits_;
   // Node tables from the framework's blocks: one record for every entry of a large switch.
   template <class Value>
   using Table = std::unordered_map<UnitEntry, Value, UnitEntryHash, std::equal_to<UnitEntry>,
                                    Kiv::NodeAllocator<std::pair<UnitEntry const, Value>>>;
   Table<EntryRecord> entries_;
   Table<PortsRecord> ports_;
   std::map<U32, U32> compressions_;
};

// Entries allocated on demand, anywhere in the group.
class NimbalUnboundedTcamEntryManager : public NimbalTcamEntryManager {
  public:
   using NimbalTcamEntryManager::NimbalTcamEntryManager;

   // A new entry counting the given statistics; 0 when the group's entries are all in use.
   U32 getEntryWithStats(U32 unit, Kiv::String description, RequestKey const& requestKey,
                         StatTypes const& statTypes) {
      return entryAllocate(unit, std::nullopt, std::move(description), requestKey, statTypes);
   }
};

// Entries at fixed indices from a base index.
class NimbalBoundedTcamEntryManager : public NimbalTcamEntryManager {
  public:
   NimbalBoundedTcamEntryManager(U32 groupId, U32 baseIndex)
       : NimbalTcamEntryManager(groupId), baseIndex_(baseIndex) {}
   U32 baseIndex() const { return baseIndex_; }
   void baseIndexIs(U32 v) { baseIndex_ = v; }

   // The priority of this manager's entries.
   int entryPriority() const { return entryPriority_; }
   void entryPriorityIs(int p) { entryPriority_ = p; }

   // Creates the entry with that id (at or above the base index), counting the given
   // statistics; 0 when the group's entries are all in use or the id is taken.
   U32 getEntryWithStats(U32 unit, U32 entry, Kiv::String description, RequestKey const& requestKey,
                         StatTypes const& statTypes);

  private:
   U32 baseIndex_;
   int entryPriority_ = 100;
};

}  // namespace Nimbal
