#pragma once

#include "Kiv/Entity.h"

namespace Acl {

// The agent's ACL configuration.
class Config : public Kiv::Entity {};

}  // namespace Acl
