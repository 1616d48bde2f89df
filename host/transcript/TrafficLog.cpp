#include "host/transcript/TrafficLog.h"

#include <algorithm>
#include <cmath>

namespace NimbalHost {

namespace {

// Beyond this many bins a line is finer than the chart can show.
constexpr double maxBins = 240;
// The slowest burst of a flow still shows this many packets per bin.
constexpr double packetsPerBin = 5;

}  // namespace

U64 TrafficFlow::offered() const {
   U64 n = 0;
   for (auto const& b : bursts) {
      n += b.dropped.size();
   }
   return n;
}

U64 TrafficFlow::dropped() const {
   U64 n = 0;
   for (auto const& b : bursts) {
      n += static_cast<U64>(std::count(b.dropped.begin(), b.dropped.end(), true));
   }
   return n;
}

double niceBinWidth(double seconds) {
   if (!(seconds > 0)) {
      return 1.0;
   }
   double const power = std::pow(10.0, std::floor(std::log10(seconds)));
   for (double m : {1.0, 2.0, 5.0, 10.0}) {
      if (m * power >= seconds * 0.999999) {
         return m * power;
      }
   }
   return 10 * power;
}

TrafficBurst& TrafficLog::burstIs(std::string const& interface, U32 queue,
                                  std::string const& queueName, bool vxlan, double start, U32 pps) {
   auto it = std::find_if(flows_.begin(), flows_.end(), [&](TrafficFlow const& f) {
      return f.interface == interface && f.queue == queue && f.vxlan == vxlan;
   });
   if (it == flows_.end()) {
      flows_.push_back({interface, queue, queueName, vxlan, {}});
      it = flows_.end() - 1;
   }
   it->bursts.push_back({start, pps, {}, {}});
   return it->bursts.back();
}

std::vector<PlotPanel> TrafficLog::panels(double timeEnd) const {
   std::vector<PlotPanel> out;
   double const end = timeEnd > 0 ? timeEnd : 1.0;
   for (TrafficFlow const& flow : flows_) {
      double slowest = 0;
      for (auto const& b : flow.bursts) {
         // A capture's rate is what it sent; a synthetic flow's is its own.
         double const span = b.times.size() > 1 ? b.times.back() - b.times.front() : 0;
         double const rate =
             span > 0 ? std::max<double>(b.pps, static_cast<double>(b.times.size() - 1) / span)
                      : b.pps;
         slowest = slowest > 0 ? std::min(slowest, rate) : rate;
      }
      double const width =
          niceBinWidth(std::max(end / maxBins, packetsPerBin / std::max(slowest, 1.0)));
      std::size_t const bins =
          std::max<std::size_t>(1, static_cast<std::size_t>(std::ceil(end / width - 1e-9)));
      std::vector<double> offered(bins, 0), allowed(bins, 0), dropped(bins, 0);
      for (auto const& b : flow.bursts) {
         for (std::size_t i = 0; i < b.dropped.size(); ++i) {
            auto bin = static_cast<std::size_t>(std::floor(b.packetTime(i) / width + 1e-9));
            bin = std::min(bin, bins - 1);
            offered[bin] += 1;
            (b.dropped[i] ? dropped : allowed)[bin] += 1;
         }
      }
      for (auto* series : {&offered, &allowed, &dropped}) {
         for (double& v : *series) {
            v /= width;
         }
      }
      PlotPanel panel;
      panel.title = flow.interface + " to CPU queue " + std::to_string(flow.queue) + " (" +
                    flow.queueName + ")" + (flow.vxlan ? ", VXLAN tunnel traffic" : "");
      U64 const total = flow.offered();
      U64 const lost = flow.dropped();
      panel.subtitle = "offered " + std::to_string(total) + ", allowed " +
                       std::to_string(total - lost) + ", dropped " + std::to_string(lost) +
                       " packets; rates averaged over " + tickLabel(width) + " s";
      panel.binWidth = width;
      // Allowed and dropped are often equal: the dropped line is dashed over a wider allowed one.
      panel.series = {{"offered", "#1f77b4", offered, 1.5, ""},
                      {"allowed", "#2ca02c", allowed, 3, ""},
                      {"dropped", "#d62728", dropped, 2, "6,4"}};
      out.push_back(std::move(panel));
   }
   return out;
}

}  // namespace NimbalHost
