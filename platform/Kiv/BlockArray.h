#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "Kiv/Allocator.h"
#include "Kiv/Types.h"

namespace Kiv {

// A short array that records keep by the ten thousand (a chip program's actions, an entry's
// description): one pointer in the record; the count and the items in one block of the
// framework's. Nothing is allocated while it is empty.
template <class T>
class BlockArray {
   static_assert(std::is_trivially_destructible_v<T>, "a block is given back without destructors");

  public:
   BlockArray() = default;
   BlockArray(T const* items, std::size_t n) : block_(make(n)) {
      if (block_) {
         std::uninitialized_copy(items, items + n, itemsOf(block_));
      }
   }
   BlockArray(BlockArray const& o) : BlockArray(o.begin(), o.size()) {}
   BlockArray(BlockArray&& o) noexcept : block_(std::exchange(o.block_, nullptr)) {}
   BlockArray& operator=(BlockArray o) noexcept {
      std::swap(block_, o.block_);
      return *this;
   }
   ~BlockArray() { release(block_); }

   std::size_t size() const { return block_ ? countOf(block_) : 0; }
   bool empty() const { return block_ == nullptr; }
   T* begin() { return block_ ? itemsOf(block_) : nullptr; }
   T* end() { return begin() + size(); }
   T const* begin() const { return block_ ? itemsOf(block_) : nullptr; }
   T const* end() const { return begin() + size(); }

   // Puts the item before `at`; items are few and set seldom, so the block is made again.
   void insert(T const* at, T const& item) {
      std::size_t const i = static_cast<std::size_t>(at - begin());
      std::size_t const n = size();
      char* grown = make(n + 1);
      T* to = itemsOf(grown);
      std::uninitialized_copy(begin(), begin() + i, to);
      std::construct_at(to + i, item);
      std::uninitialized_copy(begin() + i, end(), to + i + 1);
      release(std::exchange(block_, grown));
   }

  private:
   static constexpr std::size_t itemsAt = std::max(sizeof(U32), alignof(T));
   static std::size_t bytes(std::size_t n) { return itemsAt + n * sizeof(T); }
   static U32 countOf(char const* block) {
      U32 n = 0;
      std::memcpy(&n, block, sizeof n);
      return n;
   }
   static T* itemsOf(char* block) { return reinterpret_cast<T*>(block + itemsAt); }
   static T const* itemsOf(char const* block) {
      return reinterpret_cast<T const*>(block + itemsAt);
   }
   static char* make(std::size_t n) {
      if (n == 0) {
         return nullptr;
      }
      auto* block = static_cast<char*>(blockAllocate(bytes(n)));
      U32 const count = static_cast<U32>(n);
      std::memcpy(block, &count, sizeof count);
      return block;
   }
   static void release(char* block) {
      if (block) {
         blockFree(block, bytes(countOf(block)));
      }
   }

   char* block_ = nullptr;
};

}  // namespace Kiv
