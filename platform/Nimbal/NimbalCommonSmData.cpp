#include "Nimbal/NimbalCommonSmData.h"

#include "Oskel/VerifyData.h"

namespace Nimbal {

NimbalCommonSmData::NimbalCommonSmData() {
   hasNotificationActiveIs(true);
}

NimbalCommonSmData::~NimbalCommonSmData() = default;

void NimbalCommonSmData::vxlanEnabledIs(bool v) {
   if (v == vxlanEnabled_) {
      return;
   }
   vxlanEnabled_ = v;
   notify("vxlanEnabled");
}

Kiv::Ptr<Oskel::VerifyData> NimbalCommonSmData::verifyData() const {
   return verifyData_;
}

void NimbalCommonSmData::verifyDataIs(Kiv::Ptr<Oskel::VerifyData> const& v) {
   verifyData_ = v;
}

void NimbalCommonSmData::intfPortIs(Orvik::IntfId const& intf, NimbalTypes::NimbalPort const& port,
                                    bool fabric) {
   if (fabric) {
      nimbalFabricIntfToPortIs(intf, port);
      nimbalFabricPortToIntfIs(port, intf);
   } else {
      nimbalIntfToPortIs(intf, port);
      nimbalPortToIntfIs(port, intf);
   }
}

}  // namespace Nimbal
