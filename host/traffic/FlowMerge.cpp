#include "host/traffic/FlowMerge.h"

#include <utility>

namespace NimbalHost {

FlowMerge::FlowMerge(std::vector<ArrivalSource*> sources) : sources_(std::move(sources)) {
   heap_.reserve(sources_.size());
   for (std::size_t f = 0; f < sources_.size(); ++f) {
      Arrival a;
      if (sources_[f] && sources_[f]->next(a)) {
         heap_.push_back(Head{a.time, f, a});
         siftUp(heap_.size() - 1);
      }
   }
}

bool FlowMerge::next(MergedArrival& out) {
   if (topTaken_) {
      topTaken_ = false;
      Head& top = heap_.front();
      Arrival a;
      if (sources_[top.flow]->next(a)) {
         top.time = a.time;
         top.arrival = a;
      } else {
         top = heap_.back();
         heap_.pop_back();
      }
      if (!heap_.empty()) {
         siftDown(0);
      }
   }
   if (heap_.empty()) {
      return false;
   }
   out = MergedArrival{heap_.front().flow, heap_.front().arrival};
   topTaken_ = true;
   return true;
}

void FlowMerge::siftDown(std::size_t i) {
   std::size_t const n = heap_.size();
   while (true) {
      std::size_t best = i;
      std::size_t const l = 2 * i + 1;
      std::size_t const r = l + 1;
      if (l < n && before(heap_[l], heap_[best])) {
         best = l;
      }
      if (r < n && before(heap_[r], heap_[best])) {
         best = r;
      }
      if (best == i) {
         return;
      }
      std::swap(heap_[i], heap_[best]);
      i = best;
   }
}

void FlowMerge::siftUp(std::size_t i) {
   while (i > 0) {
      std::size_t const parent = (i - 1) / 2;
      if (!before(heap_[i], heap_[parent])) {
         return;
      }
      std::swap(heap_[i], heap_[parent]);
      i = parent;
   }
}

}  // namespace NimbalHost
