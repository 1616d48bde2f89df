#pragma once

#include <functional>
#include <ostream>
#include <tuple>

#include "Kiv/Types.h"

namespace Oskel {

// (module id, port, CPU queue): the key of per-port-queue CoPP state.
class ModIdPortQueueKey {
  public:
   ModIdPortQueueKey() = default;
   ModIdPortQueueKey(U32 modId, U32 port, U32 queue) : modId_(modId), port_(port), queue_(queue) {}
   U32 modId() const { return modId_; }
   U32 port() const { return port_; }
   U32 queue() const { return queue_; }
   bool operator==(ModIdPortQueueKey const& o) const {
      return modId_ == o.modId_ && port_ == o.port_ && queue_ == o.queue_;
   }
   bool operator!=(ModIdPortQueueKey const& o) const { return !(*this == o); }
   bool operator<(ModIdPortQueueKey const& o) const {
      return std::tie(modId_, port_, queue_) < std::tie(o.modId_, o.port_, o.queue_);
   }

  private:
   U32 modId_ = 0;
   U32 port_ = 0;
   U32 queue_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, ModIdPortQueueKey const& k) {
   return os << "(" << k.modId() << "," << k.port() << "," << k.queue() << ")";
}

}  // namespace Oskel

namespace Kiv {
template <class Key>
struct KeyGroups;

// The CPU queues of a port, 64 to a group.
template <>
struct KeyGroups<Oskel::ModIdPortQueueKey> {
   static Oskel::ModIdPortQueueKey group(Oskel::ModIdPortQueueKey const& k) {
      return {k.modId(), k.port(), k.queue() & ~U32(63)};
   }
   static unsigned slot(Oskel::ModIdPortQueueKey const& k) { return k.queue() & 63; }
};
}  // namespace Kiv

template <>
struct std::hash<Oskel::ModIdPortQueueKey> {
   // Cheap and noexcept: the hash tables keyed by it keep no hash code in each node.
   std::size_t operator()(Oskel::ModIdPortQueueKey const& k) const noexcept {
      return (std::size_t(k.modId()) << 42) ^ (std::size_t(k.port()) << 16) ^ k.queue();
   }
};
