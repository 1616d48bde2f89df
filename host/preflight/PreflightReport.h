#pragma once

// What the preflight report is made of, shared by its text and its JSON form: the demand rows
// (read from the run with room for all and set against the pools of the run as the scenario
// has them) and the shortfalls grouped as they read.

#include <optional>
#include <string>
#include <vector>

#include "host/preflight/DryRun.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

struct DemandValue {
   int step = 0;
   U32 demand = 0;
   std::optional<U32> size;  // none: a part of a pool's demand
};

struct DemandRow {
   std::string label;  // as the text writes it
   std::string pool;   // as JSON names it
   std::optional<U16> unit;
   std::vector<DemandValue> values;  // after the start-up and each step
   DemandValue const& startUp() const { return values.front(); }
   // The first highest demand.
   DemandValue const& peak() const;
   // The largest shortfall (demand over size) and where it first is, if any.
   std::optional<DemandValue> worst() const;
};

std::vector<DemandRow> demandRows(Scenario const& scenario, DryRun const& actual,
                                  DryRun const& roomy);

// Shortfalls that start and end together, for the same reason, read as one; items in order.
std::vector<std::vector<Shortfall const*>> shortfallGroups(DryRun const& run);

// The switch's interfaces in their order.
std::vector<std::string> interfaceOrder(Scenario const& scenario);

std::string stepName(Scenario const& scenario, int step);

}  // namespace NimbalHost
