// libFuzzer target: bytes decoded into a small switch and a sequence of valid steps, played by
// the simulated agent. Nothing in them ends the agent by design, so any abort is a bug.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/FuzzTargets.h"
#include "host/scenario/Scenario.h"

namespace {

// One scratch file for every input's transcript, emptied before each.
std::FILE* scratch() {
   static std::FILE* const file = std::tmpfile();
   if (!file) {
      std::perror("nimbal-fuzz-steps: tmpfile");
      std::abort();
   }
   return file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   std::FILE* const out = scratch();
   std::rewind(out);
   try {
      NimbalFuzz::playStepBytes(data, size, out);
   } catch (NimbalHost::ScenarioError const& e) {
      std::fprintf(stderr, "the decoder made an invalid scenario: %s\n", e.what());
      std::abort();
   }
   return 0;
}
