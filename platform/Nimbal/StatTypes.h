#pragma once

#include <array>
#include <optional>
#include <vector>

#include "Kiv/Assert.h"
#include "Shim/BcmTypes.h"

namespace Nimbal {

// The statistics that a new field entry counts, by position.
class StatTypes {
  public:
   static constexpr U32 maxTypes = 8;

   void typeIs(U32 index, Shim::bcm_field_stat_t statType) {
      KIV_ASSERT(index < maxTypes);
      types_[index] = statType;
   }
   std::optional<Shim::bcm_field_stat_t> type(U32 index) const {
      return index < maxTypes ? types_[index] : std::nullopt;
   }
   // The types that are set, in position order.
   std::vector<Shim::bcm_field_stat_t> list() const {
      std::vector<Shim::bcm_field_stat_t> out;
      for (auto const& t : types_) {
         if (t) {
            out.push_back(*t);
         }
      }
      return out;
   }

  private:
   std::array<std::optional<Shim::bcm_field_stat_t>, maxTypes> types_{};
};

}  // namespace Nimbal
