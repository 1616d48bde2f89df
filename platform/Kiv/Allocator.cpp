#include "Kiv/Allocator.h"

#include <cstddef>
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
constexpr std::size_t sizes = largestBlock / blockGrain + 1;
// Slabs are aligned to their size, so that a block finds its slab's header by its address;
// they are carved from chunks, so that the alignment costs one slab's worth of address space a
// chunk, never touched, rather than a heap fragment per slab.
constexpr std::size_t slabBytes = 16 * 1024;
constexpr std::size_t chunkBytes = 64 * slabBytes;
constexpr std::size_t chunkHeapBytes = chunkBytes + slabBytes;

// A slab holds blocks of one size after its header, which keeps a bit per block, set while the
// block is free. The lowest free block of the earliest slab is always the next one given: a
// heap that has been freed and used again hands out its blocks in the same order as a new one,
// so records made one after the other lie side by side however the last ones were freed.
struct Slab {
   U64 owner;     // the lists of the thread that made it
   U32 order;     // its place among the slabs of its size
   U32 blocksAt;  // offset of the first block
   U32 blockBytes;
   U32 freeBlocks;
   U32 firstWord;   // no word below it has a free block
   U64 reciprocal;  // ceil(2^32 / grains): a block's index without a division
   // Then the bits: as many words as the slab has blocks, in 64s.
};
constexpr std::size_t slabHeaderBytes = sizeof(Slab);

U64* freeBits(Slab* slab) {
   return reinterpret_cast<U64*>(reinterpret_cast<char*>(slab) + slabHeaderBytes);
}

struct FreeBlock {
   FreeBlock* next;
};

// The slabs of one size in the order made, and a bit per slab, set while it has a free block:
// the earliest slab with room is found by its bit, without walking the full ones.
struct SizeClass {
   Slab* current = nullptr;  // the earliest slab with a free block, if known
   Slab** slabs = nullptr;
   U64* withRoom = nullptr;
   U32 count = 0;
   U32 capacity = 0;   // in slabs, a multiple of 64
   U32 firstWord = 0;  // no word of withRoom below it has a bit set
   // Blocks of another thread's slabs freed by this thread: given before any slab's.
   FreeBlock* foreign = nullptr;
};

// One thread's blocks, each size from slabs of its own: records made one after the other (an
// interface's queue counters, the entries of a boot) lie side by side, and a walk through them
// in the order they were made reads memory in order. Slabs are never given back: a block may
// be freed by another thread, or outlive the code that made it, and must stay valid memory
// wherever it goes. Plain data only: blocks are freed during static destruction too.
struct BlockLists {
   SizeClass classes[sizes] = {};
   U64 id = 0;
   char* chunkNext = nullptr;
   char* chunkEnd = nullptr;
   std::size_t inUse = 0;
};

// Every chunk and every thread's lists, so that what the blocks hold stays reachable to leak
// checkers.
struct Chunks {
   std::mutex mutex;
   std::vector<void*> chunks;
   std::vector<BlockLists*> lists;
};
Chunks& chunks() {
   static auto* c = new Chunks();  // lives past static destructors
   return *c;
}

// A thread's lists are made on its first block and kept: a block may outlive its thread. The
// handle is one word of static thread storage, reached without a call.
__attribute__((tls_model("initial-exec"))) thread_local BlockLists* threadLists = nullptr;

BlockLists& newThreadLists() {
   auto* lists = new BlockLists();
   auto& c = chunks();
   std::lock_guard<std::mutex> lock(c.mutex);
   c.lists.push_back(lists);
   lists->id = c.lists.size();
   threadLists = lists;
   return *lists;
}

BlockLists& blockLists() {
   BlockLists* const lists = threadLists;
   return __builtin_expect(lists != nullptr, 1) ? *lists : newThreadLists();
}

char* newSlabMemory(BlockLists& lists) {
   if (lists.chunkNext == lists.chunkEnd) {
      // Aligned here rather than by the heap: what the heap holds for blocks is then exactly the
      // chunks' size, which the memory accounting takes off its figures.
      char* raw = static_cast<char*>(::operator new(chunkHeapBytes));
      auto const at = (reinterpret_cast<std::uintptr_t>(raw) + slabBytes - 1) & ~(slabBytes - 1);
      char* chunk = raw + (at - reinterpret_cast<std::uintptr_t>(raw));
      auto& c = chunks();
      std::lock_guard<std::mutex> lock(c.mutex);
      c.chunks.push_back(raw);
      lists.chunkNext = chunk;
      lists.chunkEnd = chunk + chunkBytes;
   }
   char* slab = lists.chunkNext;
   lists.chunkNext += slabBytes;
   return slab;
}

// Room for 64 more slabs in a class's tables.
void growClass(SizeClass& sizeClass) {
   U32 const capacity = sizeClass.capacity + 64;
   auto** slabs = new Slab*[capacity]();
   auto* withRoom = new U64[capacity / 64]();
   for (U32 i = 0; i < sizeClass.count; ++i) {
      slabs[i] = sizeClass.slabs[i];
   }
   for (U32 w = 0; w < sizeClass.capacity / 64; ++w) {
      withRoom[w] = sizeClass.withRoom[w];
   }
   delete[] sizeClass.slabs;
   delete[] sizeClass.withRoom;
   sizeClass.slabs = slabs;
   sizeClass.withRoom = withRoom;
   sizeClass.capacity = capacity;
}

std::size_t slabWords(std::size_t blocks) {
   return (blocks + 63) / 64;
}

// Blocks start on a cache line: a node of 32 or 64 bytes then never straddles two.
constexpr std::size_t cacheLine = 64;
std::size_t blocksAt(std::size_t blocks) {
   return (slabHeaderBytes + slabWords(blocks) * 8 + cacheLine - 1) / cacheLine * cacheLine;
}

Slab* newSlab(BlockLists& lists, SizeClass& sizeClass, std::size_t grains) {
   std::size_t const blockBytes = grains * blockGrain;
   std::size_t blocks = (slabBytes - slabHeaderBytes) / blockBytes;
   while (blocksAt(blocks) + blocks * blockBytes > slabBytes) {
      --blocks;
   }
   if (sizeClass.count == sizeClass.capacity) {
      growClass(sizeClass);
   }
   auto* slab = reinterpret_cast<Slab*>(newSlabMemory(lists));
   slab->owner = lists.id;
   slab->order = sizeClass.count++;
   slab->blocksAt = static_cast<U32>(blocksAt(blocks));
   slab->blockBytes = static_cast<U32>(blockBytes);
   slab->freeBlocks = static_cast<U32>(blocks);
   slab->firstWord = 0;
   slab->reciprocal = ((U64(1) << 32) + grains - 1) / grains;
   U64* const words = freeBits(slab);
   for (std::size_t w = 0; w < slabWords(blocks); ++w) {
      std::size_t const left = blocks - w * 64;
      words[w] = left >= 64 ? ~U64(0) : (U64(1) << left) - 1;
   }
   sizeClass.slabs[slab->order] = slab;
   sizeClass.withRoom[slab->order / 64] |= U64(1) << (slab->order % 64);
   return slab;
}

// The earliest slab with a free block, or a new one.
Slab* slabWithRoom(BlockLists& lists, SizeClass& sizeClass, std::size_t grains) {
   U32 const tableWords = sizeClass.capacity / 64;
   U32 w = sizeClass.firstWord;
   while (w < tableWords && sizeClass.withRoom[w] == 0) {
      ++w;
   }
   Slab* slab = nullptr;
   if (w < tableWords) {
      slab = sizeClass.slabs[w * 64 + static_cast<U32>(__builtin_ctzll(sizeClass.withRoom[w]))];
   } else {
      slab = newSlab(lists, sizeClass, grains);
      w = slab->order / 64;
   }
   sizeClass.firstWord = w;
   sizeClass.current = slab;
   return slab;
}

void* slabBlock(BlockLists& lists, SizeClass& sizeClass, std::size_t grains) {
   Slab* slab = sizeClass.current;
   if (!slab) {
      slab = slabWithRoom(lists, sizeClass, grains);
   }
   U64* const words = freeBits(slab);
   U32 word = slab->firstWord;
   while (words[word] == 0) {
      ++word;
   }
   U64 const bits = words[word];
   words[word] = bits & (bits - 1);
   slab->firstWord = words[word] == 0 ? word + 1 : word;
   if (--slab->freeBlocks == 0) {
      sizeClass.withRoom[slab->order / 64] &= ~(U64(1) << (slab->order % 64));
      sizeClass.current = nullptr;
   }
   std::size_t const index = word * 64 + static_cast<std::size_t>(__builtin_ctzll(bits));
   return reinterpret_cast<char*>(slab) + slab->blocksAt + index * slab->blockBytes;
}

void slabFree(SizeClass& sizeClass, Slab* slab, void* block) {
   auto const offset =
       static_cast<U64>(static_cast<char*>(block) - reinterpret_cast<char*>(slab) - slab->blocksAt);
   auto const index = static_cast<U32>(((offset / blockGrain) * slab->reciprocal) >> 32);
   U32 const word = index / 64;
   freeBits(slab)[word] |= U64(1) << (index % 64);
   if (word < slab->firstWord) {
      slab->firstWord = word;
   }
   if (slab->freeBlocks++ == 0) {
      sizeClass.withRoom[slab->order / 64] |= U64(1) << (slab->order % 64);
      if (slab->order / 64 < sizeClass.firstWord) {
         sizeClass.firstWord = slab->order / 64;
      }
      // An earlier slab than the one in use takes the next block; with none in use, the
      // search finds the earliest.
      if (sizeClass.current && slab->order < sizeClass.current->order) {
         sizeClass.current = slab;
      }
   }
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
   BlockLists& lists = blockLists();
   lists.inUse += grains * blockGrain;
   SizeClass& sizeClass = lists.classes[grains];
   if (FreeBlock* block = sizeClass.foreign) {
      sizeClass.foreign = block->next;
      return block;
   }
   return slabBlock(lists, sizeClass, grains);
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
   BlockLists& lists = blockLists();
   lists.inUse -= grains * blockGrain;
   SizeClass& sizeClass = lists.classes[grains];
   auto* slab = reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(block) & ~(slabBytes - 1));
   if (slab->owner != lists.id) {
      auto* freed = static_cast<FreeBlock*>(block);
      freed->next = sizeClass.foreign;
      sizeClass.foreign = freed;
      return;
   }
   slabFree(sizeClass, slab, block);
#endif
}

std::size_t blockSlabBytes() {
#ifdef KIV_BLOCKS_FROM_THE_HEAP
   return 0;
#else
   auto& c = chunks();
   std::lock_guard<std::mutex> lock(c.mutex);
   return c.chunks.size() * chunkHeapBytes;
#endif
}

std::size_t blockBytesInUse() {
#ifdef KIV_BLOCKS_FROM_THE_HEAP
   return 0;
#else
   return blockLists().inUse;
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
