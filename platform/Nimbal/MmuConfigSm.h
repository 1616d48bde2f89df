#pragma once

#include "Kiv/Entity.h"

namespace Nimbal {

// The MMU configuration state machine: CPU queues and their bandwidth.
class MmuConfigSm : public Kiv::Entity {
  public:
   MmuConfigSm() { hasNotificationActiveIs(true); }
};

}  // namespace Nimbal
