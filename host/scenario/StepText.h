#pragma once

// How a step reads in a transcript or a report, after "step N at T s: ".

#include <string>

#include "host/scenario/Scenario.h"

namespace NimbalHost {

std::string stepText(ScenarioStep const& step);

// Seconds as a person writes them: 60, 0.5.
std::string secondsText(double seconds);

}  // namespace NimbalHost
