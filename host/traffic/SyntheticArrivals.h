#pragma once

// The arrival patterns of a synthetic flow.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "host/traffic/Arrivals.h"
#include "host/traffic/SeededRandom.h"

namespace NimbalHost {

// Evenly spaced. Without a jitter seed the packets fall exactly on start + i / pps; with one,
// the first still comes at the start and each later one is displaced inside its own slot
// [i, i + 1) / pps by a slowly wandering phase, so that meters fed by the flow do not lock onto
// its period while the gaps stay close to 1 / pps (a lone meter keeps its burst + rate x time
// arithmetic).
struct ConstantPattern {
   std::optional<std::uint64_t> jitterSeed;
};

// `size` packets at one instant; bursts start at the constant pattern's times of their first
// packets, start + j * size / pps. The flow sends as many packets as the constant pattern; when
// size does not divide them, the last burst, at its own time, carries the remainder.
struct BurstPattern {
   std::uint64_t size = 1;
};

// Exponential gaps of mean 1 / pps from `start` on, until the step ends.
struct PoissonPattern {
   std::uint64_t seed = 0;
};

using ArrivalPattern = std::variant<ConstantPattern, BurstPattern, PoissonPattern>;

// "constant", "bursts" or "poisson".
std::string patternName(ArrivalPattern const& pattern);

// The step a flow plays in: packets in [start, start + seconds).
struct FlowWindow {
   double start = 0;
   double seconds = 0;
   std::uint32_t pps = 0;
};

class ConstantArrivals final : public ArrivalSource {
  public:
   ConstantArrivals(FlowWindow const& window, std::optional<std::uint64_t> jitterSeed);
   bool next(Arrival& out) override;

   // How far the phase may move from one packet to the next, in slots.
   static constexpr double jitterStep = 0.1;

  private:
   FlowWindow window_;
   std::uint64_t count_;
   std::uint64_t sent_ = 0;
   std::optional<SeededRandom> random_;
   double phase_ = 0;  // in slots, within [0, 1)
};

class BurstArrivals final : public ArrivalSource {
  public:
   BurstArrivals(FlowWindow const& window, std::uint64_t size);
   bool next(Arrival& out) override;

  private:
   FlowWindow window_;
   std::uint64_t size_;
   std::uint64_t count_;
   std::uint64_t sent_ = 0;
};

class PoissonArrivals final : public ArrivalSource {
  public:
   PoissonArrivals(FlowWindow const& window, std::uint64_t seed);
   bool next(Arrival& out) override;

  private:
   FlowWindow window_;
   SeededRandom random_;
   double elapsed_ = 0;
   bool done_ = false;
};

// The source of a synthetic flow. Throws TrafficError for a window or a pattern that makes no
// sense (negative or infinite time, bursts of no packets).
std::unique_ptr<ArrivalSource> makeArrivals(ArrivalPattern const& pattern,
                                            FlowWindow const& window);

}  // namespace NimbalHost
