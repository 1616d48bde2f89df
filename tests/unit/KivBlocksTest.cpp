#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/BlockAccounting.h"

namespace {

// Sanitizer builds give every block an allocation of its own, so that they see each one.
bool blocksFromSlabs() {
   void* block = Kiv::blockAllocate(8);
   bool const slabs = Kiv::blockSlabBytes() != 0;
   Kiv::blockFree(block, 8);
   return slabs;
}

// Every test here looks at the slabs; a build without them has nothing to show.
class KivBlocks : public ::testing::Test {
  protected:
   void SetUp() override {
      if (!blocksFromSlabs()) {
         GTEST_SKIP() << "blocks come from the heap in this build";
      }
   }
};

std::size_t sideBySide(std::vector<char*> const& blocks, std::size_t size) {
   std::size_t n = 0;
   for (std::size_t i = 1; i < blocks.size(); ++i) {
      n += blocks[i] == blocks[i - 1] + size ? 1 : 0;
   }
   return n;
}

TEST_F(KivBlocks, BlocksOfOneSizeMadeOneAfterTheOtherLieSideBySide) {
   // A thread of its own starts with no free blocks and no slab of either size.
   std::thread([] {
      std::vector<char*> small;
      std::vector<char*> large;
      for (int i = 0; i < 100; ++i) {
         small.push_back(static_cast<char*>(Kiv::blockAllocate(24)));
         large.push_back(static_cast<char*>(Kiv::blockAllocate(240)));
      }
      // Made in turn, yet each size is in order: only a new slab breaks a run, and a slab holds
      // hundreds of the small and dozens of the large.
      EXPECT_EQ(sideBySide(small, 24), 99u);
      EXPECT_GE(sideBySide(large, 240), 98u);
      for (int i = 0; i < 100; ++i) {
         Kiv::blockFree(small[static_cast<std::size_t>(i)], 24);
         Kiv::blockFree(large[static_cast<std::size_t>(i)], 240);
      }
      EXPECT_EQ(Kiv::blockBytesInUse(), 0u);
   }).join();
}

TEST_F(KivBlocks, AFreedBlockIsTheNextOneOfItsSize) {
   std::thread([] {
      void* first = Kiv::blockAllocate(40);
      void* other = Kiv::blockAllocate(48);
      Kiv::blockFree(first, 40);
      EXPECT_EQ(Kiv::blockAllocate(40), first);
      Kiv::blockFree(first, 40);
      Kiv::blockFree(other, 48);
   }).join();
}

// Blocks of one size, made in a thread of its own so that no earlier block is free.
std::vector<char*> madeInOrder(std::size_t n, std::size_t size) {
   std::vector<char*> blocks;
   for (std::size_t i = 0; i < n; ++i) {
      blocks.push_back(static_cast<char*>(Kiv::blockAllocate(size)));
   }
   return blocks;
}

void freeAll(std::vector<char*> const& blocks, std::size_t size) {
   for (char* block : blocks) {
      Kiv::blockFree(block, size);
   }
}

// Addresses as numbers: a failed comparison prints them, not what they point to.
std::vector<std::uintptr_t> addresses(std::vector<char*> const& blocks) {
   std::vector<std::uintptr_t> a;
   for (char* b : blocks) {
      a.push_back(reinterpret_cast<std::uintptr_t>(b));
   }
   return a;
}

TEST_F(KivBlocks, BlocksFreedInAnyOrderAreGivenAgainInTheOrderTheyWereMade) {
   std::thread([] {
      // Enough for several slabs: the order holds across them.
      std::vector<char*> const made = madeInOrder(2000, 32);
      // Freed in an order of their own, as a hash table frees its nodes.
      for (std::size_t i = 0; i < made.size(); ++i) {
         Kiv::blockFree(made[(i * 7919) % made.size()], 32);
      }
      std::vector<char*> const again = madeInOrder(made.size(), 32);
      EXPECT_EQ(addresses(again), addresses(made));
      freeAll(again, 32);
      EXPECT_EQ(Kiv::blockBytesInUse(), 0u);
   }).join();
}

TEST_F(KivBlocks, TheEarliestFreeBlockIsGivenFirst) {
   std::thread([] {
      std::vector<char*> const made = madeInOrder(1500, 56);
      // Freed in no order: the earliest comes back first, whichever slab it is in.
      Kiv::blockFree(made[3], 56);
      Kiv::blockFree(made[1400], 56);
      Kiv::blockFree(made[700], 56);
      EXPECT_EQ(Kiv::blockAllocate(56), static_cast<void*>(made[3]));
      EXPECT_EQ(Kiv::blockAllocate(56), static_cast<void*>(made[700]));
      EXPECT_EQ(Kiv::blockAllocate(56), static_cast<void*>(made[1400]));
      // None free: the next is a new one, not one in use.
      char* const next = static_cast<char*>(Kiv::blockAllocate(56));
      EXPECT_EQ(std::count(made.begin(), made.end(), next), 0);
      Kiv::blockFree(next, 56);
      freeAll(made, 56);
      EXPECT_EQ(Kiv::blockBytesInUse(), 0u);
   }).join();
}

TEST_F(KivBlocks, EveryBlockOfASlabIsGivenOnceAndKeepsItsBytes) {
   std::thread([] {
      // Each size the blocks serve, a few slabs' worth: no two blocks overlap.
      for (std::size_t size = 8; size <= Kiv::largestBlock; size += 8) {
         std::size_t const n = 3 * 16 * 1024 / size;
         std::vector<char*> made = madeInOrder(n, size);
         for (std::size_t i = 0; i < n; ++i) {
            std::memset(made[i], static_cast<int>(i % 251), size);
         }
         for (std::size_t i = 0; i < n; ++i) {
            ASSERT_EQ(made[i][0], static_cast<char>(i % 251)) << size;
            ASSERT_EQ(made[i][size - 1], static_cast<char>(i % 251)) << size;
         }
         std::vector<std::uintptr_t> sorted = addresses(made);
         std::sort(sorted.begin(), sorted.end());
         for (std::size_t i = 1; i < n; ++i) {
            ASSERT_GE(sorted[i], sorted[i - 1] + size) << size;
         }
         // Every other block freed and made again: the same blocks come back, in order.
         std::vector<char*> freed;
         for (std::size_t i = 0; i < n; i += 2) {
            Kiv::blockFree(made[i], size);
            freed.push_back(made[i]);
         }
         EXPECT_EQ(addresses(madeInOrder(freed.size(), size)), addresses(freed)) << size;
         freeAll(made, size);
      }
      EXPECT_EQ(Kiv::blockBytesInUse(), 0u);
   }).join();
}

TEST_F(KivBlocks, BlocksOfALineOrHalfALineNeverStraddleTwoLines) {
   std::thread([] {
      // Several slabs of each: every slab starts its blocks on a line.
      for (std::size_t size : {std::size_t(16), std::size_t(32), std::size_t(64)}) {
         std::vector<char*> const made = madeInOrder(3 * 16 * 1024 / size, size);
         std::size_t straddling = 0;
         for (char* block : made) {
            auto const offset = reinterpret_cast<std::uintptr_t>(block) % 64;
            straddling += offset + size > 64 ? 1 : 0;
         }
         EXPECT_EQ(straddling, 0u) << size;
         freeAll(made, size);
      }
   }).join();
}

TEST_F(KivBlocks, ABlockFreedByAnotherThreadServesThatThread) {
   void* block = nullptr;
   std::thread([&] { block = Kiv::blockAllocate(64); }).join();
   std::thread([&] {
      // Its maker is gone; the block is still memory, and this thread's next of its size.
      Kiv::blockFree(block, 64);
      void* const again = Kiv::blockAllocate(64);
      EXPECT_EQ(again, block);
      std::memset(again, 1, 64);
      void* const next = Kiv::blockAllocate(64);
      EXPECT_NE(next, block);
      Kiv::blockFree(next, 64);
      Kiv::blockFree(again, 64);
   }).join();
}

}  // namespace
