#pragma once

// Fuzzer bytes as a scenario of the simulated agent: a small switch and a sequence of valid
// steps. What ends the agent by design is left out by construction (failed SDK calls, class
// policers on ports without a per-port default entry), so that any abort is a bug.

#include <cstddef>
#include <cstdint>
#include <string>

namespace NimbalFuzz {

// At most this many interfaces, steps and packets per traffic step: each input stays cheap.
inline constexpr std::size_t maxInterfaces = 4;
inline constexpr std::size_t maxSteps = 40;
inline constexpr double maxTrafficPackets = 300;

// The scenario, as JSON text that the scenario loader accepts.
std::string stepScenarioText(std::uint8_t const* data, std::size_t size);

}  // namespace NimbalFuzz
