#pragma once

#include "Kiv/Types.h"

namespace Nimbal {

// What asked for a TCAM entry; the default value is the empty key.
class RequestKey {
  public:
   RequestKey() = default;
   explicit RequestKey(U64 id) : id_(id) {}
   U64 id() const { return id_; }
   bool empty() const { return id_ == 0; }
   bool operator==(RequestKey const&) const = default;

  private:
   U64 id_ = 0;
};

}  // namespace Nimbal
