#pragma once

#include <functional>
#include <ostream>
#include <tuple>

#include "Kiv/Types.h"
#include "Qos/QosTypes.h"

namespace Oskel {

// Identifies a class of a policy map.
class QosClassDataKey {
  public:
   QosClassDataKey() = default;
   QosClassDataKey(Kiv::Name pmapName, Qos::MapType pmapType, Qos::Direction direction,
                   Kiv::Name cmapName, Qos::MapType cmapType)
       : pmapName_(std::move(pmapName)),
         pmapType_(pmapType),
         direction_(direction),
         cmapName_(std::move(cmapName)),
         cmapType_(cmapType) {}

   Kiv::Name const& pmapName() const { return pmapName_; }
   Qos::MapType pmapType() const { return pmapType_; }
   Qos::Direction direction() const { return direction_; }
   Kiv::Name const& cmapName() const { return cmapName_; }
   Qos::MapType cmapType() const { return cmapType_; }

   bool operator==(QosClassDataKey const& o) const = default;
   bool operator<(QosClassDataKey const& o) const {
      return std::tie(pmapName_, pmapType_, direction_, cmapName_, cmapType_) <
             std::tie(o.pmapName_, o.pmapType_, o.direction_, o.cmapName_, o.cmapType_);
   }

  private:
   Kiv::Name pmapName_;
   Qos::MapType pmapType_ = Qos::mapControlPlane_;
   Qos::Direction direction_ = Qos::input_;
   Kiv::Name cmapName_;
   Qos::MapType cmapType_ = Qos::mapControlPlane_;
};

inline std::ostream& operator<<(std::ostream& os, QosClassDataKey const& k) {
   return os << k.pmapName() << "," << static_cast<U32>(k.pmapType()) << "," << k.cmapName() << ","
             << static_cast<U32>(k.cmapType());
}

}  // namespace Oskel

template <>
struct std::hash<Oskel::QosClassDataKey> {
   std::size_t operator()(Oskel::QosClassDataKey const& k) const {
      std::size_t h = std::hash<std::string>()(k.pmapName());
      h = h * 31 + std::hash<std::string>()(k.cmapName());
      return h * 31 + (k.pmapType() << 8) + (k.direction() << 4) + k.cmapType();
   }
};
