#pragma once

// Lists of (interface, CPU queue) keys as a person reads them: interfaces that share the same
// queues are written together, runs of neighbouring interfaces and queues as ranges, for
// example "Ethernet8-Ethernet14 queues 1-16 (CpuQ1-CpuQ16)".

#include <string>
#include <vector>

#include "Kiv/Types.h"

namespace NimbalHost {

struct KeyName {
   std::string interface;
   U32 queue = 0;
   std::string queueName;  // may be empty
};

// One item per group of interfaces. `interfaceOrder` is the switch's interfaces in their order:
// interfaces next to each other there form a range. Interfaces that it does not list come last,
// each on its own.
std::vector<std::string> keyRanges(std::vector<KeyName> const& keys,
                                   std::vector<std::string> const& interfaceOrder);

// The items joined with ", ".
std::string keyRangesText(std::vector<KeyName> const& keys,
                          std::vector<std::string> const& interfaceOrder);

}  // namespace NimbalHost
