#include "Kiv/Allocator.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <vector>

#include "Kiv/BlockAccounting.h"

namespace Kiv {

namespace {
struct Accounts {
   std::mutex mutex;
   std::map<std::string, U64> counts;
};
Accounts& accounts() {
   static auto* a = new Accounts();  // lives past static destructors
   return *a;
}
}  // namespace

#if defined(__SANITIZE_ADDRESS__)
#define KIV_BLOCKS_FROM_THE_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIV_BLOCKS_FROM_THE_HEAP 1
#endif
#endif

#ifndef KIV_BLOCKS_FROM_THE_HEAP
namespace {

constexpr std::size_t blockGrain = 8;
constexpr std::size_t slabBytes = 16 * 1024;

struct FreeBlock {
   FreeBlock* next;
};

// One thread's blocks, each size from slabs of its own: records made one after the other (an
// interface's queue counters, the entries of a boot) lie side by side, and a walk through them
// in the order they were made reads memory in order. Slabs are never given back: a block may
// be freed by another thread, or outlive the code that made it, and must stay valid memory
// wherever it goes.
struct BlockLists {
   static constexpr std::size_t sizes = largestBlock / blockGrain + 1;
   FreeBlock* free[sizes] = {};
   char* slabNext[sizes] = {};
   char* slabEnd[sizes] = {};
   std::size_t inUse = 0;
};

// Every slab, so that what the blocks hold stays reachable to leak checkers.
struct Slabs {
   std::mutex mutex;
   std::vector<void*> slabs;
};
Slabs& slabs() {
   static auto* s = new Slabs();  // lives past static destructors
   return *s;
}

thread_local BlockLists blockLists;

void* newBlock(BlockLists& lists, std::size_t grains) {
   std::size_t const bytes = grains * blockGrain;
   char*& next = lists.slabNext[grains];
   if (static_cast<std::size_t>(lists.slabEnd[grains] - next) < bytes) {
      char* slab = static_cast<char*>(::operator new(slabBytes));
      {
         auto& s = slabs();
         std::lock_guard<std::mutex> lock(s.mutex);
         s.slabs.push_back(slab);
      }
      next = slab;
      lists.slabEnd[grains] = slab + slabBytes;
   }
   void* block = next;
   next += bytes;
   return block;
}

}  // namespace
#endif

void* blockAllocate(std::size_t size) {
#ifdef KIV_BLOCKS_FROM_THE_HEAP
   // The sanitizers see every block as an allocation of its own.
   return ::operator new(size);
#else
   if (size > largestBlock || size == 0) {
      return ::operator new(size);
   }
   std::size_t const grains = (size + blockGrain - 1) / blockGrain;
   BlockLists& lists = blockLists;
   lists.inUse += grains * blockGrain;
   if (FreeBlock* block = lists.free[grains]) {
      lists.free[grains] = block->next;
      return block;
   }
   return newBlock(lists, grains);
#endif
}

void blockFree(void* block, std::size_t size) noexcept {
#ifdef KIV_BLOCKS_FROM_THE_HEAP
   (void)size;
   ::operator delete(block);
#else
   if (size > largestBlock || size == 0) {
      ::operator delete(block);
      return;
   }
   std::size_t const grains = (size + blockGrain - 1) / blockGrain;
   BlockLists& lists = blockLists;
   lists.inUse -= grains * blockGrain;
   auto* freed = static_cast<FreeBlock*>(block);
   freed->next = lists.free[grains];
   lists.free[grains] = freed;
#endif
}

std::size_t blockSlabBytes() {
#ifdef KIV_BLOCKS_FROM_THE_HEAP
   return 0;
#else
   auto& s = slabs();
   std::lock_guard<std::mutex> lock(s.mutex);
   return s.slabs.size() * slabBytes;
#endif
}

std::size_t blockBytesInUse() {
#ifdef KIV_BLOCKS_FROM_THE_HEAP
   return 0;
#else
   return blockLists.inUse;
#endif
}

void allocationIs(char const* typeName) {
   auto& a = accounts();
   std::lock_guard<std::mutex> lock(a.mutex);
   ++a.counts[typeName];
}

U64 allocations(char const* typeName) {
   auto& a = accounts();
   std::lock_guard<std::mutex> lock(a.mutex);
   auto it = a.counts.find(typeName);
   return it == a.counts.end() ? 0 : it->second;
}

}  // namespace Kiv
