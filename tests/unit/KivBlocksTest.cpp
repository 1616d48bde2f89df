#include <gtest/gtest.h>

#include <cstddef>
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

std::size_t sideBySide(std::vector<char*> const& blocks, std::size_t size) {
   std::size_t n = 0;
   for (std::size_t i = 1; i < blocks.size(); ++i) {
      n += blocks[i] == blocks[i - 1] + size ? 1 : 0;
   }
   return n;
}

TEST(KivBlocks, BlocksOfOneSizeMadeOneAfterTheOtherLieSideBySide) {
   if (!blocksFromSlabs()) {
      GTEST_SKIP() << "blocks come from the heap in this build";
   }
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

TEST(KivBlocks, AFreedBlockIsTheNextOneOfItsSize) {
   if (!blocksFromSlabs()) {
      GTEST_SKIP() << "blocks come from the heap in this build";
   }
   void* first = Kiv::blockAllocate(40);
   void* other = Kiv::blockAllocate(48);
   Kiv::blockFree(first, 40);
   EXPECT_EQ(Kiv::blockAllocate(40), first);
   Kiv::blockFree(first, 40);
   Kiv::blockFree(other, 48);
}

}  // namespace
