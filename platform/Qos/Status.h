#pragma once

#include <functional>
#include <ostream>
#include <tuple>

#include "Kiv/Collection.h"
#include "Qos/Action.h"
#include "Qos/QosTypes.h"

namespace Qos {

// Policy maps and class maps are named within their map type.
class MapKey {
  public:
   MapKey() = default;
   MapKey(MapType mapType, Kiv::Name name) : mapType_(mapType), name_(std::move(name)) {}
   MapType mapType() const { return mapType_; }
   Kiv::Name const& name() const { return name_; }
   bool operator==(MapKey const& o) const = default;
   bool operator<(MapKey const& o) const {
      return std::tie(mapType_, name_) < std::tie(o.mapType_, o.name_);
   }

  private:
   MapType mapType_ = mapControlPlane_;
   Kiv::Name name_;
};

inline std::ostream& operator<<(std::ostream& os, MapKey const& k) {
   return os << k.name() << "," << static_cast<U32>(k.mapType());
}

}  // namespace Qos

template <>
struct std::hash<Qos::MapKey> {
   std::size_t operator()(Qos::MapKey const& k) const {
      return std::hash<std::string>()(k.name()) * 31 + k.mapType();
   }
};

namespace Qos {

// A class of a policy map as the agent has applied it, with its actions by type.
class ClassMapStatus : public Kiv::Entity {
  public:
   explicit ClassMapStatus(MapKey const& key) : key_(key) {}

   MapKey const& key() const { return key_; }
   Kiv::Name const& name() const { return key_.name(); }
   MapType mapType() const { return key_.mapType(); }

   KIV_RECORD_COLLECTION(ActionType, Action, action)

  public:
   // Creates or updates the action of that type with a rate.
   Kiv::Ptr<Action> actionIs(ActionType type, ActionRate const& rate,
                             ActionRateKind kind = actionRateKindAbsolute_);

  private:
   MapKey key_;
};

// A policy map as the agent has applied it: its classes by (map type, name).
class PolicyMapStatus : public Kiv::Entity {
  public:
   explicit PolicyMapStatus(MapKey const& key) : key_(key) {}

   MapKey const& key() const { return key_; }
   Kiv::Name const& name() const { return key_.name(); }
   MapType mapType() const { return key_.mapType(); }

   KIV_RECORD_COLLECTION(MapKey, ClassMapStatus, cmapStatus)

  public:
   Kiv::Ptr<ClassMapStatus> cmapStatus(MapType type, Kiv::Name const& name) const {
      return cmapStatus(MapKey(type, name));
   }
   Kiv::Ptr<ClassMapStatus> cmapStatusIs(MapType type, Kiv::Name const& name) {
      return cmapStatusIs(MapKey(type, name));
   }

  private:
   MapKey key_;
};

// The agent's QoS status: policy maps by (map type, name), with their classes and actions.
class Status : public Kiv::Entity {
  public:
   Status() { hasNotificationActiveIs(true); }

   KIV_RECORD_COLLECTION(MapKey, PolicyMapStatus, pmapStatus)

  public:
   Kiv::Ptr<PolicyMapStatus> pmapStatus(MapType type, Kiv::Name const& name) const {
      return pmapStatus(MapKey(type, name));
   }
   Kiv::Ptr<PolicyMapStatus> pmapStatusIs(MapType type, Kiv::Name const& name) {
      return pmapStatusIs(MapKey(type, name));
   }

   // The class of a policy map, or null when either is unknown.
   Kiv::Ptr<ClassMapStatus> cmapStatus(MapType pmapType, Kiv::Name const& pmapName,
                                       MapType cmapType, Kiv::Name const& cmapName) const;
};

// The agent's per-slice ACL state of QoS.
class AclSliceHwStatus : public Kiv::Entity {};

// The agent's hardware status of QoS ACLs.
class AclHwStatus : public Kiv::Entity {};

}  // namespace Qos
