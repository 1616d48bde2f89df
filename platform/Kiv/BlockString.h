#pragma once

#include <string_view>

#include "Kiv/BlockArray.h"
#include "Kiv/Types.h"

namespace Kiv {

// Text that records keep by the ten thousand (a TCAM entry's description): one pointer in the
// record, the length and the characters in one block of the framework's.
class BlockString {
  public:
   BlockString() = default;
   explicit BlockString(std::string_view text) : chars_(text.data(), text.size()) {}

   std::string_view view() const { return {chars_.begin(), chars_.size()}; }
   String string() const { return String(view()); }

  private:
   BlockArray<char> chars_;
};

}  // namespace Kiv
