#include "Nimbal/PktDrv.h"

#include "Kiv/Clock.h"
#include "Shim/Sdk.h"

namespace Nimbal {

bool PktDrv::sendToCpu(U32 unit, U32 port, U32 queue, U16 innerVlan) {
   return sendToCpu(unit, port, queue, innerVlan, Kiv::activityClock()->now());
}

bool PktDrv::sendToCpu(U32 unit, U32 port, U32 queue, U16 innerVlan, double time) {
   lastPacket_ = ::Shim::sdk_->chip().sendToCpu(static_cast<int>(unit), static_cast<int>(port),
                                                static_cast<int>(queue), innerVlan, time);
   auto& c = counters_[{unit, port, queue}];
   if (lastPacket_.dropped) {
      ++c.first;
   } else {
      ++c.second;
   }
   return !lastPacket_.dropped;
}

std::pair<U64, U64> PktDrv::getDdeCoppCounters(U32 unit, U32 port, U32 queue) const {
   auto it = counters_.find({unit, port, queue});
   return it == counters_.end() ? std::pair<U64, U64>(0, 0) : it->second;
}

void PktDrv::ddeCoppCountersIs(U32 unit, U32 port, U32 queue, U64 dropped, U64 allowed) {
   counters_[{unit, port, queue}] = {dropped, allowed};
}

void PktDrv::resetCpuQCounter(unsigned int cpuQId) {
   cpuQCounterResets_.push_back(cpuQId);
   for (auto& kv : counters_) {
      if (std::get<2>(kv.first) == cpuQId) {
         kv.second = {0, 0};
      }
   }
}

}  // namespace Nimbal
