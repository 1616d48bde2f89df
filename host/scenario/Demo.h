#pragma once

// The scenario played when no file is given.

#include <string>

#include "host/scenario/Scenario.h"

namespace NimbalHost {

// How the demo is named in messages and in the transcript.
inline constexpr char demoScenarioName[] = "built-in demo";

std::string const& demoScenarioText();
Scenario demoScenario();

}  // namespace NimbalHost
