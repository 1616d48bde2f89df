#pragma once

#include "Kiv/Entity.h"

namespace NimbalCentral {

// The agent's ACL hardware status.
class AclHwStatus : public Kiv::Entity {};

// The agent's VXLAN configuration of the slice.
class VxlanSliceConfig : public Kiv::Entity {};

// Miscellaneous configuration of the agent, among it the per-port default CoPP rate.
class NimbalMiscConfig : public Kiv::Entity {
  public:
   U32 portDefaultCoppRate() const { return portDefaultCoppRate_; }
   void portDefaultCoppRateIs(U32 v) { portDefaultCoppRate_ = v; }

  private:
   U32 portDefaultCoppRate_ = 1000;
};

}  // namespace NimbalCentral
