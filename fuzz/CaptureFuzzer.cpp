// libFuzzer target: bytes as a capture file, replayed. A TrafficError is the expected end of
// bad input; a crash, a hang, a leak or a sanitizer report is a bug.

#include <cstddef>
#include <cstdint>

#include "fuzz/CaptureBytes.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   NimbalFuzz::replayCaptureBytes(data, size);
   return 0;
}
