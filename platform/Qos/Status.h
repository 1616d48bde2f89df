#pragma once

#include "Kiv/Entity.h"

namespace Qos {

// The agent's QoS status: policy maps, their classes and actions.
class Status : public Kiv::Entity {
  public:
   Status() { hasNotificationActiveIs(true); }
};

// The agent's per-slice ACL state of QoS.
class AclSliceHwStatus : public Kiv::Entity {};

// The agent's hardware status of QoS ACLs.
class AclHwStatus : public Kiv::Entity {};

}  // namespace Qos
