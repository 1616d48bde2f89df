#include "host/preflight/Preflight.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <tuple>

#include "Orvik/IntfNameCmp.h"
#include "host/preflight/PreflightJson.h"
#include "host/preflight/PreflightReport.h"
#include "host/scenario/StepText.h"
#include "host/transcript/KeyRanges.h"
#include "host/transcript/SvgPlot.h"
#include "host/transcript/TextTranscript.h"

namespace NimbalHost {

namespace {

std::string ofText(U32 demand, std::optional<U32> size) {
   char buf[64];
   if (size) {
      std::snprintf(buf, sizeof buf, "%7u of %-7u", demand, *size);
   } else {
      std::snprintf(buf, sizeof buf, "%7u%11s", demand, "");
   }
   return buf;
}

std::string rowText(DemandRow const& row) {
   DemandValue const& start = row.startUp();
   DemandValue const& peak = row.peak();
   std::optional<DemandValue> const worst = row.worst();
   char buf[256];
   std::snprintf(buf, sizeof buf, "%-34s%s%s", row.label.c_str(),
                 ofText(start.demand, start.size).c_str(), ofText(peak.demand, peak.size).c_str());
   std::string line = buf;
   if (peak.step > 0) {
      line += "  at step " + std::to_string(peak.step);
   }
   if (worst) {
      line += (peak.step > 0 ? ", " : "  ") + std::to_string(worst->demand - *worst->size) +
              " short" +
              (worst->step > 0 ? " at step " + std::to_string(worst->step) : " at start-up");
   }
   while (!line.empty() && line.back() == ' ') {
      line.pop_back();
   }
   return line;
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

std::string shortfallsText(Scenario const& scenario, DryRun const& run) {
   std::string out;
   for (std::vector<Shortfall const*> const& items : shortfallGroups(run)) {
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
      if (first.key) {
         std::vector<KeyName> keys;
         for (Shortfall const* s : items) {
            keys.push_back({s->interface, s->key->queue(), s->queueName});
         }
         listItems(out, keyRanges(keys, interfaceOrder(scenario)));
      } else {
         std::vector<std::string> names;
         for (Shortfall const* s : items) {
            names.push_back(s->interface + (s->cmapName.empty() ? "" : " " + s->cmapName));
         }
         listItems(out, names);
      }
   }
   return out;
}

std::string injectedText(Scenario const& scenario, InjectedFailure const& i) {
   auto const& fail =
       std::get<step::Fail>(scenario.steps.at(static_cast<std::size_t>(i.step - 1)).action);
   std::string const head = stepName(scenario, i.step) + ": ";
   if (i.hitStep) {
      return head + "the next " + fail.call + " failed, in " + stepName(scenario, *i.hitStep);
   }
   return head + "no " + fail.call + " followed, so nothing failed";
}

}  // namespace

Preflight preflight(Scenario const& scenario) {
   DryRun const actual = dryRun(scenario, false);
   DryRun const roomy = dryRun(scenario, true);
   std::vector<DemandRow> const rows = demandRows(scenario, actual, roomy);

   Preflight p;
   p.resourceFullLogs = actual.resourceFullLogs;
   p.resourceNormalLogs = actual.resourceNormalLogs;
   for (Shortfall const& s : actual.shortfalls) {
      if (s.toStep) {
         continue;
      }
      if (s.what == Shortfall::What::kernelKey) {
         p.waitingKeysAtEnd.insert(*s.key);
      } else if (s.what == Shortfall::What::vxlanSourcePort) {
         p.keysWithoutVxlanEntryAtEnd.insert(*s.key);
      } else if (s.what == Shortfall::What::classQueue) {
         p.classesWithoutQueueAtEnd.insert({s.interface, s.cmapName});
      }
   }
   p.stopStep = actual.stopStep;
   p.stopReason = actual.stopReason;
   p.fits = actual.shortfalls.empty() && p.resourceFullLogs == 0 && !p.stopStep;

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
   for (DemandRow const& row : rows) {
      out += rowText(row) + "\n";
   }
   for (ScenarioStep const& s : scenario.steps) {
      if (std::holds_alternative<step::Resources>(s.action)) {
         out += "pools change in " + stepName(scenario, s.number) + "\n";
      }
   }

   out += "\n";
   if (!actual.shortfalls.empty()) {
      out += "would stay unpoliced:\n" + shortfallsText(scenario, actual);
   }
   if (p.resourceFullLogs || p.resourceNormalLogs) {
      out += "the library would raise QOS_COPP_HW_RESOURCE_FULL " +
             counted(p.resourceFullLogs, "time") + " and QOS_COPP_HW_RESOURCE_NORMAL " +
             counted(p.resourceNormalLogs, "time") + "\n";
   }
   for (InjectedFailure const& i : actual.injected) {
      if (!p.stopStep || i.step <= *p.stopStep) {
         out += "injected: " + injectedText(scenario, i) + "\n";
      }
   }
   if (p.stopStep) {
      out += "the agent would stop " +
             (*p.stopStep == 0 ? std::string("at start-up")
                               : "at step " + std::to_string(*p.stopStep)) +
             ": " + p.stopReason + "\n";
   }
   out += p.fits ? "verdict: everything fits\n" : "verdict: something would not fit\n";
   p.json = preflightJson(scenario, actual, rows, p.fits);
   return p;
}

}  // namespace NimbalHost
