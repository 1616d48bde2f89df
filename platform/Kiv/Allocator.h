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

// The allocator of the framework's collections: single nodes come from blocks, arrays (a hash
// table's buckets) from the heap.
template <class T>
struct NodeAllocator {
   using value_type = T;
   NodeAllocator() = default;
   template <class U>
   NodeAllocator(NodeAllocator<U> const&) noexcept {}
   T* allocate(std::size_t n) {
      if (n == 1 && alignof(T) <= 8) {
         return static_cast<T*>(blockAllocate(sizeof(T)));
      }
      return std::allocator<T>().allocate(n);
   }
   void deallocate(T* p, std::size_t n) noexcept {
      if (n == 1 && alignof(T) <= 8) {
         blockFree(p, sizeof(T));
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
