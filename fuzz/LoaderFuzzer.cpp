// libFuzzer target: bytes as a scenario file. A ScenarioError is the expected end of bad
// input; a crash, a hang, a leak or a sanitizer report is a bug.

#include <cstddef>
#include <cstdint>

#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   NimbalFuzz::loadScenarioBytes(data, size);
   return 0;
}
