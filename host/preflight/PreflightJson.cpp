// The preflight for programs: the switch event of the run's JSON Lines, then one preflight
// event with the demand rows, every shortfall with its full list of keys, interfaces or
// classes, the resource messages, injected failures and where the agent would stop.

#include "host/preflight/PreflightJson.h"

#include <nlohmann/json.hpp>

#include "host/transcript/JsonTranscript.h"

namespace NimbalHost {

namespace {

using Json = nlohmann::ordered_json;

char const* whatName(Shortfall::What what) {
   switch (what) {
      case Shortfall::What::kernelKey:
         return "kernelKey";
      case Shortfall::What::vxlanSourcePort:
         return "vxlanSourcePortEntry";
      case Shortfall::What::vxlanDefault:
         return "vxlanDefaultEntry";
      case Shortfall::What::portDefault:
         return "perPortDefaultPolicer";
      case Shortfall::What::classQueue:
         return "classQueue";
   }
   return "";
}

char const* reasonName(Shortage s) {
   switch (s) {
      case Shortage::coppEntry:
         return "egressCoppEntry";
      case Shortage::coppMeter:
         return "egressCoppMeter";
      case Shortage::debugAlwaysFalse:
         return "createCoppPolicerAlwaysFalse";
      case Shortage::vxlanPool:
         return "vxlanSourcePortEntryPool";
      case Shortage::defaultEntry:
         return "defaultAndVxlanEntry";
      case Shortage::defaultMeter:
         return "defaultAndVxlanMeter";
      case Shortage::vxlanDefaultFirst:
         return "vxlanDefaultEntryFirst";
      case Shortage::dynamicCpuQueue:
         return "dynamicCpuQueue";
   }
   return "";
}

Json valueJson(DemandValue const& v) {
   Json j;
   j["step"] = v.step;
   j["demand"] = v.demand;
   if (v.size) {
      j["size"] = *v.size;
   }
   return j;
}

}  // namespace

std::string preflightJson(Scenario const& scenario, DryRun const& actual,
                          std::vector<DemandRow> const& rows, bool fits) {
   ScenarioSwitch const& sw = scenario.sw;
   std::size_t dynamicQueues = 0;
   for (auto const& row : sw.cpuQueues) {
      dynamicQueues += row.dynamic ? 1 : 0;
   }
   std::string out =
       eventJson(TranscriptEvent{
                     0, 0,
                     event::Switch{sw.modules.size(), sw.interfaces.size(),
                                   sw.fabricInterfaces.size(), sw.cpuQueues.size(), dynamicQueues,
                                   sw.portDefaultCoppRate, sw.vxlanWorkaround}})
           .dump() +
       "\n";

   Json j;
   j["event"] = "preflight";
   j["file"] = scenario.file;
   Json pools = Json::array();
   for (DemandRow const& row : rows) {
      Json r;
      r["pool"] = row.pool;
      if (row.unit) {
         r["unit"] = *row.unit;
      }
      r["startUp"] = valueJson(row.startUp());
      r["peak"] = valueJson(row.peak());
      if (std::optional<DemandValue> const worst = row.worst()) {
         r["short"] = {{"step", worst->step}, {"by", worst->demand - *worst->size}};
      }
      pools.push_back(r);
   }
   j["pools"] = pools;
   Json poolChanges = Json::array();
   for (ScenarioStep const& s : scenario.steps) {
      if (std::holds_alternative<step::Resources>(s.action)) {
         poolChanges.push_back(s.number);
      }
   }
   j["poolChanges"] = poolChanges;

   Json shortfalls = Json::array();
   for (std::vector<Shortfall const*> const& items : shortfallGroups(actual)) {
      Shortfall const& first = *items.front();
      Json s;
      s["what"] = whatName(first.what);
      s["reason"] = reasonName(first.reason);
      s["fromStep"] = first.fromStep;
      s["fromTime"] = first.fromTime;
      if (first.toStep) {
         s["toStep"] = *first.toStep;
         s["toTime"] = first.toTime;
         s["programmed"] = first.programmed;
      }
      Json list = Json::array();
      for (Shortfall const* item : items) {
         Json i;
         i["interface"] = item->interface;
         if (item->key) {
            i["modId"] = item->key->modId();
            i["port"] = item->key->port();
            i["queue"] = item->key->queue();
            i["queueName"] = item->queueName;
         }
         if (!item->cmapName.empty()) {
            i["class"] = item->cmapName;
         }
         list.push_back(i);
      }
      s["items"] = list;
      shortfalls.push_back(s);
   }
   j["shortfalls"] = shortfalls;
   j["resourceFullLogs"] = actual.resourceFullLogs;
   j["resourceNormalLogs"] = actual.resourceNormalLogs;
   Json injected = Json::array();
   for (InjectedFailure const& i : actual.injected) {
      Json f;
      f["step"] = i.step;
      if (i.hitStep) {
         f["failedInStep"] = *i.hitStep;
      }
      injected.push_back(f);
   }
   j["injectedFailures"] = injected;
   if (actual.stopStep) {
      j["stop"] = {{"step", *actual.stopStep}, {"reason", actual.stopReason}};
   }
   j["fits"] = fits;
   return out + j.dump() + "\n";
}

}  // namespace NimbalHost
