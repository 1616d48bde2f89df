// Traffic to the CPU through the chip: the packets of every flow of a step, merged in time order
// on the virtual clock, one at a time, so that flows of one port meet in its default policer.

#include "host/agent/SimAgent.h"

#include <algorithm>
#include <map>

#include "Kiv/Clock.h"
#include "Orvik/IntfNameCmp.h"
#include "host/traffic/CaptureArrivals.h"
#include "host/traffic/CaptureCheck.h"
#include "host/traffic/CaptureSave.h"
#include "host/traffic/FlowMerge.h"
#include "host/traffic/SyntheticArrivals.h"

namespace NimbalHost {

namespace {

// The jitter of a constant flow: the same on every machine, another for every flow and step.
std::uint64_t jitterSeed(int stepNumber, std::size_t flow) {
   return 0x9E3779B97F4A7C15ull * static_cast<std::uint64_t>(stepNumber) + 0x1000193ull * flow + 1;
}

ArrivalPattern arrivalPattern(step::Flow const& f, int stepNumber, std::size_t index) {
   switch (f.pattern.kind) {
      case step::Pattern::Kind::bursts:
         return BurstPattern{f.pattern.burstSize};
      case step::Pattern::Kind::poisson:
         return PoissonPattern{f.pattern.seed};
      case step::Pattern::Kind::constant:
         break;
   }
   return ConstantPattern{f.exact ? std::nullopt
                                  : std::optional<std::uint64_t>(jitterSeed(stepNumber, index))};
}

struct NoArrivals final : ArrivalSource {
   bool next(Arrival&) override { return false; }
} noArrivals;

// What one flow sends and what became of it, per CPU queue.
struct FlowRun {
   std::optional<SimAgent::TrafficRoute> route;
   std::string pattern;
   // The CPU queue of each slot of the flow's arrivals; none: not sent.
   std::vector<std::optional<U32>> slotQueue;
   std::unique_ptr<ArrivalSource> synthetic;
   std::unique_ptr<CaptureArrivals> capture;
   std::unique_ptr<CaptureSave> save;
   std::map<U32, std::pair<U64, U64>> offeredAllowed;  // by queue
   // Each slot's counts in offeredAllowed once it sent a packet: found once, not per packet.
   std::vector<std::pair<U64, U64>*> slotCounts;
   std::map<U32, TrafficBurst*> plot;  // by queue
   std::optional<U32> firstQueue;      // a synthetic flow's line, also when empty
   ArrivalSource* source() const {
      return capture ? static_cast<ArrivalSource*>(capture.get()) : synthetic.get();
   }
};

}  // namespace

std::optional<U32> SimAgent::flowQueue(std::optional<U32> const& queue, std::string const& cmapName,
                                       std::size_t flow) {
   std::optional<U32> const q = queue ? queue : classes_->queueOfClass(cmapName);
   if (!q) {
      emit(event::TrafficNotSent{event::TrafficNotSent::Reason::noCpuQueue, cmapName, flow});
   }
   return q;
}

std::optional<SimAgent::TrafficRoute> SimAgent::trafficRoute(std::string const& interface,
                                                             bool vxlan, std::size_t flow) {
   NimbalTypes::NimbalPort const source = switch_->port(Orvik::IntfId(interface));
   TrafficRoute r{source.unit(), source.logicalPort(), 0};
   if (!vxlan) {
      return r;
   }
   // Tunnel traffic carries its source port in the inner VLAN id; on chips with the
   // workaround it reaches the CPU from a recirculation port, of the same unit if there is one.
   r.innerVlan = static_cast<U16>(source.logicalPort());
   if (!scenario_.sw.vxlanWorkaround) {
      return r;
   }
   std::vector<std::string> recirc;
   for (auto const& [intf, on] : switch_->scsd()->vxlanRecircIntfCol()) {
      if (on) {
         recirc.push_back(intf.stringValue());
      }
   }
   std::sort(recirc.begin(), recirc.end(), Orvik::intfNameCmp);
   auto sameUnit = std::find_if(recirc.begin(), recirc.end(), [&](std::string const& name) {
      return switch_->port(Orvik::IntfId(name)).unit() == r.unit;
   });
   if (sameUnit == recirc.end()) {
      sameUnit = recirc.begin();
   }
   if (sameUnit == recirc.end()) {
      emit(
          event::TrafficNotSent{event::TrafficNotSent::Reason::noRecirculationInterface, "", flow});
      return std::nullopt;
   }
   // It arrives where the recirculation interface is, which may be another unit.
   NimbalTypes::NimbalPort const recircPort = switch_->port(Orvik::IntfId(*sameUnit));
   r.unit = recircPort.unit();
   r.inPort = recircPort.logicalPort();
   emit(event::TunnelTraffic{interface, *sameUnit, r.innerVlan});
   return r;
}

void SimAgent::traffic(step::Traffic const& s) {
   std::vector<step::Flow> const flows = s.flowList();
   double const t0 = now();
   std::vector<FlowRun> runs(flows.size());
   for (std::size_t i = 0; i < flows.size(); ++i) {
      step::Flow const& f = flows[i];
      FlowRun& run = runs[i];
      if (f.capture) {
         step::Capture const& c = *f.capture;
         CaptureFlow const cf = captureFlowOf(c);
         for (step::CaptureClass const& cc : c.classes) {
            run.slotQueue.push_back(flowQueue(cc.queue, cc.cmapName, i));
         }
         if (!c.ignoresTheRest()) {
            run.slotQueue.push_back(flowQueue(c.otherwise.queue, c.otherwise.cmapName, i));
         }
         run.pattern = "capture";
         run.route = trafficRoute(f.interface, false, i);
         run.capture = std::make_unique<CaptureArrivals>(cf, t0, s.seconds);
         if (!c.saveAllowed.empty() || !c.saveDropped.empty()) {
            run.save =
                std::make_unique<CaptureSave>(run.capture->reader(), c.saveAllowed, c.saveDropped);
         }
      } else {
         run.slotQueue.push_back(flowQueue(f.queue, f.cmapName, i));
         if (!run.slotQueue.back()) {
            continue;
         }
         run.firstQueue = run.slotQueue.back();
         run.route = trafficRoute(f.interface, f.vxlan, i);
         ArrivalPattern const pattern = arrivalPattern(f, stepNumber_, i);
         bool const exact = f.exact && f.pattern.kind == step::Pattern::Kind::constant;
         run.pattern = exact ? "exact" : patternName(pattern);
         run.synthetic = makeArrivals(pattern, FlowWindow{t0, s.seconds, f.pps});
         if (packetCount(f.pps, s.seconds) == 0) {
            emit(event::TrafficEmpty{f.interface, f.pps, s.seconds});
         }
      }
   }

   // A step none of whose flows has somewhere to go sends nothing and takes no time.
   if (std::none_of(runs.begin(), runs.end(),
                    [](FlowRun const& run) { return run.source() && run.route; })) {
      return;
   }
   std::vector<ArrivalSource*> sources;
   for (FlowRun& run : runs) {
      run.slotCounts.resize(run.slotQueue.size());
      if (run.source() && run.route) {
         sources.push_back(run.source());
      } else {
         // A flow that sends nothing still takes its place in the merge.
         sources.push_back(&noArrivals);
      }
   }
   Kiv::Ptr<Nimbal::PktDrv> const pktDrv = switch_->pktDrv();
   auto queueName = [this](U32 q) -> std::string {
      Kiv::Ptr<Nimbal::MmuCpuQ> const cpuQ = switch_->mmuSm()->cpuQColl()->cpuQ(q);
      return cpuQ ? cpuQ->name() : "";
   };
   FlowMerge merge(std::move(sources));
   MergedArrival m;
   // Each packet goes to the chip at its own time; the clock itself is moved only when a timer
   // falls due, since nothing but the timers reads it between packets, and asking it at every
   // packet would cost more than the packet.
   Kiv::Ptr<Kiv::Clock> const clock = Kiv::activityClock();
   double packetTime = clock->now();
   double wake = clock->nextWake();
   while (merge.next(m)) {
      FlowRun& run = runs[m.flow];
      std::optional<U32> const queue = run.slotQueue.at(m.arrival.slot);
      if (!queue) {
         continue;
      }
      packetTime = std::max(packetTime, start_ + m.arrival.time);
      if (packetTime >= wake && packetTime > clock->now()) {
         clock->nowIs(packetTime);
         wake = clock->nextWake();
      }
      step::Flow const& f = flows[m.flow];
      bool const passed = pktDrv->sendToCpu(run.route->unit, run.route->inPort, *queue,
                                            run.route->innerVlan, packetTime);
      std::pair<U64, U64>*& counts = run.slotCounts[m.arrival.slot];
      if (!counts) {
         counts = &run.offeredAllowed[*queue];
      }
      auto& [offered, allowed] = *counts;
      ++offered;
      allowed += passed ? 1 : 0;
      if (recordTraffic_) {
         TrafficBurst*& burst = run.plot[*queue];
         if (!burst) {
            burst = &traffic_.burstIs(f.interface, *queue, queueName(*queue), f.vxlan, t0,
                                      std::max<U32>(f.pps, 1));
         }
         burst->times.push_back(m.arrival.time);
         burst->dropped.push_back(!passed);
      }
      if (run.save) {
         run.save->write(run.capture->header(), run.capture->data(), passed);
      }
   }
   advanceTo(t0 + s.seconds);
   retryWaitingKeys();

   for (std::size_t i = 0; i < runs.size(); ++i) {
      FlowRun& run = runs[i];
      step::Flow const& f = flows[i];
      if (run.save) {
         run.save->close();
      }
      if (run.firstQueue && run.offeredAllowed.empty() && run.route) {
         run.offeredAllowed[*run.firstQueue] = {0, 0};
      }
      for (auto const& [queue, counts] : run.offeredAllowed) {
         emit(event::Traffic{f.interface, queue, this->queueName(queue), f.vxlan, counts.first,
                             counts.second, counts.first - counts.second, i, run.pattern});
      }
      if (run.capture) {
         CaptureCounts const& c = run.capture->counts();
         emit(event::CaptureSummary{i, f.capture->file, c.packets, c.classified, c.ignored});
      }
   }
}

}  // namespace NimbalHost
