#include "Kiv/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kiv {

void assertFail(char const* expression, char const* file, int line, char const* function) {
   std::fflush(stdout);
   std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
   std::fflush(stderr);
   std::abort();
}

}  // namespace Kiv
