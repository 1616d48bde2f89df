#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "Shim/FieldStat.h"

namespace Shim {

// A unit's statistics by id. Ids are handed out in sequence and never reused, so a statistic
// stands at its id's place: a read is two loads, with no hashing. The places come in blocks of
// 256 ids; a block is given back when its last statistic goes.
class StatTable {
  public:
   FieldStat* find(int id) {
      Block* const b = blockOf(id);
      if (!b) {
         return nullptr;
      }
      std::optional<FieldStat>& slot = b->stats[slotOf(id)];
      return slot ? &*slot : nullptr;
   }
   FieldStat const* find(int id) const { return const_cast<StatTable*>(this)->find(id); }

   // A new statistic at `id`, which holds none.
   FieldStat& make(int id) {
      std::size_t const b = static_cast<std::size_t>(id) / perBlock;
      if (b >= blocks_.size()) {
         blocks_.resize(b + 1);
      }
      if (!blocks_[b]) {
         blocks_[b] = std::make_unique<Block>();
      }
      std::optional<FieldStat>& slot = blocks_[b]->stats[slotOf(id)];
      slot.emplace();
      ++blocks_[b]->live;
      ++size_;
      return *slot;
   }

   void erase(int id) {
      Block* const b = blockOf(id);
      if (!b || !b->stats[slotOf(id)]) {
         return;
      }
      b->stats[slotOf(id)].reset();
      --size_;
      if (--b->live == 0) {
         blocks_[static_cast<std::size_t>(id) / perBlock].reset();
      }
   }

   std::size_t size() const { return size_; }
   // Blocks of places held: only those with a statistic in them.
   std::size_t blocksHeld() const {
      std::size_t n = 0;
      for (auto const& b : blocks_) {
         n += b ? 1 : 0;
      }
      return n;
   }

  private:
   static constexpr std::size_t perBlock = 256;
   struct Block {
      std::array<std::optional<FieldStat>, perBlock> stats;
      std::size_t live = 0;
   };
   Block* blockOf(int id) const {
      if (id < 0 || static_cast<std::size_t>(id) / perBlock >= blocks_.size()) {
         return nullptr;
      }
      return blocks_[static_cast<std::size_t>(id) / perBlock].get();
   }
   static std::size_t slotOf(int id) { return static_cast<std::size_t>(id) % perBlock; }

   std::vector<std::unique_ptr<Block>> blocks_;
   std::size_t size_ = 0;
};

}  // namespace Shim
