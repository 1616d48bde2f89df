#pragma once

#include "Kiv/Types.h"

namespace Orvik {

// "Less than" in the order in which an operator reads interface names: runs of digits compare
// by their value (Ethernet2 before Ethernet10, Ethernet1/2 before Ethernet1/10), everything
// else character by character; names that read alike are ordered by their plain text.
bool intfNameCmp(Kiv::String const& a, Kiv::String const& b);

}  // namespace Orvik
