#pragma once

#include <cstddef>
#include <vector>

#include "Kiv/Types.h"

namespace NimbalHistory {

// A small generator of our own (splitmix64), so that a seed gives the same history with every
// compiler and standard library.
class Rng {
  public:
   explicit Rng(U64 seed) : state_(seed) {}

   U64 next() {
      U64 z = (state_ += 0x9E3779B97F4A7C15ULL);
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
      return z ^ (z >> 31);
   }
   // 0 to n - 1; 0 when n is 0.
   U32 below(U32 n) { return n == 0 ? 0 : static_cast<U32>(next() % n); }
   U32 between(U32 lo, U32 hi) { return lo + below(hi - lo + 1); }
   bool percent(U32 p) { return below(100) < p; }
   template <class T>
   T const& pick(std::vector<T> const& v) {
      return v[below(static_cast<U32>(v.size()))];
   }
   // An index drawn with the given weights.
   std::size_t weighted(std::vector<U32> const& weights) {
      U32 total = 0;
      for (U32 w : weights) {
         total += w;
      }
      U32 r = below(total);
      for (std::size_t i = 0; i < weights.size(); ++i) {
         if (r < weights[i]) {
            return i;
         }
         r -= weights[i];
      }
      return weights.size() - 1;
   }

  private:
   U64 state_;
};

}  // namespace NimbalHistory
