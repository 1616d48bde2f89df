#pragma once

#include <stdexcept>
#include <string>

namespace NimbalHost {

// Bad traffic input (a capture that cannot be read, a filter that does not compile, a pattern
// that makes no sense): what() is one line fit to show the user as it stands.
class TrafficError : public std::runtime_error {
  public:
   explicit TrafficError(std::string const& line) : std::runtime_error(line) {}
};

}  // namespace NimbalHost
