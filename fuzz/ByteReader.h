#pragma once

// Reads a fuzzer's bytes as a stream of small choices. Past the end every choice is the first
// one, so any input, even an empty one, decodes to something.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NimbalFuzz {

class ByteReader {
  public:
   ByteReader(std::uint8_t const* data, std::size_t size) : data_(data), size_(size) {}

   bool done() const { return at_ >= size_; }
   std::uint8_t byte() { return done() ? 0 : data_[at_++]; }
   // A number in [0, n), n at most 256.
   std::size_t below(std::size_t n) { return n <= 1 ? 0 : byte() % n; }
   bool flag() { return byte() & 1; }
   template <class T>
   T const& pick(std::vector<T> const& choices) {
      return choices[below(choices.size())];
   }

  private:
   std::uint8_t const* data_;
   std::size_t size_;
   std::size_t at_ = 0;
};

}  // namespace NimbalFuzz
