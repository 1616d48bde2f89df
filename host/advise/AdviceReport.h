#pragma once

// What the advisor found, for a person (a table and a verdict), for a program (one JSON line)
// and as a scenario that plays the advised configuration.

#include <string>

#include "host/advise/Advisor.h"

namespace NimbalHost {

std::string adviceText(Advice const& a);
std::string adviceJson(Advice const& a);

// The scenario with the advised rates: the switch with the advised default rate, a police step
// for each chosen class, then the scenario's steps without the police and unpolice steps of
// those classes. Capture files are named relative to `outPath`'s folder, so the file plays from
// where it is written.
std::string advisedScenarioJson(Scenario const& s, Advice const& a, std::string const& outPath);

}  // namespace NimbalHost
