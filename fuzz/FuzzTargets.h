#pragma once

// What each fuzzer does with one input, shared by the fuzzers and by the tests that replay
// their corpora and regression inputs in the ordinary builds.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace NimbalFuzz {

// Reads the bytes as a scenario file. Bad input must end in a ScenarioError, which is
// swallowed; anything else escapes. Returns whether the scenario was valid.
bool loadScenarioBytes(std::uint8_t const* data, std::size_t size);

// Plays the scenario that the bytes decode to on a fresh agent, writing its transcript to
// `out`. The activity clock starts from 0 for every input, so the same bytes always play
// the same way.
void playStepBytes(std::uint8_t const* data, std::size_t size, std::FILE* out);

}  // namespace NimbalFuzz
