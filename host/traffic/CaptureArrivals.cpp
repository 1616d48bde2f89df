#include "host/traffic/CaptureArrivals.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "host/traffic/TrafficError.h"

namespace NimbalHost {

namespace {

double checkedSpeed(CaptureFlow const& flow) {
   if (!std::isfinite(flow.speed) || flow.speed <= 0) {
      throw TrafficError("capture " + flow.path + ": speed must be a positive number");
   }
   return flow.speed;
}

CaptureReader openChecked(CaptureFlow const& flow) {
   checkedSpeed(flow);
   return CaptureReader(flow.path);
}

}  // namespace

CaptureArrivals::CaptureArrivals(CaptureFlow const& flow, double start, double seconds)
    : CaptureArrivals(openChecked(flow), flow, start, seconds) {}

CaptureArrivals::CaptureArrivals(CaptureReader reader, CaptureFlow const& flow, double start,
                                 double seconds)
    : reader_(std::move(reader)),
      classifier_(reader_, flow.filters),
      otherwise_(flow.otherwise),
      speed_(checkedSpeed(flow)),
      start_(start),
      end_(start + seconds),
      last_(start) {}

bool CaptureArrivals::next(Arrival& out) {
   while (!done_) {
      if (!reader_.next()) {
         done_ = true;
         break;
      }
      std::int64_t const sec = reader_.timeSeconds();
      std::int64_t const nsec = reader_.timeNanoseconds();
      if (!first_) {
         first_.emplace(sec, nsec);
      }
      // In doubles: a pcapng file may carry times far beyond what nanoseconds in 64 bits hold,
      // and real ones are whole seconds below 2^53, exact.
      double const offset =
          (static_cast<double>(sec) - static_cast<double>(first_->first)) +
          (static_cast<double>(nsec) - static_cast<double>(first_->second)) * 1e-9;
      double const t = std::max(last_, start_ + offset / speed_);
      if (!(t < end_)) {
         done_ = true;
         break;
      }
      last_ = t;
      ++counts_.packets;
      std::optional<std::size_t> slot = classifier_.match(reader_.header(), reader_.data());
      if (slot) {
         ++counts_.classified;
      } else if (otherwise_) {
         ++counts_.otherwise;
         slot = otherwise_;
      } else {
         ++counts_.ignored;
         continue;
      }
      out = Arrival{t, *slot};
      return true;
   }
   return false;
}

CaptureSummary validateCapture(CaptureFlow const& flow) {
   checkedSpeed(flow);
   CaptureReader reader(flow.path);
   CaptureClassifier const classifier(reader, flow.filters);
   while (reader.next()) {
   }
   return CaptureSummary{reader.records(), reader.linkType()};
}

}  // namespace NimbalHost
