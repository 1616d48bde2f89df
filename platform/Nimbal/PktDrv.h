#pragma once

#include "Kiv/Entity.h"

namespace Nimbal {

// The packet driver: packets between the chip and the CPU, counted per (unit, port, queue).
class PktDrv : public Kiv::Entity {};

}  // namespace Nimbal
