#pragma once

// What the traffic steps sent and what became of each packet, kept per flow for the plot.

#include <deque>
#include <string>
#include <vector>

#include "Kiv/Types.h"
#include "host/transcript/SvgPlot.h"

namespace NimbalHost {

// The packets of one flow in one traffic step: when each was sent (seconds since the start) and
// whether it was dropped.
struct TrafficBurst {
   double start = 0;
   U32 pps = 1;
   std::vector<double> times;
   std::vector<bool> dropped;

   // Where no time was kept, the packets were evenly spaced from the start.
   double packetTime(std::size_t i) const {
      return i < times.size() ? times[i] : start + static_cast<double>(i) / pps;
   }
};

// The packets of one interface to one CPU queue, plain or as tunnel traffic.
struct TrafficFlow {
   std::string interface;
   U32 queue = 0;
   std::string queueName;
   bool vxlan = false;
   // A deque, as are the flows: a traffic step fills the bursts of its flows side by side, and
   // adding one must not move those it is filling.
   std::deque<TrafficBurst> bursts;

   U64 offered() const;
   U64 dropped() const;
};

class TrafficLog {
  public:
   // A new burst of the flow; the caller adds a verdict per packet as it sends them.
   TrafficBurst& burstIs(std::string const& interface, U32 queue, std::string const& queueName,
                         bool vxlan, double start, U32 pps);
   std::deque<TrafficFlow> const& flows() const { return flows_; }

   // One panel per flow over the time 0 to `timeEnd`: offered, allowed and dropped packets per
   // second, averaged over bins wide enough to hold a few packets of the flow's slowest burst.
   std::vector<PlotPanel> panels(double timeEnd) const;

  private:
   std::deque<TrafficFlow> flows_;
};

// The smallest of 1, 2 or 5 times a power of ten that is at least `seconds`.
double niceBinWidth(double seconds);

}  // namespace NimbalHost
