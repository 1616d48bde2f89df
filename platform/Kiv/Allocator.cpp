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
// they are carved from chunks, so that the alignment costs the heap nothing per slab.
constexpr std::size_t slabBytes = 16 * 1024;
constexpr std::size_t chunkBytes = 64 * slabBytes;

// A slab holds blocks of one size after its header, which keeps a bit per block, set while the
// block is free. The lowest free block of the earliest slab is always the next one given: a
// heap that has been freed and used again hands out its blocks in the same order as a new one,
// so records made one after the other lie side by side however the last ones were freed.
struct Slab {
   Slab* next;       // the next slab of its size, in the order made
   U64 owner;        // the lists of the thread that made it
   U32 order;        // its place among the slabs of its size
   U32 blocksAt;     // offset of the first block
   U32 blockBytes;
   U32 freeBlocks;
   U32 firstWord;    // no word below it has a free block
   U64 reciprocal;   // ceil(2^32 / grains): a block's index without a division
   // Then the bits: as many words as the slab has blocks, in 64s.
};
constexpr std::size_t slabHeaderBytes = sizeof(Slab);

U64* freeBits(Slab* slab) {
   return reinterpret_cast<U64*>(reinterpret_cast<char*>(slab) + slabHeaderBytes);
}

struct FreeBlock {
   FreeBlock* next;
};

struct SizeClass {
   Slab* last = nullptr;
   Slab* lowestFree = nullptr;  // no earlier slab has a free block; may itself be full
   U32 slabs = 0;
   // Blocks of another thread's slabs freed by this thread: given before any slab's.
   FreeBlock* foreign = nullptr;
};

// One thread's blocks, each size from slabs of its own: records made one after the other (an
// interface's queue counters, the entries of a boot) lie side by side, and a walk through them
// in the order they were made reads memory in order. Slabs are never given back: a block may
// be freed by another thread, or outlive the code that made it, and must stay valid memory
// wherever it goes.
struct BlockLists {
   SizeClass classes[sizes] = {};
   U64 id = 0;
   char* chunkNext = nullptr;
   char* chunkEnd = nullptr;
   std::size_t inUse = 0;
};

// Every chunk, so that what the blocks hold stays reachable to leak checkers.
struct Chunks {
   std::mutex mutex;
   std::vector<void*> chunks;
   U64 lastListsId = 0;
};
Chunks& chunks() {
   static auto* c = new Chunks();  // lives past static destructors
   return *c;
}

thread_local BlockLists blockLists;

char* newSlabMemory(BlockLists& lists) {
   if (lists.chunkNext == lists.chunkEnd) {
      char* chunk = static_cast<char*>(::operator new(chunkBytes, std::align_val_t(slabBytes)));
      auto& c = chunks();
      std::lock_guard<std::mutex> lock(c.mutex);
      c.chunks.push_back(chunk);
      if (lists.id == 0) {
         lists.id = ++c.lastListsId;
      }
      lists.chunkNext = chunk;
      lists.chunkEnd = chunk + chunkBytes;
   }
   char* slab = lists.chunkNext;
   lists.chunkNext += slabBytes;
   return slab;
}

std::size_t slabWords(std::size_t blocks) {
   return (blocks + 63) / 64;
}

Slab* newSlab(BlockLists& lists, SizeClass& sizeClass, std::size_t grains) {
   std::size_t const blockBytes = grains * blockGrain;
   std::size_t blocks = (slabBytes - slabHeaderBytes) / blockBytes;
   while (slabHeaderBytes + slabWords(blocks) * 8 + blocks * blockBytes > slabBytes) {
      --blocks;
   }
   auto* slab = reinterpret_cast<Slab*>(newSlabMemory(lists));
   slab->next = nullptr;
   slab->owner = lists.id;
   slab->order = sizeClass.slabs++;
   slab->blocksAt = static_cast<U32>(slabHeaderBytes + slabWords(blocks) * 8);
   slab->blockBytes = static_cast<U32>(blockBytes);
   slab->reciprocal = ((U64(1) << 32) + grains - 1) / grains;
   slab->freeBlocks = static_cast<U32>(blocks);
   slab->firstWord = 0;
   U64* const words = freeBits(slab);
   for (std::size_t w = 0; w < slabWords(blocks); ++w) {
      std::size_t const left = blocks - w * 64;
      words[w] = left >= 64 ? ~U64(0) : (U64(1) << left) - 1;
   }
   if (sizeClass.last) {
      sizeClass.last->next = slab;
   }
   sizeClass.last = slab;
   return slab;
}

void* slabBlock(BlockLists& lists, SizeClass& sizeClass, std::size_t grains) {
   Slab* slab = sizeClass.lowestFree;
   while (slab && slab->freeBlocks == 0) {
      slab = slab->next;
   }
   if (!slab) {
      slab = newSlab(lists, sizeClass, grains);
   }
   sizeClass.lowestFree = slab;
   U64* const words = freeBits(slab);
   U32 word = slab->firstWord;
   while (words[word] == 0) {
      ++word;
   }
   slab->firstWord = word;
   U64 const bits = words[word];
   words[word] = bits & (bits - 1);
   --slab->freeBlocks;
   std::size_t const index = word * 64 + static_cast<std::size_t>(__builtin_ctzll(bits));
   return reinterpret_cast<char*>(slab) + slab->blocksAt + index * slab->blockBytes;
}

void slabFree(SizeClass& sizeClass, Slab* slab, void* block) {
   auto const offset = static_cast<U64>(static_cast<char*>(block) - reinterpret_cast<char*>(slab) -
                                        slab->blocksAt);
   auto const index = static_cast<U32>(((offset / blockGrain) * slab->reciprocal) >> 32);
   U32 const word = index / 64;
   freeBits(slab)[word] |= U64(1) << (index % 64);
   ++slab->freeBlocks;
   if (word < slab->firstWord) {
      slab->firstWord = word;
   }
   if (!sizeClass.lowestFree || slab->order < sizeClass.lowestFree->order) {
      sizeClass.lowestFree = slab;
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
   BlockLists& lists = blockLists;
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
   BlockLists& lists = blockLists;
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
   return c.chunks.size() * chunkBytes;
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
