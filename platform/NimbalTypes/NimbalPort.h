#pragma once

#include <functional>
#include <ostream>

#include "Kiv/Exception.h"
#include "Kiv/Types.h"

// Module id of the chip: valid from min to null; null (64) is the no-module value.
class ModId {
  public:
   static constexpr U16 min = 0;
   static constexpr U16 null = 64;
   ModId() = default;
   explicit ModId(U32 v) : value_(static_cast<U16>(v)) {
      if (value_ > null) {
         throw Kiv::RangeException("ModId::value < ModId::min or > ModId::null not allowed");
      }
   }
   U16 value() const { return value_; }
   bool operator==(ModId const& o) const { return value_ == o.value_; }

  private:
   U16 value_ = null;
};

namespace NimbalTypes {

// The agent's port value: module id, SDK unit, logical port and a fourth word (always 0 here).
class NimbalPort {
  public:
   static constexpr U16 defaultPort = 1023;

   // The default value is the no-port value.
   NimbalPort() = default;
   NimbalPort(U16 modId, U16 unit, U16 logicalPort, U32 flags = 0)
       : modId_(modId), unit_(unit), logicalPort_(logicalPort), flags_(flags) {}
   static NimbalPort noPort() { return NimbalPort(); }

   U16 modId() const { return modId_; }
   U16 unit() const { return unit_; }
   U16 logicalPort() const { return logicalPort_; }
   U32 flags() const { return flags_; }
   bool valid() const { return !(*this == noPort()); }

   bool operator==(NimbalPort const& o) const {
      return modId_ == o.modId_ && unit_ == o.unit_ && logicalPort_ == o.logicalPort_ &&
             flags_ == o.flags_;
   }
   bool operator!=(NimbalPort const& o) const { return !(*this == o); }
   // Module, unit and port in one word, then the fourth: the order of the tuple, in two
   // comparisons. Every port-keyed tree of the agent walks with it.
   bool operator<(NimbalPort const& o) const {
      U64 const a = packed();
      U64 const b = o.packed();
      return a != b ? a < b : flags_ < o.flags_;
   }

  private:
   U64 packed() const { return (U64(modId_) << 32) | (U64(unit_) << 16) | logicalPort_; }

   U16 modId_ = 0xDEAD;
   U16 unit_ = 0xFFFF;
   U16 logicalPort_ = defaultPort;
   U32 flags_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, NimbalPort const& p) {
   return os << "(" << p.modId() << "," << p.unit() << "," << p.logicalPort() << ")";
}

// Checks a logical port as the agent's port type does.
inline U16 checkedLogicalPort(U32 port) {
   if (port > NimbalPort::defaultPort) {
      throw Kiv::RangeException(
          "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed");
   }
   return static_cast<U16>(port);
}

}  // namespace NimbalTypes

template <>
struct std::hash<NimbalTypes::NimbalPort> {
   std::size_t operator()(NimbalTypes::NimbalPort const& p) const {
      return (std::size_t(p.modId()) << 40) ^ (std::size_t(p.unit()) << 24) ^
             (std::size_t(p.logicalPort()) << 4) ^ p.flags();
   }
};
