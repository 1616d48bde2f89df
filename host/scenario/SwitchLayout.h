#pragma once

// The parts of a switch that a scenario names: modules, interfaces and pool sizes. Plain data,
// so that the file format does not depend on how a switch is built.

#include <optional>
#include <string>
#include <vector>

#include "Kiv/Types.h"

namespace NimbalHost {

struct SwitchModule {
   U16 modId = 0;
   U16 unit = 0;
};

struct SwitchInterface {
   std::string name;
   U16 modId = 0;
   U16 port = 0;
};

// Pool sizes of the egress CoPP groups; an absent size is left as it is (at build: large
// enough for the switch).
struct SwitchResources {
   std::optional<U32> efpCoppEntries;    // entries of the egress CoPP group
   std::optional<U32> efpCoppMeters;     // meters of the egress CoPP group
   std::optional<U32> efpDefaultMeters;  // meters of the default-and-VXLAN group
};

// Ethernet1 to Ethernet8 on ports 1 to 8 of module 0.
std::vector<SwitchInterface> defaultSwitchInterfaces();

}  // namespace NimbalHost
