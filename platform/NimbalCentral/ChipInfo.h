#pragma once

#include "Kiv/Types.h"

namespace NimbalCentral {

// What the agent knows of a switch chip; a fresh record is the "unknown chip" value.
class ChipInfo {
  public:
   ChipInfo() = default;
   explicit ChipInfo(U8 unit, U32 chipId = 0) : unit_(unit), chipId_(chipId) {}
   U8 unit() const { return unit_; }
   U32 chipId() const { return chipId_; }
   bool operator==(ChipInfo const& o) const = default;

  private:
   U8 unit_ = 128;
   U32 chipId_ = 0;
};

// Capabilities of the switch chip the agent runs on.
class NimbalAttributes {
  public:
   bool vxlanCoppSrcPortWorkAroundNeeded() const { return vxlanCoppSrcPortWorkAroundNeeded_; }
   void vxlanCoppSrcPortWorkAroundNeededIs(bool v) { vxlanCoppSrcPortWorkAroundNeeded_ = v; }

  private:
   bool vxlanCoppSrcPortWorkAroundNeeded_ = false;
};

NimbalAttributes& nimbalAttributes();

}  // namespace NimbalCentral
