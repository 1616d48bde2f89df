#pragma once

#include <functional>
#include <ostream>
#include <tuple>

#include "Kiv/Collection.h"
#include "Qos/QosTypes.h"

namespace Qos {

// Identifies a policy map applied in one direction.
class PolicyMapHwStatusKey {
  public:
   PolicyMapHwStatusKey() = default;
   PolicyMapHwStatusKey(Kiv::Name pmapName, MapType pmapType, Direction direction)
       : pmapName_(std::move(pmapName)), pmapType_(pmapType), direction_(direction) {}
   Kiv::Name const& pmapName() const { return pmapName_; }
   MapType pmapType() const { return pmapType_; }
   Direction direction() const { return direction_; }
   bool operator==(PolicyMapHwStatusKey const& o) const = default;
   bool operator<(PolicyMapHwStatusKey const& o) const {
      return std::tie(pmapName_, pmapType_, direction_) <
             std::tie(o.pmapName_, o.pmapType_, o.direction_);
   }

  private:
   Kiv::Name pmapName_;
   MapType pmapType_ = mapControlPlane_;
   Direction direction_ = input_;
};

inline std::ostream& operator<<(std::ostream& os, PolicyMapHwStatusKey const& k) {
   return os << k.pmapName() << "," << static_cast<U32>(k.pmapType()) << ","
             << static_cast<U32>(k.direction());
}

}  // namespace Qos

template <>
struct std::hash<Qos::PolicyMapHwStatusKey> {
   std::size_t operator()(Qos::PolicyMapHwStatusKey const& k) const {
      return std::hash<std::string>()(k.pmapName()) * 31 + (k.pmapType() << 4) + k.direction();
   }
};

namespace Qos {

// The hardware status of one applied policy map: the class maps programmed for it.
class PolicyMapHwStatus : public Kiv::Entity {
  public:
   explicit PolicyMapHwStatus(PolicyMapHwStatusKey const& key) : key_(key) {}
   PolicyMapHwStatusKey const& key() const { return key_; }

   KIV_ORDERED_MAP(Kiv::Name, bool, cmap)

  public:
   void cmapIs(Kiv::Name const& cmapName) { cmapIs(cmapName, true); }

  private:
   PolicyMapHwStatusKey key_;
};

// The applied policy maps of one map type.
class PolicyMapTypeSliceHwStatus : public Kiv::Entity {
  public:
   explicit PolicyMapTypeSliceHwStatus(MapType mapType) : mapType_(mapType) {}
   MapType mapType() const { return mapType_; }

   KIV_RECORD_COLLECTION(PolicyMapHwStatusKey, PolicyMapHwStatus, pmapSliceHwStatus)

  private:
   MapType mapType_;
};

// The hardware status of the slice's policy maps, by map type.
class PolicyMapSliceHwStatus : public Kiv::Entity {
  public:
   PolicyMapSliceHwStatus() { hasNotificationActiveIs(true); }

   KIV_RECORD_COLLECTION(MapType, PolicyMapTypeSliceHwStatus, pmapTypeSliceHwStatus)

  public:
   // The status of the applied policy map, or null when its type or itself is unknown.
   Kiv::Ptr<PolicyMapHwStatus> pmapHwStatus(PolicyMapHwStatusKey const& key) const;
   // Creates both levels as needed.
   Kiv::Ptr<PolicyMapHwStatus> pmapHwStatusIs(PolicyMapHwStatusKey const& key);
};

}  // namespace Qos
