#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "Kiv/Types.h"

namespace Orvik {

// The agent's interface identifier, named as the operator knows it ("Ethernet1").
class IntfId {
  public:
   IntfId() = default;
   explicit IntfId(Kiv::String name) : name_(std::move(name)) {}
   IntfId(char const* name) : name_(name) {}

   static IntfId emptyIntfId() { return IntfId(); }
   IntfId const& intfId() const { return *this; }
   Kiv::String const& stringValue() const { return name_; }
   bool empty() const { return name_.empty(); }

   bool operator==(IntfId const& o) const { return name_ == o.name_; }
   bool operator!=(IntfId const& o) const { return name_ != o.name_; }
   bool operator<(IntfId const& o) const { return name_ < o.name_; }

  private:
   Kiv::String name_;
};

inline std::ostream& operator<<(std::ostream& os, IntfId const& i) {
   return os << i.stringValue();
}

}  // namespace Orvik

template <>
struct std::hash<Orvik::IntfId> {
   std::size_t operator()(Orvik::IntfId const& i) const {
      return std::hash<std::string>()(i.stringValue());
   }
};
