#pragma once

#include <string_view>
#include <utility>

#include "Kiv/Types.h"

namespace Kiv {

// Text that records keep by the ten thousand (a TCAM entry's description): one pointer in the
// record, the length and the characters in one block of the framework's, no heap call.
class BlockString {
  public:
   BlockString() = default;
   explicit BlockString(std::string_view text);
   BlockString(BlockString const& o) : BlockString(o.view()) {}
   BlockString(BlockString&& o) noexcept : block_(o.block_) { o.block_ = nullptr; }
   BlockString& operator=(BlockString o) noexcept {
      std::swap(block_, o.block_);
      return *this;
   }
   ~BlockString();

   std::string_view view() const;
   String string() const { return String(view()); }

  private:
   char* block_ = nullptr;  // a U32 length, then the characters
};

}  // namespace Kiv
