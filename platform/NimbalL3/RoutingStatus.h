#pragma once

#include "Kiv/Entity.h"

namespace NimbalL3 {

// The agent's routing status.
class RoutingStatus : public Kiv::Entity {};

}  // namespace NimbalL3
