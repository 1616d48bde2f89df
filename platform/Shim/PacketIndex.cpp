#include "Shim/PacketIndex.h"

#include <algorithm>

#include "Shim/SimChip.h"

namespace Shim {

namespace {

U32 maskOf(EntryProgram const& p, QualKind k) {
   std::optional<Qualifier> const q = p.qualifier(k);
   return q ? q->mask : 0;
}

U32 dataOf(EntryProgram const& p, QualKind k) {
   std::optional<Qualifier> const q = p.qualifier(k);
   return q ? q->data & q->mask : 0;
}

}  // namespace

PacketIndex::Triple PacketIndex::masksOf(FieldEntry const* e) {
   return {maskOf(e->hw, QualKind::InPort), maskOf(e->hw, QualKind::CpuQueue),
           maskOf(e->hw, QualKind::InnerVlanId)};
}

PacketIndex::Triple PacketIndex::valuesOf(FieldEntry const* e) {
   return {dataOf(e->hw, QualKind::InPort), dataOf(e->hw, QualKind::CpuQueue),
           dataOf(e->hw, QualKind::InnerVlanId)};
}

PacketIndex::Triple PacketIndex::masked(Triple const& values, Triple const& masks) {
   return {values.port & masks.port, values.cpuQueue & masks.cpuQueue,
           values.innerVlan & masks.innerVlan};
}

bool PacketIndex::before(FieldEntry const* a, FieldEntry const* b) {
   if (a->hw.priority != b->hw.priority) {
      return a->hw.priority > b->hw.priority;
   }
   return a->id < b->id;
}

void PacketIndex::add(FieldEntry* e) {
   Triple const masks = masksOf(e);
   auto shape = std::find_if(shapes_.begin(), shapes_.end(),
                             [&](Shape const& s) { return s.masks == masks; });
   if (shape == shapes_.end()) {
      shape = shapes_.insert(shapes_.end(), Shape{masks, {}, 0});
   }
   FieldEntry** link = &shape->buckets[valuesOf(e)];
   while (*link && before(*link, e)) {
      link = &(*link)->nextInBucket;
   }
   e->nextInBucket = *link;
   *link = e;
   ++shape->entries;
}

void PacketIndex::remove(FieldEntry const* e) {
   Triple const masks = masksOf(e);
   auto shape = std::find_if(shapes_.begin(), shapes_.end(),
                             [&](Shape const& s) { return s.masks == masks; });
   if (shape == shapes_.end()) {
      return;
   }
   auto bucket = shape->buckets.find(valuesOf(e));
   if (bucket == shape->buckets.end()) {
      return;
   }
   FieldEntry** link = &bucket->second;
   while (*link && *link != e) {
      link = &(*link)->nextInBucket;
   }
   if (!*link) {
      return;
   }
   *link = e->nextInBucket;
   if (!bucket->second) {
      shape->buckets.erase(bucket);
   }
   if (--shape->entries == 0) {
      shapes_.erase(shape);
   }
}

std::size_t PacketIndex::size() const {
   std::size_t n = 0;
   for (Shape const& s : shapes_) {
      n += s.entries;
   }
   return n;
}

FieldEntry* PacketIndex::match(PacketFields const& p) const {
   Triple const values{p.port, p.cpuQueue, p.innerVlan};
   FieldEntry* best = nullptr;
   for (Shape const& shape : shapes_) {
      auto bucket = shape.buckets.find(masked(values, shape.masks));
      if (bucket == shape.buckets.end()) {
         continue;
      }
      // A bucket is in match order: the first entry that also passes the other qualifiers is
      // the best of its shape.
      for (FieldEntry* e = bucket->second; e; e = e->nextInBucket) {
         if (best && !before(e, best)) {
            break;
         }
         if (e->hw.matches(p)) {
            best = e;
            break;
         }
      }
   }
   return best;
}

}  // namespace Shim
