// The advisor's question in a scenario: which classes to keep whole, the CPU budget of a port,
// and the classes whose rates may be chosen. Every class it names must be one the traffic sends
// to, or there is nothing to measure.

#include <algorithm>

#include "host/scenario/JsonReader.h"
#include "host/scenario/NameHints.h"

namespace NimbalHost {

std::vector<std::pair<std::string, std::string>> trafficClasses(Scenario const& s) {
   std::vector<std::pair<std::string, std::string>> out;
   auto add = [&out](std::string const& intf, std::string const& cmapName) {
      if (!cmapName.empty() &&
          std::find(out.begin(), out.end(), std::make_pair(intf, cmapName)) == out.end()) {
         out.emplace_back(intf, cmapName);
      }
   };
   for (ScenarioStep const& st : s.steps) {
      auto const* t = std::get_if<step::Traffic>(&st.action);
      if (!t) {
         continue;
      }
      for (step::Flow const& f : t->flowList()) {
         if (!f.capture) {
            if (!f.queue) {
               add(f.interface, f.cmapName);
            }
            continue;
         }
         for (step::CaptureClass const& c : f.capture->classes) {
            if (!c.queue) {
               add(f.interface, c.cmapName);
            }
         }
         if (!f.capture->otherwise.queue) {
            add(f.interface, f.capture->otherwise.cmapName);
         }
      }
   }
   return out;
}

namespace scenario {

namespace {

std::vector<std::string> classNames(std::vector<std::pair<std::string, std::string>> const& rows) {
   std::vector<std::string> out;
   for (auto const& r : rows) {
      if (std::find(out.begin(), out.end(), r.second) == out.end()) {
         out.push_back(r.second);
      }
   }
   return out;
}

std::string reachedClass(Reader const& r, Json const& v, std::string const& key,
                         std::vector<std::string> const& reached) {
   std::string const name = r.string(v, key);
   if (std::find(reached.begin(), reached.end(), name) != reached.end()) {
      return name;
   }
   std::optional<std::string> const closest = closestName(name, reached);
   r.fail(key, "no traffic step sends to class " + inQuotes(name) +
                   (closest ? "; the closest is " + inQuotes(*closest)
                            : "; the traffic reaches " + joined(reached)));
}

}  // namespace

Advise readAdvise(std::string const& file, Scenario const& s, Json const& v) {
   Reader const r(file, "advise");
   r.object(v, "", {"protect", "cpuBudget", "classes"});
   auto const rows = trafficClasses(s);
   std::vector<std::string> const reached = classNames(rows);
   if (reached.empty()) {
      throw ScenarioError(file + ": advise: there is nothing to advise on: no traffic step " +
                          "sends to a class");
   }
   Advise a;
   if (!v.contains("protect")) {
      r.fail("protect",
             "is missing; it lists the classes to keep whole, "
             "[{\"interface\": ..., \"class\": ..., \"maxLoss\": ...}]");
   }
   Json const& protect = v.at("protect");
   if (!protect.is_array() || protect.empty()) {
      r.fail("protect", "must be a list of one or more goals, not " + shown(protect));
   }
   for (std::size_t i = 0; i < protect.size(); ++i) {
      std::string const at = "protect[" + std::to_string(i) + "]";
      Reader const g = r.within(at + ".");
      Json const& gv = protect.at(i);
      if (!gv.is_object()) {
         r.fail(at,
                "must be an object {\"interface\": ..., \"class\": ..., \"maxLoss\": ...}, "
                "not " +
                    shown(gv));
      }
      g.object(gv, "", {"interface", "class", "maxLoss"});
      AdviseGoal goal;
      goal.interface = g.string(g.member(gv, "", "interface"), "interface");
      goal.cmapName = reachedClass(g, g.member(gv, "", "class"), "class", reached);
      if (goal.interface != "*") {
         if (!s.sw.interface(goal.interface)) {
            std::optional<std::string> const closest =
                closestName(goal.interface, s.sw.interfaceNames());
            g.fail("interface", "unknown interface " + inQuotes(goal.interface) +
                                    (closest ? "; the closest is " + inQuotes(*closest)
                                             : "; use an interface of the switch or \"*\""));
         }
         if (std::find(rows.begin(), rows.end(), std::make_pair(goal.interface, goal.cmapName)) ==
             rows.end()) {
            g.fail("class", "no traffic step sends to class " + inQuotes(goal.cmapName) + " on " +
                                goal.interface);
         }
      }
      Json const& loss = g.member(gv, "", "maxLoss");
      if (!loss.is_number() || loss.get<double>() < 0 || loss.get<double>() > 1) {
         g.fail("maxLoss", "must be a share from 0 to 1 (0.01 is 1 %), not " + shown(loss));
      }
      goal.maxLoss = loss.get<double>();
      a.protect.push_back(goal);
   }
   if (v.contains("cpuBudget")) {
      U32 const budget = r.u32(v.at("cpuBudget"), "cpuBudget");
      if (budget == 0) {
         r.fail("cpuBudget", "must be above 0 packets a second per port, not 0");
      }
      a.cpuBudget = budget;
   }
   if (v.contains("classes")) {
      Json const& classes = v.at("classes");
      if (!classes.is_array() || classes.empty()) {
         r.fail("classes", "must be a list of one or more class names, not " + shown(classes));
      }
      for (std::size_t i = 0; i < classes.size(); ++i) {
         std::string const name =
             reachedClass(r, classes.at(i), "classes[" + std::to_string(i) + "]", reached);
         if (std::find(a.classes.begin(), a.classes.end(), name) != a.classes.end()) {
            r.fail("classes[" + std::to_string(i) + "]", "names " + inQuotes(name) + " twice");
         }
         a.classes.push_back(name);
      }
   }
   return a;
}

}  // namespace scenario
}  // namespace NimbalHost
