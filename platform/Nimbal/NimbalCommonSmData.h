#pragma once

#include "Kiv/Collection.h"
#include "NimbalCentral/ChipInfo.h"
#include "NimbalTypes/NimbalPort.h"
#include "Orvik/IntfId.h"

namespace Oskel {
class VerifyData;
}

namespace Nimbal {

// What the agent knows of one module of the chip.
class NimbalModInfo {
  public:
   NimbalModInfo() = default;
   NimbalModInfo(U16 modId, U16 unit, NimbalCentral::ChipInfo chipInfo)
       : modId_(modId), unit_(unit), chipInfo_(chipInfo) {}
   U16 modId() const { return modId_; }
   U16 unit() const { return unit_; }
   NimbalCentral::ChipInfo const& chipInfo() const { return chipInfo_; }
   bool operator==(NimbalModInfo const& o) const = default;

  private:
   U16 modId_ = 0;
   U16 unit_ = 0;
   NimbalCentral::ChipInfo chipInfo_;
};

// The agent-wide shared state: interfaces and ports, modules, VXLAN state.
class NimbalCommonSmData : public Kiv::Entity {
  public:
   NimbalCommonSmData();
   ~NimbalCommonSmData() override;

   KIV_VALUE_MAP(Orvik::IntfId, NimbalTypes::NimbalPort, nimbalIntfToPort)
   KIV_VALUE_MAP(Orvik::IntfId, NimbalTypes::NimbalPort, nimbalFabricIntfToPort)
   KIV_ORDERED_MAP(NimbalTypes::NimbalPort, Orvik::IntfId, nimbalPortToIntf)
   KIV_ORDERED_MAP(NimbalTypes::NimbalPort, Orvik::IntfId, nimbalFabricPortToIntf)
   KIV_VALUE_MAP(U16, U16, nimbalModIdToUnit)
   KIV_VALUE_MAP(U16, NimbalModInfo, nimbalModId)
   KIV_VALUE_MAP(Orvik::IntfId, bool, vxlanRecircIntf)
   KIV_VALUE_MAP(NimbalTypes::NimbalPort, Orvik::IntfId, nimbalCpuPortToIntf)
   KIV_VALUE_MAP(NimbalTypes::NimbalPort, Orvik::IntfId, nimbalPortToLoopbackIntf)

  public:
   bool vxlanEnabled() const { return vxlanEnabled_; }
   void vxlanEnabledIs(bool v);

   // When set, a CoPP class's CPU queue takes its bandwidth from the queue's own rate.
   bool cpuQRateFromQueue() const { return cpuQRateFromQueue_; }
   void cpuQRateFromQueueIs(bool v) { cpuQRateFromQueue_ = v; }

   Kiv::Ptr<Oskel::VerifyData> verifyData() const;
   void verifyDataIs(Kiv::Ptr<Oskel::VerifyData> const& v);

   // Adds a front-panel or fabric interface to both directions of the port maps.
   void intfPortIs(Orvik::IntfId const& intf, NimbalTypes::NimbalPort const& port,
                   bool fabric = false);

  private:
   bool vxlanEnabled_ = false;
   bool cpuQRateFromQueue_ = false;
   Kiv::Ptr<Oskel::VerifyData> verifyData_;
};

}  // namespace Nimbal
