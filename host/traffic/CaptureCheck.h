#pragma once

// The captures a scenario replays, checked before anything runs: each file can be read, every
// record is whole and every filter compiles against the capture's link type.

#include "host/scenario/Scenario.h"

namespace NimbalHost {

// Throws TrafficError with one line that names the scenario, the step and the flow.
void checkCaptures(Scenario const& scenario);

// The replay settings of a capture flow.
struct CaptureFlow;
CaptureFlow captureFlowOf(step::Capture const& capture);

}  // namespace NimbalHost
