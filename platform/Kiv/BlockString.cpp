#include "Kiv/BlockString.h"

#include <cstring>

#include "Kiv/Allocator.h"

namespace Kiv {

namespace {

std::size_t blockSize(U32 length) {
   return sizeof(U32) + length;
}

U32 lengthOf(char const* block) {
   U32 length = 0;
   std::memcpy(&length, block, sizeof length);
   return length;
}

}  // namespace

BlockString::BlockString(std::string_view text) {
   if (text.empty()) {
      return;
   }
   U32 const length = static_cast<U32>(text.size());
   block_ = static_cast<char*>(blockAllocate(blockSize(length)));
   std::memcpy(block_, &length, sizeof length);
   std::memcpy(block_ + sizeof length, text.data(), length);
}

BlockString::~BlockString() {
   if (block_) {
      blockFree(block_, blockSize(lengthOf(block_)));
   }
}

std::string_view BlockString::view() const {
   if (!block_) {
      return {};
   }
   return {block_ + sizeof(U32), lengthOf(block_)};
}

}  // namespace Kiv
