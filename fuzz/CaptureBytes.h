#pragma once

// What the capture fuzzer does with one input, shared with the test that replays its corpus.

#include <cstddef>
#include <cstdint>

namespace NimbalFuzz {

// Reads the bytes as a capture file and replays it, classified by a few CoPP filters, merged
// with a synthetic flow, saving the verdicts. Bad input must end in a TrafficError, which is
// swallowed; anything else escapes. Returns whether the whole capture was read.
bool replayCaptureBytes(std::uint8_t const* data, std::size_t size);

}  // namespace NimbalFuzz
