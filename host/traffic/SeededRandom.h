#pragma once

// Random numbers that are the same on every machine: the standard fixes the raw output of
// mt19937_64, but not what its distributions make of it, so the conversions are our own.

#include <cmath>
#include <cstdint>
#include <random>

namespace NimbalHost {

class SeededRandom {
  public:
   explicit SeededRandom(std::uint64_t seed) : engine_(seed) {}

   // Uniform in [0, 1): the top 53 bits of one output, exactly representable.
   double uniform() { return static_cast<double>(engine_() >> 11) * 0x1.0p-53; }

   // Exponential with mean `mean`; 1 - u is in (0, 1], so the log is finite.
   double exponential(double mean) { return -std::log(1.0 - uniform()) * mean; }

   std::uint64_t raw() { return engine_(); }

  private:
   std::mt19937_64 engine_;
};

}  // namespace NimbalHost
