#pragma once

#include <string>
#include <vector>

#include "host/preflight/PreflightReport.h"

namespace NimbalHost {

// The preflight as JSON Lines: the switch event, then one preflight event.
std::string preflightJson(Scenario const& scenario, DryRun const& actual,
                          std::vector<DemandRow> const& rows, bool fits);

}  // namespace NimbalHost
