#pragma once

#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/Entity.h"
#include "Shim/SimChip.h"

namespace Nimbal {

// The packet driver: packets between the chip and the CPU, counted per (unit, port, queue).
class PktDrv : public Kiv::Entity {
  public:
   PktDrv() { hasNotificationActiveIs(true); }

   // Sends one packet from (unit, port) to a CPU queue through the chip's field processor and
   // counts it as dropped or allowed; true when it reached the CPU. Without a time the packet
   // arrives at the activity clock's now.
   bool sendToCpu(U32 unit, U32 port, U32 queue, U16 innerVlan, double time);
   bool sendToCpu(U32 unit, U32 port, U32 queue, U16 innerVlan = 0);
   // The chip's verdict on the last packet sent.
   Shim::PacketResult const& lastPacket() const { return lastPacket_; }

   // (dropped, allowed) packets of (unit, port, queue) since the queue's last reset.
   std::pair<U64, U64> getDdeCoppCounters(U32 unit, U32 port, U32 queue) const;
   // Sets the counters of (unit, port, queue), as a driver restart or a long run would leave them.
   void ddeCoppCountersIs(U32 unit, U32 port, U32 queue, U64 dropped, U64 allowed);
   // Zeroes the counters of a CPU queue on every port.
   void resetCpuQCounter(unsigned int cpuQId);
   // The queues reset so far, in order.
   std::vector<unsigned int> const& cpuQCounterResets() const { return cpuQCounterResets_; }

  private:
   using Key = std::tuple<U32, U32, U32>;
   // Nodes from the framework's blocks: made as packets first come, port by port, they lie in
   // about the order a show of every queue reads them.
   std::map<Key, std::pair<U64, U64>, std::less<Key>,
            Kiv::NodeAllocator<std::pair<Key const, std::pair<U64, U64>>>>
       counters_;
   std::vector<unsigned int> cpuQCounterResets_;
   Shim::PacketResult lastPacket_;
};

}  // namespace Nimbal
