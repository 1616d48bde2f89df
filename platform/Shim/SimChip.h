#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/BlockArray.h"
#include "Shim/BcmTypes.h"
#include "Shim/FieldStat.h"
#include "Shim/Meter.h"
#include "Shim/PacketIndex.h"
#include "Shim/StatTable.h"

namespace Shim {

// The qualifiers of a field entry that hold one value and mask each.
enum class QualKind { InPort, CpuQueue, InnerVlanId, InterfaceClassPort };
inline constexpr std::size_t qualKinds = 4;

struct Qualifier {
   U32 data = 0;
   U32 mask = 0;
   bool operator==(Qualifier const&) const = default;
};

struct PortsQualifier {
   bcm_pbmp_t data;
   bcm_pbmp_t mask;
   bool operator==(PortsQualifier const&) const = default;
};

struct ActionParams {
   U32 param0 = 0;
   U32 param1 = 0;
   bool operator==(ActionParams const&) const = default;
};

// What an entry says. An entry has two: the one being edited and the one written to hardware
// by the last install. Kept small: a switch holds tens of thousands of them.
struct EntryProgram {
   std::array<bcm_policer_t, 2> policer{0, 0};  // by level; 0 is none
   int priority = 0;

  private:
   U8 qualsSet_ = 0;  // a bit per QualKind

  public:
   // Port bitmaps are rare and large: shared between the two programs, never changed in place.
   std::shared_ptr<PortsQualifier const> inPorts;

   std::optional<Qualifier> qualifier(QualKind k) const {
      auto const i = static_cast<std::size_t>(k);
      if (!(qualsSet_ & (1u << i))) {
         return std::nullopt;
      }
      return quals_[i];
   }
   void qualifierIs(QualKind k, Qualifier q);
   bool hasAction(int action) const { return this->action(action).has_value(); }
   std::optional<ActionParams> action(int action) const;
   // Adding an action again replaces its parameters.
   void actionIs(int action, ActionParams params);
   // Every qualifier agrees with the packet.
   bool matches(PacketFields const& p) const;

  private:
   std::array<Qualifier, qualKinds> quals_{};
   // By action, in one block of the framework's: a switch holds two programs per entry.
   Kiv::BlockArray<std::pair<int, ActionParams>> actions_;
};

struct FieldEntry {
   bcm_field_entry_t id = 0;
   bcm_field_group_t group = 0;
   EntryProgram sw;
   EntryProgram hw;
   bool installed = false;
   int metersHeld = 0;  // meters of the group's pool taken by the installed policers
   int statId = 0;      // 0 when no statistics are attached
   // The next installed entry of its packet index bucket (the chip's own bookkeeping).
   FieldEntry* nextInBucket = nullptr;
};

struct Policer {
   bcm_policer_t id = 0;
   bcm_policer_config_s config;
   TokenBucket bucket;
};

struct FieldGroup {
   bcm_field_group_t id = 0;
   U32 entryPoolSize = 0;
   U32 meterPoolSize = 0;
   U32 entriesInUse = 0;
   U32 metersInUse = 0;
   U32 compressions = 0;
};

// One entry that a packet matched: the winner of its group.
struct PacketMatch {
   bcm_field_entry_t entry = 0;
   bcm_field_group_t group = 0;
   bool red = false;
};

struct PacketResult {
   bool dropped = false;
   std::vector<PacketMatch> matches;  // in group order
};

// The simulated switch chip: per unit, field groups with their entry and meter pools, field
// entries, policers with their meters, statistics and port bitmaps. Operations that stand for
// SDK calls return SDK codes; the SDK object (Sdk.h) journals them.
class SimChip {
  public:
   static constexpr U32 defaultEntryPoolSize = 4096;
   static constexpr U32 defaultMeterPoolSize = 4096;
   // Entries created without an id get the lowest free id from here, away from fixed indices.
   static constexpr int firstAutoEntryId = 0x10000;

   SimChip() { reset(); }
   // Back to a chip with unit 0 only, empty.
   void reset();

   // Units and their port bitmaps; unknown units make SDK calls fail with BCM_E_UNIT.
   void unitIs(int unit);
   bool unitHas(int unit) const { return units_.count(unit) != 0; }
   std::vector<int> units() const;
   // The unit's ports; the all-ports bitmap follows it unless set on its own.
   void portBitmapIs(int unit, bcm_pbmp_t const& pbm);
   void allPortsBitmapIs(int unit, bcm_pbmp_t const& pbm);
   bcm_pbmp_t portBitmap(int unit) const;
   bcm_pbmp_t allPortsBitmap(int unit) const;

   // Groups and their pools. Setting a size creates the group; shrinking takes nothing back.
   void groupIs(int unit, bcm_field_group_t group);
   bool groupHas(int unit, bcm_field_group_t group) const;
   void entryPoolSizeIs(int unit, bcm_field_group_t group, U32 size);
   void meterPoolSizeIs(int unit, bcm_field_group_t group, U32 size);
   FieldGroup const* group(int unit, bcm_field_group_t group) const;
   U32 entriesInUse(int unit, bcm_field_group_t group) const;
   U32 metersInUse(int unit, bcm_field_group_t group) const;

   // Read-back.
   FieldEntry const* entry(int unit, bcm_field_entry_t entry) const;
   std::vector<bcm_field_entry_t> entries(int unit) const;
   std::vector<bcm_field_entry_t> entries(int unit, bcm_field_group_t group) const;
   Policer const* policer(int unit, bcm_policer_t id) const;
   std::size_t policers(int unit) const;
   FieldStat const* stat(int unit, int statId) const;
   // Statistics that exist in the unit, attached or not.
   std::size_t stats(int unit) const;
   // A statistic of the entry's attached counters, 0 when it has none.
   U64 entryStat(int unit, bcm_field_entry_t entry, int statType) const;

   // Changes behind the agent's back, for verification tests. False when there is no such thing.
   bool tamperPolicer(int unit, bcm_policer_t id, bcm_policer_config_s const& config);
   bool tamperDetachPolicer(int unit, bcm_field_entry_t entry, int level = 0);
   bool tamperDestroyPolicer(int unit, bcm_policer_t id);

   // A packet to the CPU from (unit, port) for a CPU queue, with its inner VLAN id, at `time`
   // seconds of virtual time; the other overload uses the activity clock.
   PacketResult sendToCpu(int unit, int port, int cpuQueue, int innerVlan, double time);
   PacketResult sendToCpu(int unit, int port, int cpuQueue, int innerVlan);

   // The operations behind the SDK calls.
   int groupCreate(int unit, bcm_field_group_t group);
   int groupCompress(int unit, bcm_field_group_t group);
   int entryCreate(int unit, bcm_field_group_t group, bcm_field_entry_t* entry);
   int entryCreateId(int unit, bcm_field_group_t group, bcm_field_entry_t entry);
   int entryDestroy(int unit, bcm_field_entry_t entry);
   int entryInstall(int unit, bcm_field_entry_t entry);
   int entryRemove(int unit, bcm_field_entry_t entry);
   int entryPrioSet(int unit, bcm_field_entry_t entry, int priority);
   int qualify(int unit, bcm_field_entry_t entry, QualKind kind, U32 data, U32 mask);
   int qualifyInPorts(int unit, bcm_field_entry_t entry, bcm_pbmp_t const& data,
                      bcm_pbmp_t const& mask);
   int actionAdd(int unit, bcm_field_entry_t entry, int action, U32 param0, U32 param1);
   int actionGet(int unit, bcm_field_entry_t entry, int action, U32* param0, U32* param1) const;
   int policerAttach(int unit, bcm_field_entry_t entry, int level, bcm_policer_t policer);
   int policerDetach(int unit, bcm_field_entry_t entry, int level);
   int entryPolicerGet(int unit, bcm_field_entry_t entry, int level, bcm_policer_t* policer) const;
   int policerCreate(int unit, bcm_policer_config_s const* config, bcm_policer_t* id);
   int policerDestroy(int unit, bcm_policer_t id);
   int policerGet(int unit, bcm_policer_t id, bcm_policer_config_s* config) const;
   int statCreate(int unit, bcm_field_group_t group, int nstat, int const* types, int* statId);
   int statAttach(int unit, bcm_field_entry_t entry, int statId);
   int statGet(int unit, int statId, int statType, U64* value) const;
   int statDestroy(int unit, int statId);

  private:
   template <class Key, class Value>
   using Table = std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<Key>,
                                    Kiv::NodeAllocator<std::pair<Key const, Value>>>;
   struct Unit {
      bcm_pbmp_t ports;
      std::optional<bcm_pbmp_t> allPorts;
      std::map<bcm_field_group_t, FieldGroup> groups;
      // Node-based: entries are found by id and stay where they are for the packet index.
      // Nodes come from the framework's blocks: a chip holds tens of thousands of each.
      Table<bcm_field_entry_t, FieldEntry> entries;
      Table<bcm_policer_t, Policer> policers;
      StatTable stats;
      bcm_policer_t nextPolicerId = 1;
      // Automatic entry ids: every id from nextAutoEntryId up is free; below it, freeAutoEntryIds.
      bcm_field_entry_t nextAutoEntryId = firstAutoEntryId;
      std::set<bcm_field_entry_t> freeAutoEntryIds;
      int nextStatId = 1;
      // Installed entries by group, for packets.
      std::map<bcm_field_group_t, PacketIndex> packetIndex;
      // How many program slots (edited or installed) name each policer.
      Table<bcm_policer_t, int> policerRefs;
   };

   Unit* unitFind(int unit);
   Unit const* unitFind(int unit) const;
   int entryFind(int unit, bcm_field_entry_t entry, Unit*& u, FieldEntry*& e);
   int entryFind(int unit, bcm_field_entry_t entry, Unit const*& u, FieldEntry const*& e) const;
   FieldGroup& groupMake(Unit& u, bcm_field_group_t group);
   void metersRelease(Unit& u, FieldEntry& e);
   bool policerInUse(Unit const& u, bcm_policer_t id) const;
   int entryAdd(Unit& u, bcm_field_group_t group, bcm_field_entry_t entry);
   // Every change to what an entry matches or which policers it names goes through here, so
   // that the packet index and the policer references follow it.
   template <class Change>
   void entryChange(Unit& u, FieldEntry& e, Change&& change) {
      entryForget(u, e);
      change();
      entryNote(u, e);
   }
   void entryForget(Unit& u, FieldEntry& e);
   void entryNote(Unit& u, FieldEntry& e);

   std::map<int, Unit> units_;
};

}  // namespace Shim
