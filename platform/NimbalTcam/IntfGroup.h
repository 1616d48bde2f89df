#pragma once

#include "Kiv/Collection.h"
#include "Orvik/IntfId.h"

namespace NimbalTcam {

// The interfaces a TCAM-agent request applies to: every Ethernet interface when `ethernet`
// is set, plus the interfaces named one by one.
class IntfGroup : public Kiv::Entity {
  public:
   IntfGroup() { hasNotificationActiveIs(true); }

   bool ethernet() const { return ethernet_; }
   void ethernetIs(bool e) {
      if (e == ethernet_) {
         return;
      }
      ethernet_ = e;
      notify("ethernet");
   }

   KIV_ORDERED_MAP(Orvik::IntfId, bool, intf)

  public:
   // Adds a member; adding one twice changes nothing.
   void intfIs(Orvik::IntfId const& i) { intfIs(i, true); }

  private:
   bool ethernet_ = false;
};

}  // namespace NimbalTcam
