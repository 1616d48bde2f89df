#pragma once

// Hints for names a person got wrong: the closest known name, and long lists of interface
// names written as ranges.

#include <optional>
#include <string>
#include <vector>

namespace NimbalHost {

// Edits (insert, delete, replace, swap of neighbours) that turn `a` into `b`.
std::size_t editDistance(std::string const& a, std::string const& b);

// The first of `names` closest to `name`, when at most `maxDistance` edits away; none when
// `names` holds `name` itself.
std::optional<std::string> closestName(std::string const& name,
                                       std::vector<std::string> const& names,
                                       std::size_t maxDistance = 2);

// The name without its trailing digits: "Ethernet" of "Ethernet12".
std::string namePrefix(std::string const& name);

// Names in their order, runs of one prefix with consecutive numbers written as
// "Ethernet1-Ethernet8", joined with ", ".
std::string nameRangesText(std::vector<std::string> const& names);

}  // namespace NimbalHost
