#pragma once

#include <unordered_map>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/Types.h"

namespace Shim {

struct FieldEntry;

// What a packet to the CPU carries that entries qualify on.
struct PacketFields {
   U32 port = 0;
   U32 cpuQueue = 0;   // 8 bits
   U32 innerVlan = 0;  // 16 bits
};

// The installed entries of one field group, found by what they qualify on. Entries are grouped
// by their masks on (source port, CPU queue, inner VLAN); within a group of masks they are hashed
// by their masked values. A packet is looked up once per distinct set of masks, which a group
// has few of, so matching does not grow with the number of entries. Qualifiers outside the three
// (port bitmaps, interface class) are checked on the candidates found.
class PacketIndex {
  public:
   // `e` is installed; its hardware program is what is indexed. Remove it before that changes.
   void add(FieldEntry* e);
   void remove(FieldEntry const* e);
   bool empty() const { return shapes_.empty(); }
   std::size_t size() const;

   // The entry a packet hits: the highest priority match, the lowest id among equals.
   FieldEntry* match(PacketFields const& p) const;

  private:
   struct Triple {
      U32 port = 0;
      U32 cpuQueue = 0;
      U32 innerVlan = 0;
      bool operator==(Triple const&) const = default;
   };
   struct TripleHash {
      std::size_t operator()(Triple const& t) const noexcept {
         U64 h = (U64(t.port) << 32) ^ (U64(t.cpuQueue) << 16) ^ t.innerVlan;
         h ^= h >> 29;
         h *= 0xbf58476d1ce4e5b9ULL;
         return static_cast<std::size_t>(h ^ (h >> 32));
      }
   };
   // The entries with one set of masks; each bucket a chain through the entries, in match
   // order. Most buckets hold one entry.
   struct Shape {
      Triple masks;
      std::unordered_map<Triple, FieldEntry*, TripleHash, std::equal_to<Triple>,
                         Kiv::NodeAllocator<std::pair<Triple const, FieldEntry*>>>
          buckets;
      std::size_t entries = 0;
   };

   static Triple masksOf(FieldEntry const* e);
   static Triple masked(Triple const& values, Triple const& masks);
   static Triple valuesOf(FieldEntry const* e);
   // True when `a` wins over `b` for a packet that both match.
   static bool before(FieldEntry const* a, FieldEntry const* b);

   std::vector<Shape> shapes_;
};

}  // namespace Shim
