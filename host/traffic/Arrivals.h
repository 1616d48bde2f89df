#pragma once

// A flow's packets as a stream of arrival times on the virtual clock.

#include <cstddef>
#include <cstdint>

namespace NimbalHost {

// One packet of a flow: when it arrives and which of the flow's classes it goes to (always 0
// for a synthetic flow; a capture flow's classifier picks it).
struct Arrival {
   double time = 0;
   std::size_t slot = 0;
};

// The packets of one flow in non-decreasing time, all inside the flow's step.
class ArrivalSource {
  public:
   virtual ~ArrivalSource() = default;
   // The next packet into `out`; false once the flow has no more in its step.
   virtual bool next(Arrival& out) = 0;
};

// Packets of an evenly paced flow of `pps` over `seconds`: the same count the one-flow step
// has always sent, so that 0.3 s at 10 pps is 3 packets despite rounding.
std::uint64_t packetCount(double pps, double seconds);

}  // namespace NimbalHost
