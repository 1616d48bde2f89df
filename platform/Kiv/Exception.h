#pragma once

#include <stdexcept>
#include <string>

namespace Kiv {

// A value outside the range its type allows.
class RangeException : public std::range_error {
  public:
   explicit RangeException(std::string const& what) : std::range_error(what) {}
};

}  // namespace Kiv
