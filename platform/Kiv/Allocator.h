#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include "Kiv/Types.h"

namespace Kiv {

// The framework's record of what it allocated, by type: the agent's memory accounting reads it.
void allocationIs(char const* typeName);
U64 allocations(char const* typeName);

template <class T>
U64 allocations() {
   return allocations(typeid(T).name());
}

// Allocates and constructs through the framework's accounting. A constructor that throws
// releases the memory (the new-expression does) and counts nothing.
template <class T, class... A>
T* allocate(A&&... args) {
   T* object = new T(std::forward<A>(args)...);
   allocationIs(typeid(T).name());
   return object;
}

// Small blocks of one size each, for the nodes of the framework's collections and for records
// made by the ten thousand: taken from large slabs and kept for reuse, so that a switch's worth
// of keys costs neither a heap call per node nor the heap's bookkeeping. Blocks are 8-byte
// aligned; a freed block goes back to the calling thread's list of its size.
void* blockAllocate(std::size_t size);
void blockFree(void* block, std::size_t size) noexcept;
// Larger requests go to the heap.
inline constexpr std::size_t largestBlock = 512;

// The allocator of the framework's collections and of the small arrays that records hold by the
// ten thousand (a chip entry's actions, a statistic's counters): what fits a block comes from
// the blocks, larger arrays (a big hash table's buckets) from the heap.
template <class T>
struct NodeAllocator {
   using value_type = T;
   NodeAllocator() = default;
   template <class U>
   NodeAllocator(NodeAllocator<U> const&) noexcept {}
   static bool fitsBlock(std::size_t n) { return alignof(T) <= 8 && n <= largestBlock / sizeof(T); }
   T* allocate(std::size_t n) {
      if (fitsBlock(n)) {
         return static_cast<T*>(blockAllocate(n * sizeof(T)));
      }
      return std::allocator<T>().allocate(n);
   }
   void deallocate(T* p, std::size_t n) noexcept {
      if (fitsBlock(n)) {
         blockFree(p, n * sizeof(T));
      } else {
         std::allocator<T>().deallocate(p, n);
      }
   }
   template <class U>
   bool operator==(NodeAllocator<U> const&) const noexcept {
      return true;
   }
};

}  // namespace Kiv
