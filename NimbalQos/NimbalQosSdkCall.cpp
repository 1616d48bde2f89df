#include "NimbalQos/NimbalQosSdkCall.h"

#include <cstdio>

#include "Kiv/Assert.h"

namespace Nimbal {

void sdkCallFailed(char const* file, int line, char const* callText, int rc) {
   std::fflush(stdout);
   std::fprintf(stderr, "%s:%d %s API ERROR:%s (%d)\n", file, line, callText,
                ::Shim::sdk_->errmsg(rc), rc);
   std::fflush(stderr);
   ::Shim::sdk_->callFailed(callText, rc);
   KIV_ASSERT(0);
   __builtin_unreachable();
}

}  // namespace Nimbal
