#include "NimbalQos/NimbalQosTableWriter.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace Nimbal {

void NimbalQosTableWriter::printf(char const* format, ...) {
   char line[512];
   va_list args;
   va_start(args, format);
   int const n = std::vsnprintf(line, sizeof line, format, args);
   va_end(args);
   if (n < 0) {
      return;
   }
   if (static_cast<std::size_t>(n) < sizeof line) {
      buffer_.append(line, static_cast<std::size_t>(n));
   } else {
      std::string longLine(static_cast<std::size_t>(n), '\0');
      va_start(args, format);
      std::vsnprintf(longLine.data(), longLine.size() + 1, format, args);
      va_end(args);
      buffer_ += longLine;
   }
   if (buffer_.size() >= flushAt) {
      flush();
   }
}

void NimbalQosTableWriter::flush() {
   std::size_t done = 0;
   while (done < buffer_.size()) {
      ssize_t const n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
      if (n < 0 && errno == EINTR) {
         continue;
      }
      if (n <= 0) {
         break;  // as a failed print: the rest of the table is lost, the agent goes on
      }
      done += static_cast<std::size_t>(n);
   }
   buffer_.clear();
}

}  // namespace Nimbal
