#include "host/preflight/Preflight.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <tuple>
#include <vector>

#include "Orvik/IntfNameCmp.h"
#include "host/scenario/StepText.h"
#include "host/transcript/SvgPlot.h"
#include "host/transcript/TextTranscript.h"

namespace NimbalHost {

namespace {

using Pool = CoppResourceModel::Pool;
using Shortfall = CoppResourceModel::Shortfall;

// The pools after the start-up (step 0) and after each step.
struct Snapshot {
   int step = 0;
   std::map<U16, CoppResourceModel::UnitPools> units;
   Pool vxlanPool;
   Pool dynamicCpuQueues;
};

// A line of the demand table: what is wanted of a pool (and its size, for a pool) over time.
struct Row {
   std::string label;
   std::function<std::pair<U32, std::optional<U32>>(Snapshot const&)> read;
};

std::string ofText(U32 demand, std::optional<U32> size) {
   char buf[64];
   if (size) {
      std::snprintf(buf, sizeof buf, "%7u of %-7u", demand, *size);
   } else {
      std::snprintf(buf, sizeof buf, "%7u%11s", demand, "");
   }
   return buf;
}

std::string stepName(Scenario const& scenario, int step) {
   if (step == 0) {
      return "start-up";
   }
   return "step " + std::to_string(step) + " (" +
          stepText(scenario.steps.at(static_cast<std::size_t>(step - 1))) + ")";
}

std::string rowText(Row const& row, std::vector<Snapshot> const& snapshots) {
   auto const [startDemand, startSize] = row.read(snapshots.front());
   Snapshot const* peak = &snapshots.front();
   Snapshot const* worst = nullptr;
   long long worstShort = 0;
   for (Snapshot const& s : snapshots) {
      auto const [demand, size] = row.read(s);
      if (demand > row.read(*peak).first) {
         peak = &s;
      }
      long long const shortBy = size ? static_cast<long long>(demand) - *size : 0;
      if (shortBy > worstShort) {
         worstShort = shortBy;
         worst = &s;
      }
   }
   auto const [peakDemand, peakSize] = row.read(*peak);
   char buf[256];
   std::snprintf(buf, sizeof buf, "%-34s%s%s", row.label.c_str(),
                 ofText(startDemand, startSize).c_str(), ofText(peakDemand, peakSize).c_str());
   std::string line = buf;
   if (peak->step > 0) {
      line += "  at step " + std::to_string(peak->step);
   }
   if (worst) {
      line += (peak->step > 0 ? ", " : "  ") + std::to_string(worstShort) + " short" +
              (worst->step > 0 ? " at step " + std::to_string(worst->step) : " at start-up");
   }
   while (!line.empty() && line.back() == ' ') {
      line.pop_back();
   }
   return line;
}

std::vector<Row> demandRows(Scenario const& scenario, std::vector<U16> const& units) {
   std::vector<Row> rows;
   bool const vxlan = scenario.sw.vxlanWorkaround;
   for (U16 unit : units) {
      std::string const u = "unit " + std::to_string(unit) + " ";
      auto pool = [unit](Pool CoppResourceModel::UnitPools::*member) {
         return [unit, member](Snapshot const& s) {
            Pool const& p = s.units.at(unit).*member;
            return std::make_pair(p.demand, std::optional<U32>(p.size));
         };
      };
      auto part = [unit](U32 CoppResourceModel::UnitPools::*member) {
         return [unit, member](Snapshot const& s) {
            return std::make_pair(s.units.at(unit).*member, std::optional<U32>());
         };
      };
      using UP = CoppResourceModel::UnitPools;
      rows.push_back({u + "egress CoPP entries", pool(&UP::coppEntries)});
      rows.push_back({u + "egress CoPP meters", pool(&UP::coppMeters)});
      rows.push_back({u + "default-and-VXLAN entries", pool(&UP::defaultEntries)});
      rows.push_back({u + "default-and-VXLAN meters", pool(&UP::defaultMeters)});
      rows.push_back({"  per-port default policers", part(&UP::portDefaultsWanted)});
      if (vxlan) {
         rows.push_back({"  VXLAN default entries", part(&UP::vxlanDefaultsWanted)});
         rows.push_back({"  VXLAN source-port entries", part(&UP::vxlanSourcePortWanted)});
      }
   }
   if (vxlan) {
      rows.push_back({"VXLAN source-port entry pool", [](Snapshot const& s) {
                         return std::make_pair(s.vxlanPool.demand,
                                               std::optional<U32>(s.vxlanPool.size));
                      }});
   }
   rows.push_back({"dynamic CPU queues", [](Snapshot const& s) {
                      return std::make_pair(s.dynamicCpuQueues.demand,
                                            std::optional<U32>(s.dynamicCpuQueues.size));
                   }});
   return rows;
}

// "2 kernel CoPP keys have", "1 interface has".
std::string subject(std::size_t n, Shortfall::What what) {
   bool const one = n == 1;
   switch (what) {
      case Shortfall::What::kernelKey:
         return counted(n, "kernel CoPP key") + (one ? " is" : " are") + " not programmed";
      case Shortfall::What::vxlanSourcePort:
         return counted(n, "kernel CoPP key") + (one ? " has" : " have") +
                " no VXLAN source-port entry";
      case Shortfall::What::vxlanDefault:
         return counted(n, "interface") + (one ? " has" : " have") + " no VXLAN default entry";
      case Shortfall::What::portDefault:
         return counted(n, "interface") + (one ? " has" : " have") +
                " no per-port default CoPP policer";
      case Shortfall::What::classQueue:
         return counted(n, "police action") + (one ? " is" : " are") + " not programmed";
   }
   return "";
}

// Items listed after a blank-indented line, wrapped.
void listItems(std::string& out, std::vector<std::string> const& items) {
   std::string all;
   for (std::string const& item : items) {
      all += (all.empty() ? "" : ", ") + item;
   }
   for (std::string const& line : wrapped(all, 92)) {
      out += "    " + line + "\n";
   }
}

std::string shortfallsText(Scenario const& scenario, CoppResourceModel const& model) {
   // Shortfalls that start and end together, for the same reason, read as one.
   using Group = std::tuple<int, int, double, int, int, double, bool>;
   std::map<Group, std::vector<Shortfall const*>> groups;
   for (Shortfall const& s : model.shortfalls()) {
      groups[Group(s.fromStep, static_cast<int>(s.what), s.fromTime, static_cast<int>(s.reason),
                   s.toStep.value_or(-1), s.toTime, s.programmed)]
          .push_back(&s);
   }
   std::string out;
   for (auto const& [group, items] : groups) {
      Shortfall const& first = *items.front();
      std::string line = stepName(scenario, first.fromStep) + " at " + timeText(first.fromTime) +
                         " s: " + subject(items.size(), first.what) + " (" +
                         shortageText(first.reason) + ")";
      if (!first.toStep) {
         line += ", to the end";
      } else if (first.programmed) {
         line += "; programmed in step " + std::to_string(*first.toStep) + " at " +
                 timeText(first.toTime) + " s";
      } else {
         line += "; no longer wanted from step " + std::to_string(*first.toStep);
      }
      std::vector<std::string> const lines = wrapped(line, 98);
      for (std::size_t i = 0; i < lines.size(); ++i) {
         out += (i ? "    " : "  ") + lines[i] + "\n";
      }
      std::vector<Shortfall const*> sorted = items;
      std::sort(sorted.begin(), sorted.end(), [](Shortfall const* a, Shortfall const* b) {
         if (a->key && b->key) {
            return *a->key < *b->key;
         }
         if (a->interface != b->interface) {
            return Orvik::intfNameCmp(a->interface, b->interface);
         }
         return a->cmapName < b->cmapName;
      });
      std::vector<std::string> names;
      for (Shortfall const* s : sorted) {
         names.push_back(s->key ? model.keyText(*s->key)
                                : s->interface + (s->cmapName.empty() ? "" : " " + s->cmapName));
      }
      listItems(out, names);
   }
   return out;
}

}  // namespace

Preflight preflight(Scenario const& scenario) {
   CoppResourceModel model(scenario);
   std::vector<Snapshot> snapshots;
   auto snapshot = [&](int step) {
      snapshots.push_back({step, model.units(), model.vxlanPool(), model.dynamicCpuQueues()});
   };
   snapshot(0);
   for (ScenarioStep const& s : scenario.steps) {
      model.play(s);
      if (model.stop()) {
         break;
      }
      snapshot(s.number);
   }

   Preflight p;
   for (CoppResourceModel::LogLine const& l : model.logs()) {
      p.resourceFullLogs += l.key == "QOS_COPP_HW_RESOURCE_FULL" ? 1 : 0;
      p.resourceNormalLogs += l.key == "QOS_COPP_HW_RESOURCE_NORMAL" ? 1 : 0;
   }
   p.waitingKeysAtEnd = model.waitingKeys();
   p.keysWithoutVxlanEntryAtEnd = model.keysWithoutVxlanEntry();
   p.classesWithoutQueueAtEnd = model.classesWithoutQueue();
   if (model.stop()) {
      p.stopStep = model.stopStep();
   }
   p.fits = model.shortfalls().empty() && p.resourceFullLogs == 0 && !model.stop();

   std::string& out = p.text;
   out += "preflight: " + scenario.file + "\n";
   ScenarioSwitch const& sw = scenario.sw;
   std::size_t dynamicQueues = 0;
   for (auto const& row : sw.cpuQueues) {
      dynamicQueues += row.dynamic ? 1 : 0;
   }
   out += eventText(
       TranscriptEvent{0, 0,
                       event::Switch{sw.modules.size(), sw.interfaces.size(),
                                     sw.fabricInterfaces.size(), sw.cpuQueues.size(), dynamicQueues,
                                     sw.portDefaultCoppRate, sw.vxlanWorkaround}});

   char header[128];
   std::snprintf(header, sizeof header, "%-34s%12s%18s", "hardware wanted", "start-up", "peak");
   out += std::string("\n") + header + "\n";
   std::vector<U16> units;
   for (auto const& [unit, pools] : model.units()) {
      units.push_back(unit);
   }
   for (Row const& row : demandRows(scenario, units)) {
      out += rowText(row, snapshots) + "\n";
   }
   for (ScenarioStep const& s : scenario.steps) {
      if (std::holds_alternative<step::Resources>(s.action)) {
         out += "pools change in " + stepName(scenario, s.number) + "\n";
      }
   }

   out += "\n";
   if (!model.shortfalls().empty()) {
      out += "would stay unpoliced:\n" + shortfallsText(scenario, model);
   }
   if (p.resourceFullLogs || p.resourceNormalLogs) {
      out += "the library would raise QOS_COPP_HW_RESOURCE_FULL " +
             counted(p.resourceFullLogs, "time") + " and QOS_COPP_HW_RESOURCE_NORMAL " +
             counted(p.resourceNormalLogs, "time") + "\n";
   }
   if (model.stop()) {
      out += "the agent would stop in " + stepName(scenario, model.stopStep()) + ": " +
             *model.stop() + "\n";
   }
   for (int step : model.unmodelledSteps()) {
      if (!model.stop() || step < model.stopStep()) {
         out += "not foreseen: " + stepName(scenario, step) +
                " makes an SDK call fail, which may change what follows\n";
      }
   }
   out += p.fits ? "verdict: everything fits\n" : "verdict: something would not fit\n";
   return p;
}

}  // namespace NimbalHost
