#include "host/preflight/PreflightReport.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "Orvik/IntfNameCmp.h"
#include "host/scenario/StepText.h"

namespace NimbalHost {

DemandValue const& DemandRow::peak() const {
   DemandValue const* peak = &values.front();
   for (DemandValue const& v : values) {
      if (v.demand > peak->demand) {
         peak = &v;
      }
   }
   return *peak;
}

std::optional<DemandValue> DemandRow::worst() const {
   std::optional<DemandValue> worst;
   long long worstShort = 0;
   for (DemandValue const& v : values) {
      long long const shortBy = v.size ? static_cast<long long>(v.demand) - *v.size : 0;
      if (shortBy > worstShort) {
         worstShort = shortBy;
         worst = v;
      }
   }
   return worst;
}

std::string stepName(Scenario const& scenario, int step) {
   if (step == 0) {
      return "start-up";
   }
   return "step " + std::to_string(step) + " (" +
          stepText(scenario.steps.at(static_cast<std::size_t>(step - 1))) + ")";
}

std::vector<std::string> interfaceOrder(Scenario const& scenario) {
   std::vector<std::string> out;
   for (auto const* list : {&scenario.sw.interfaces, &scenario.sw.fabricInterfaces}) {
      for (ScenarioInterface const& i : *list) {
         out.push_back(i.name);
      }
   }
   return out;
}

std::vector<DemandRow> demandRows(Scenario const& scenario, DryRun const& actual,
                                  DryRun const& roomy) {
   // The demand after a step is that of the run with room; the sizes are the scenario's.
   auto wanted = [&roomy](int step) -> Snapshot const& {
      Snapshot const* found = &roomy.snapshots.front();
      for (Snapshot const& s : roomy.snapshots) {
         if (s.step <= step) {
            found = &s;
         }
      }
      return *found;
   };
   std::vector<DemandRow> rows;
   auto row = [&](std::string label, std::string pool, std::optional<U16> unit, auto read) {
      DemandRow r{std::move(label), std::move(pool), unit, {}};
      for (Snapshot const& s : actual.snapshots) {
         auto const [demand, size] = read(wanted(s.step), s);
         r.values.push_back({s.step, demand, size});
      }
      rows.push_back(std::move(r));
   };
   using Size = std::optional<U32>;
   bool const vxlan = scenario.sw.vxlanWorkaround;
   std::vector<U16> units;
   for (auto const& [unit, use] : actual.snapshots.front().units) {
      units.push_back(unit);
   }
   for (U16 unit : units) {
      std::string const u = "unit " + std::to_string(unit) + " ";
      auto of = [unit](Snapshot const& s) -> UnitUse {
         auto it = s.units.find(unit);
         return it == s.units.end() ? UnitUse() : it->second;
      };
      auto defaults = [](UnitUse const& w) {
         return w.portDefaults + w.vxlanDefaults + w.vxlanSourcePort;
      };
      row(u + "egress CoPP entries", "egressCoppEntries", unit,
          [&](Snapshot const& w, Snapshot const& a) {
             return std::make_pair(of(w).coppEntries.inUse + of(w).waitingKeys,
                                   Size(of(a).coppEntries.size));
          });
      row(u + "egress CoPP meters", "egressCoppMeters", unit,
          [&](Snapshot const& w, Snapshot const& a) {
             return std::make_pair(of(w).coppMeters.inUse + of(w).waitingKeys,
                                   Size(of(a).coppMeters.size));
          });
      row(u + "default-and-VXLAN entries", "defaultAndVxlanEntries", unit,
          [&](Snapshot const& w, Snapshot const& a) {
             return std::make_pair(defaults(of(w)), Size(of(a).defaultEntries.size));
          });
      row(u + "default-and-VXLAN meters", "defaultAndVxlanMeters", unit,
          [&](Snapshot const& w, Snapshot const& a) {
             return std::make_pair(defaults(of(w)), Size(of(a).defaultMeters.size));
          });
      row("  per-port default policers", "perPortDefaultPolicers", unit,
          [&](Snapshot const& w, Snapshot const&) {
             return std::make_pair(of(w).portDefaults, Size());
          });
      if (vxlan) {
         row("  VXLAN default entries", "vxlanDefaultEntries", unit,
             [&](Snapshot const& w, Snapshot const&) {
                return std::make_pair(of(w).vxlanDefaults, Size());
             });
         row("  VXLAN source-port entries", "vxlanSourcePortEntries", unit,
             [&](Snapshot const& w, Snapshot const&) {
                return std::make_pair(of(w).vxlanSourcePort, Size());
             });
      }
   }
   if (vxlan) {
      row("VXLAN source-port entry pool", "vxlanSourcePortEntryPool", std::nullopt,
          [](Snapshot const& w, Snapshot const& a) {
             U32 demand = 0;
             for (auto const& [unit, use] : w.units) {
                demand += use.vxlanSourcePort;
             }
             return std::make_pair(demand, Size(a.vxlanPool.size));
          });
   }
   row("dynamic CPU queues", "dynamicCpuQueues", std::nullopt,
       [](Snapshot const& w, Snapshot const& a) {
          return std::make_pair(w.dynamicClasses, Size(a.dynamicCpuQueues.size));
       });
   return rows;
}

std::vector<std::vector<Shortfall const*>> shortfallGroups(DryRun const& run) {
   using Group = std::tuple<int, int, double, int, int, double, bool>;
   std::map<Group, std::vector<Shortfall const*>> groups;
   for (Shortfall const& s : run.shortfalls) {
      groups[Group(s.fromStep, static_cast<int>(s.what), s.fromTime, static_cast<int>(s.reason),
                   s.toStep.value_or(-1), s.toTime, s.programmed)]
          .push_back(&s);
   }
   std::vector<std::vector<Shortfall const*>> out;
   for (auto& [group, items] : groups) {
      std::sort(items.begin(), items.end(), [](Shortfall const* a, Shortfall const* b) {
         if (a->key && b->key) {
            return *a->key < *b->key;
         }
         if (a->interface != b->interface) {
            return Orvik::intfNameCmp(a->interface, b->interface);
         }
         return a->cmapName < b->cmapName;
      });
      out.push_back(std::move(items));
   }
   return out;
}

}  // namespace NimbalHost
