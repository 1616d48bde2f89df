#pragma once

#include "Kiv/Assert.h"
#include "Oskel/QosClassData.h"

namespace Nimbal {

// Control-plane policies are input policies of control-plane class maps only.
inline bool isCoppInputKey(Oskel::QosClassDataKey const& key) {
   return (key.pmapType() == Qos::mapControlPlane_) && (key.direction() == Qos::input_) &&
          (key.cmapType() == Qos::mapControlPlane_);
}

// The agent's own words for a class key that is not a control-plane input key.
inline constexpr char const* coppInputKeyText =
    "( key.pmapType() == Qos::mapControlPlane_ ) && ( key.direction() == Qos::input_ ) && "
    "( key.cmapType() == Qos::mapControlPlane_ )";

// The one interface of a CoPP class (its first); the empty interface when it has none yet.
inline Orvik::IntfId coppClassIntf(Kiv::Ptr<Oskel::QosClassData> const& classData) {
   auto const& intfs = classData->intfIdSet();
   return intfs.empty() ? Orvik::IntfId::emptyIntfId() : *intfs.begin();
}

}  // namespace Nimbal

#define NIMBAL_ASSERT_COPP_INPUT_KEY(key) \
   KIV_ASSERT_MSG(::Nimbal::isCoppInputKey(key), ::Nimbal::coppInputKeyText)
