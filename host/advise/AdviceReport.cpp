#include "host/advise/AdviceReport.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace NimbalHost {

namespace {

using Json = nlohmann::ordered_json;

std::string format(char const* fmt, double v) {
   char buf[64];
   std::snprintf(buf, sizeof buf, fmt, v);
   return buf;
}

std::string percent(double share) {
   return format("%.1f %%", share * 100);
}

std::string rateText(std::optional<RateBurst> const& rb, bool queueDefault) {
   if (!rb) {
      return "-";
   }
   return std::to_string(rb->rate) + "/" + std::to_string(rb->burst) +
          (queueDefault ? " (queue)" : "");
}

std::string goalText(AdviceRow const& r) {
   return r.maxLoss ? format("%g %%", *r.maxLoss * 100) : "-";
}

double pps(Admitted const& a, double seconds) {
   return seconds > 0 ? static_cast<double>(a.allowed) / seconds : 0.0;
}

// Columns padded to their widest cell; the last column is not padded.
std::string table(std::vector<std::vector<std::string>> const& rows) {
   std::vector<std::size_t> width;
   for (auto const& row : rows) {
      width.resize(std::max(width.size(), row.size()));
      for (std::size_t i = 0; i < row.size(); ++i) {
         width[i] = std::max(width[i], row[i].size());
      }
   }
   std::string out;
   for (auto const& row : rows) {
      std::string line = " ";
      for (std::size_t i = 0; i < row.size(); ++i) {
         line += " " + row[i];
         if (i + 1 < row.size()) {
            line += std::string(width[i] - row[i].size(), ' ');
         }
      }
      out += line + "\n";
   }
   return out;
}

Json rateJson(std::optional<RateBurst> const& rb) {
   if (!rb) {
      return nullptr;
   }
   return Json{{"rate", rb->rate}, {"burst", rb->burst}};
}

Json admittedJson(Admitted const& a, double seconds) {
   return Json{{"offered", a.offered},
               {"allowed", a.allowed},
               {"loss", a.loss()},
               {"admittedPps", pps(a, seconds)}};
}

}  // namespace

std::string adviceText(Advice const& a) {
   std::string out = "advice for " + a.file + ": " + format("%g", a.seconds) + " s of traffic, " +
                     std::to_string(a.trials) + " configurations tried\n";
   std::vector<std::vector<std::string>> rows = {{"interface", "class", "max loss", "today cir/bc",
                                                  "advised cir/bc", "loss today", "loss advised",
                                                  "pps today", "pps advised"}};
   for (AdviceRow const& r : a.rows) {
      rows.push_back(
          {r.key.first, r.key.second, goalText(r), rateText(r.today, r.todayIsQueueDefault),
           r.chosen ? rateText(r.advised, false) : "(not chosen)", percent(r.before.loss()),
           percent(r.after.loss()), format("%.1f", pps(r.before, a.seconds)),
           format("%.1f", pps(r.after, a.seconds))});
   }
   out += table(rows);
   out += "  per-port default rate: today " + std::to_string(a.portDefaultToday) +
          " pps, advised " + std::to_string(a.portDefaultAdvised) + " pps\n";
   std::vector<std::vector<std::string>> ports = {
       {"interface", "to the CPU today", "advised", "budget"}};
   for (PortAdvice const& p : a.ports) {
      ports.push_back({p.interface, format("%.1f pps", pps(p.before, a.seconds)),
                       format("%.1f pps", pps(p.after, a.seconds)),
                       a.cpuBudget ? std::to_string(*a.cpuBudget) + " pps" : "-"});
   }
   out += table(ports);
   if (a.met()) {
      out += "advice: every goal is met\n";
   }
   for (UnmetGoal const& u : a.unmet) {
      out += "advice: cannot be met: " + u.goal + ": " + u.found + " (the best found is above)\n";
   }
   return out;
}

std::string adviceJson(Advice const& a) {
   Json rows = Json::array();
   for (AdviceRow const& r : a.rows) {
      Json row{{"interface", r.key.first}, {"class", r.key.second}, {"chosen", r.chosen}};
      row["maxLoss"] = r.maxLoss ? Json(*r.maxLoss) : Json(nullptr);
      row["today"] = rateJson(r.today);
      row["todayIsQueueDefault"] = r.todayIsQueueDefault;
      row["advised"] = rateJson(r.advised);
      row["before"] = admittedJson(r.before, a.seconds);
      row["after"] = admittedJson(r.after, a.seconds);
      rows.push_back(row);
   }
   Json ports = Json::array();
   for (PortAdvice const& p : a.ports) {
      ports.push_back(Json{{"interface", p.interface},
                           {"before", admittedJson(p.before, a.seconds)},
                           {"after", admittedJson(p.after, a.seconds)}});
   }
   Json unmet = Json::array();
   for (UnmetGoal const& u : a.unmet) {
      unmet.push_back(Json{{"goal", u.goal}, {"found", u.found}});
   }
   Json out{
       {"event", "advice"},
       {"file", a.file},
       {"seconds", a.seconds},
       {"trials", a.trials},
       {"portDefaultRate", Json{{"today", a.portDefaultToday}, {"advised", a.portDefaultAdvised}}}};
   out["cpuBudget"] = a.cpuBudget ? Json(*a.cpuBudget) : Json(nullptr);
   out["classes"] = rows;
   out["ports"] = ports;
   out["met"] = a.met();
   out["unmet"] = unmet;
   return out.dump() + "\n";
}

std::string advisedScenarioJson(Scenario const& s, Advice const& a, std::string const& outPath) {
   namespace fs = std::filesystem;
   fs::path const from = fs::path(s.file).parent_path();
   fs::path const to = fs::absolute(fs::path(outPath)).parent_path();
   // A file the scenario names relative to its own folder, named from the new one.
   auto moved = [&](Json& obj, char const* key) {
      if (obj.contains(key) && obj[key].is_string()) {
         fs::path const p = fs::absolute(from / obj[key].get<std::string>()).lexically_normal();
         obj[key] = p.lexically_relative(to).string();
      }
   };
   Scenario const played = candidateScenario(s, a.advised);
   Json doc;
   doc["description"] = "The advised CoPP configuration for " + s.file +
                        (s.description.empty() ? "" : ": " + s.description);
   Json sw = Json::parse(s.switchValue);
   sw["portDefaultCoppRate"] = a.advised.portDefaultRate;
   doc["switch"] = sw;
   Json steps = Json::array();
   for (ScenarioStep const& st : played.steps) {
      Json value = Json::parse(st.value);
      if (st.name == "traffic" && value.contains("flows")) {
         for (Json& f : value["flows"]) {
            moved(f, "pcap");
            if (f.contains("save")) {
               moved(f["save"], "allowed");
               moved(f["save"], "dropped");
            }
         }
      }
      steps.push_back(Json{{st.name, value}});
   }
   doc["steps"] = steps;
   return doc.dump(2) + "\n";
}

}  // namespace NimbalHost
