#pragma once

// The packets of many flows in one time order, as the chip meets them.

#include <cstddef>
#include <vector>

#include "host/traffic/Arrivals.h"

namespace NimbalHost {

struct MergedArrival {
   std::size_t flow = 0;  // index into the sources as listed
   Arrival arrival;
};

// A k-way merge over the flows' sources: a heap holding each flow's next packet, so memory is
// one packet per flow whatever the flows' lengths. Equal times come in the order the flows are
// listed. A flow's source moves on only at the call after the one that returned its packet, so
// what a source holds about its current packet (a capture's bytes) stays valid in between.
class FlowMerge {
  public:
   // The sources stay the caller's and must outlive the merge.
   explicit FlowMerge(std::vector<ArrivalSource*> sources);

   // The next packet of all flows; false when every flow is done.
   bool next(MergedArrival& out);

  private:
   struct Head {
      double time;
      std::size_t flow;
      Arrival arrival;
   };
   static bool before(Head const& a, Head const& b) {
      return a.time < b.time || (a.time == b.time && a.flow < b.flow);
   }
   void siftDown(std::size_t i);
   void siftUp(std::size_t i);

   std::vector<ArrivalSource*> sources_;
   std::vector<Head> heap_;
   bool topTaken_ = false;
};

}  // namespace NimbalHost
