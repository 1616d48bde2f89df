#include "host/traffic/SyntheticArrivals.h"

#include <cmath>

#include "host/traffic/TrafficError.h"

namespace NimbalHost {

std::uint64_t packetCount(double pps, double seconds) {
   // The margin keeps products such as 10 x 0.3 from rounding down a whole packet.
   double const n = std::floor(pps * seconds + 1e-9);
   return n > 0 ? static_cast<std::uint64_t>(n) : 0;
}

std::string patternName(ArrivalPattern const& pattern) {
   switch (pattern.index()) {
      case 0:
         return "constant";
      case 1:
         return "bursts";
      default:
         return "poisson";
   }
}

namespace {

double slotTime(FlowWindow const& w, double slots) {
   return w.start + slots / w.pps;
}

}  // namespace

ConstantArrivals::ConstantArrivals(FlowWindow const& window,
                                   std::optional<std::uint64_t> jitterSeed)
    : window_(window), count_(packetCount(window.pps, window.seconds)) {
   if (jitterSeed) {
      random_.emplace(*jitterSeed);
   }
}

bool ConstantArrivals::next(Arrival& out) {
   if (sent_ == count_) {
      return false;
   }
   auto const i = static_cast<double>(sent_);
   double t = slotTime(window_, i + phase_);
   // The last slot may end a hair past the step when pps x seconds was rounded up.
   if (t >= window_.start + window_.seconds) {
      t = slotTime(window_, i);
   }
   out = Arrival{t, 0};
   ++sent_;
   if (random_) {
      // A reflected walk: it covers the whole slot over time, so the flow has no fixed phase
      // against a meter, yet neighbouring gaps differ by at most two steps.
      phase_ += (2.0 * random_->uniform() - 1.0) * jitterStep;
      if (phase_ < 0) {
         phase_ = -phase_;
      }
      if (phase_ >= 1.0) {
         phase_ = 2.0 - phase_;
         if (phase_ >= 1.0) {
            phase_ = std::nextafter(1.0, 0.0);
         }
      }
   }
   return true;
}

BurstArrivals::BurstArrivals(FlowWindow const& window, std::uint64_t size)
    : window_(window), size_(size), count_(packetCount(window.pps, window.seconds)) {
   if (size == 0) {
      throw TrafficError("a burst holds at least one packet");
   }
}

bool BurstArrivals::next(Arrival& out) {
   if (sent_ == count_) {
      return false;
   }
   std::uint64_t const first = sent_ - sent_ % size_;
   out = Arrival{slotTime(window_, static_cast<double>(first)), 0};
   ++sent_;
   return true;
}

PoissonArrivals::PoissonArrivals(FlowWindow const& window, std::uint64_t seed)
    : window_(window), random_(seed), done_(window.pps == 0) {}

bool PoissonArrivals::next(Arrival& out) {
   if (done_) {
      return false;
   }
   // Offsets from the start are summed on their own, so the same seed gives the same gaps
   // whatever the step's start.
   elapsed_ += random_.exponential(1.0 / window_.pps);
   double const t = window_.start + elapsed_;
   if (elapsed_ >= window_.seconds || t >= window_.start + window_.seconds) {
      done_ = true;
      return false;
   }
   out = Arrival{t, 0};
   return true;
}

std::unique_ptr<ArrivalSource> makeArrivals(ArrivalPattern const& pattern,
                                            FlowWindow const& window) {
   if (!std::isfinite(window.start) || !std::isfinite(window.seconds) || window.seconds < 0) {
      throw TrafficError("a flow's time must be a finite, non-negative number of seconds");
   }
   if (auto const* c = std::get_if<ConstantPattern>(&pattern)) {
      return std::make_unique<ConstantArrivals>(window, c->jitterSeed);
   }
   if (auto const* b = std::get_if<BurstPattern>(&pattern)) {
      return std::make_unique<BurstArrivals>(window, b->size);
   }
   return std::make_unique<PoissonArrivals>(window, std::get<PoissonPattern>(pattern).seed);
}

}  // namespace NimbalHost
