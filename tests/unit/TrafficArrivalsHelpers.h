#pragma once

// Small helpers for the traffic engine's tests.

#include <memory>
#include <vector>

#include "host/traffic/Arrivals.h"
#include "host/traffic/SyntheticArrivals.h"

namespace TrafficTest {

inline std::vector<double> timesOf(NimbalHost::ArrivalSource& source) {
   std::vector<double> out;
   NimbalHost::Arrival a;
   while (source.next(a)) {
      out.push_back(a.time);
   }
   return out;
}

inline std::vector<double> timesOf(NimbalHost::ArrivalPattern const& pattern,
                                   NimbalHost::FlowWindow const& window) {
   std::unique_ptr<NimbalHost::ArrivalSource> s = NimbalHost::makeArrivals(pattern, window);
   return timesOf(*s);
}

// Given times, in the order given, counting how often it was asked.
class ListedArrivals : public NimbalHost::ArrivalSource {
  public:
   explicit ListedArrivals(std::vector<double> times) : times_(std::move(times)) {}
   bool next(NimbalHost::Arrival& out) override {
      ++calls;
      if (at_ == times_.size()) {
         return false;
      }
      out = NimbalHost::Arrival{times_[at_], at_};
      ++at_;
      return true;
   }
   int calls = 0;

  private:
   std::vector<double> times_;
   std::size_t at_ = 0;
};

}  // namespace TrafficTest
