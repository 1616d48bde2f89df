// Traffic to the CPU through the chip.

#include "host/agent/SimAgent.h"

#include <algorithm>
#include <cmath>

#include "Kiv/Clock.h"
#include "Kiv/Log.h"
#include "Kiv/Type.h"
#include "Orvik/IntfNameCmp.h"
#include "Oskel/VerifyData.h"

namespace NimbalHost {

void SimAgent::traffic(step::Traffic const& s) {
   std::optional<U32> const queue = s.queue ? s.queue : classes_->queueOfClass(s.cmapName);
   if (!queue) {
      emit(event::TrafficNotSent{event::TrafficNotSent::Reason::noCpuQueue, s.cmapName});
      return;
   }
   NimbalTypes::NimbalPort const source = switch_->port(Orvik::IntfId(s.interface));
   U32 unit = source.unit();
   U32 inPort = source.logicalPort();
   U16 innerVlan = 0;
   if (s.vxlan) {
      // Tunnel traffic carries its source port in the inner VLAN id; on chips with the
      // workaround it reaches the CPU from a recirculation port, of the same unit if there is one.
      innerVlan = source.logicalPort();
      if (scenario_.sw.vxlanWorkaround) {
         std::vector<std::string> recirc;
         for (auto const& [intf, on] : switch_->scsd()->vxlanRecircIntfCol()) {
            if (on) {
               recirc.push_back(intf.stringValue());
            }
         }
         std::sort(recirc.begin(), recirc.end(), Orvik::intfNameCmp);
         auto sameUnit = std::find_if(recirc.begin(), recirc.end(), [&](std::string const& name) {
            return switch_->port(Orvik::IntfId(name)).unit() == unit;
         });
         if (sameUnit == recirc.end()) {
            sameUnit = recirc.begin();
         }
         if (sameUnit == recirc.end()) {
            emit(
                event::TrafficNotSent{event::TrafficNotSent::Reason::noRecirculationInterface, ""});
            return;
         }
         // It arrives where the recirculation interface is, which may be another unit.
         NimbalTypes::NimbalPort const recircPort = switch_->port(Orvik::IntfId(*sameUnit));
         unit = recircPort.unit();
         inPort = recircPort.logicalPort();
         emit(event::TunnelTraffic{s.interface, *sameUnit, innerVlan});
      }
   }
   Kiv::Ptr<Nimbal::MmuCpuQ> const cpuQ = switch_->mmuSm()->cpuQColl()->cpuQ(*queue);
   double const t0 = now();
   auto const packets =
       static_cast<std::size_t>(std::floor(static_cast<double>(s.pps) * s.seconds + 1e-9));
   if (packets == 0) {
      emit(event::TrafficEmpty{s.interface, s.pps, s.seconds});
   }
   TrafficBurst& burst =
       traffic_.burstIs(s.interface, *queue, cpuQ ? cpuQ->name() : "", s.vxlan, t0, s.pps);
   burst.dropped.reserve(packets);
   U64 allowed = 0;
   Kiv::Ptr<Nimbal::PktDrv> const pktDrv = switch_->pktDrv();
   for (std::size_t i = 0; i < packets; ++i) {
      advanceTo(burst.packetTime(i));
      bool const passed = pktDrv->sendToCpu(unit, inPort, *queue, innerVlan);
      burst.dropped.push_back(!passed);
      allowed += passed ? 1 : 0;
   }
   advanceTo(t0 + s.seconds);
   retryWaitingKeys();
   emit(event::Traffic{s.interface, *queue, queueName(*queue), s.vxlan, packets, allowed,
                       packets - allowed});
}

}  // namespace NimbalHost
