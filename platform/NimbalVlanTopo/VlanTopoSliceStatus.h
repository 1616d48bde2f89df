#pragma once

#include "Kiv/Entity.h"

namespace NimbalVlanTopo {

// The agent's VLAN topology of the slice.
class VlanTopoSliceStatus : public Kiv::Entity {};

}  // namespace NimbalVlanTopo
