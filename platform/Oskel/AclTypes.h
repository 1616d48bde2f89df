#pragma once

#include <functional>
#include <ostream>
#include <tuple>

#include "Kiv/Entity.h"

namespace Oskel {

// Identifies an ACL of a policy map class.
class AclKey {
  public:
   AclKey() = default;
   AclKey(Kiv::Name aclName, U32 aclType, U32 seq = 0)
       : aclName_(std::move(aclName)), aclType_(aclType), seq_(seq) {}
   Kiv::Name const& aclName() const { return aclName_; }
   U32 aclType() const { return aclType_; }
   U32 seq() const { return seq_; }
   bool operator==(AclKey const& o) const = default;
   bool operator<(AclKey const& o) const {
      return std::tie(aclName_, aclType_, seq_) < std::tie(o.aclName_, o.aclType_, o.seq_);
   }

  private:
   Kiv::Name aclName_;
   U32 aclType_ = 0;
   U32 seq_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, AclKey const& k) {
   return os << k.aclName() << "," << k.aclType() << "," << k.seq();
}

// An ACL as the agent holds it; its type is 0 for IPv4 and 1 for IPv6.
class AclData : public Kiv::Entity {
  public:
   AclData(Kiv::Name name, U32 aclType) : name_(std::move(name)), aclType_(aclType) {}
   Kiv::Name const& name() const { return name_; }
   U32 aclType() const { return aclType_; }

  private:
   Kiv::Name name_;
   U32 aclType_;
};

// The state of a policy map in the agent.
class QosPolicyMapState : public Kiv::Entity {
  public:
   explicit QosPolicyMapState(Kiv::Name name) : name_(std::move(name)) {}
   Kiv::Name const& name() const { return name_; }

  private:
   Kiv::Name name_;
};

}  // namespace Oskel

template <>
struct std::hash<Oskel::AclKey> {
   std::size_t operator()(Oskel::AclKey const& k) const {
      return std::hash<std::string>()(k.aclName()) * 31 + k.aclType() * 7 + k.seq();
   }
};

namespace Acl {

enum Action : U32 {
   actionPermit_ = 0,
   actionDeny_ = 1,
};

}  // namespace Acl
