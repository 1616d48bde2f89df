#pragma once

namespace Kiv {

// Ends the process after writing the failed expression, as the agent's assertions do.
[[noreturn]] void assertFail(char const* expression, char const* file, int line,
                             char const* function);

}  // namespace Kiv

#define KIV_ASSERT(expr) \
   ((expr) ? (void)0 : ::Kiv::assertFail(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))

// For assertions whose message is not the expression's own text.
#define KIV_ASSERT_MSG(expr, message) \
   ((expr) ? (void)0 : ::Kiv::assertFail(message, __FILE__, __LINE__, __PRETTY_FUNCTION__))
