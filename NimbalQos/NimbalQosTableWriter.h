#pragma once

#include <string>

namespace Nimbal {

// A CLI table written to a descriptor: lines are formatted into a buffer and written in large
// pieces, so that a table of tens of thousands of rows costs a few system calls rather than one
// a row. What reaches the descriptor is what printing each line would have written.
class NimbalQosTableWriter {
  public:
   explicit NimbalQosTableWriter(int fd) : fd_(fd) {}
   ~NimbalQosTableWriter() { flush(); }
   NimbalQosTableWriter(NimbalQosTableWriter const&) = delete;
   NimbalQosTableWriter& operator=(NimbalQosTableWriter const&) = delete;

   void printf(char const* format, ...) __attribute__((format(printf, 2, 3)));
   void flush();

  private:
   static constexpr std::size_t flushAt = 64 * 1024;

   int fd_;
   std::string buffer_;
};

}  // namespace Nimbal
