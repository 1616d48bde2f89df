#pragma once

#include <array>
#include <memory>
#include <vector>

#include "Kiv/Types.h"
#include "Shim/BcmTypes.h"

namespace Shim {

// A field statistic: the counts of the types it was made with, and the entry it is attached to.
struct FieldStat {
   int id = 0;
   bcm_field_group_t group = 0;
   bcm_field_entry_t entry = 0;

   // The types counted, in the order given, each starting at 0.
   void typesIs(int n, int const* types);
   std::vector<int> types() const;
   U64* count(int type);
   U64 const* count(int type) const;

  private:
   struct Counter {
      int type = 0;
      U64 count = 0;
   };
   // A CoPP entry's two types sit in the statistic itself, so that a read finds them there; a
   // statistic of more types keeps the rest apart. Types and counts are kept apart: 48 bytes,
   // for tens of thousands of statistics.
   static constexpr int inlineCounters = 2;
   int types_ = 0;
   std::array<int, inlineCounters> inlineTypes_{};
   std::array<U64, inlineCounters> inlineCounts_{};
   std::unique_ptr<Counter[]> more_;
};

}  // namespace Shim
