#include "host/traffic/CaptureCheck.h"

#include <variant>

#include "host/traffic/CaptureArrivals.h"
#include "host/traffic/TrafficError.h"

namespace NimbalHost {

CaptureFlow captureFlowOf(step::Capture const& c) {
   CaptureFlow cf;
   cf.path = c.path;
   cf.speed = c.speed;
   for (step::CaptureClass const& cc : c.classes) {
      cf.filters.push_back(cc.filter);
   }
   if (!c.ignoresTheRest()) {
      cf.otherwise = cf.filters.size();
   }
   return cf;
}

void checkCaptures(Scenario const& scenario) {
   for (ScenarioStep const& s : scenario.steps) {
      auto const* t = std::get_if<step::Traffic>(&s.action);
      if (!t) {
         continue;
      }
      for (std::size_t i = 0; i < t->flows.size(); ++i) {
         if (!t->flows[i].capture) {
            continue;
         }
         try {
            validateCapture(captureFlowOf(*t->flows[i].capture));
         } catch (TrafficError const& e) {
            throw TrafficError(scenario.file + ": step " + std::to_string(s.number) +
                               " (traffic): key \"flows[" + std::to_string(i) +
                               "].pcap\": " + e.what());
         }
      }
   }
}

}  // namespace NimbalHost
