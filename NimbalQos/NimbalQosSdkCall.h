#pragma once

#include <string>

#include "Kiv/Activity.h"
#include "Kiv/Trace.h"
#include "NimbalQos/NimbalQosSharedHelper.h"
#include "Shim/Sdk.h"

namespace Nimbal {

// Writes "<file>:<line> <call> API ERROR:<text> (<rc>)" to standard error, runs the shim's
// failure hook and ends the agent: a failing SDK call leaves the hardware in an unknown state.
[[noreturn]] void sdkCallFailed(char const* file, int line, char const* callText, int rc);

// One direct SDK call under the agent's discipline: the shim's pre-call hook, the activity
// lock released for the call only, a negative code fatal, success traced on "ApiNimbal".
template <class Call>
int sdkCall(char const* file, int line, char const* callText, Call&& call) {
   ::Shim::sdk_->preCall(callText);
   int rc;
   {
      Kiv::UnlockAnchor anchor(Kiv::activityLock());
      rc = call();
   }
   if (rc < 0) {
      sdkCallFailed(file, line, callText, rc);
   }
   KIV_TRACE(apiTraceHandle(), 4, file << ":" << line << " " << callText << " (rc:" << rc << ")");
   return rc;
}

// A read-back for verification: made with the activity lock held, never fatal here; the
// caller judges the code, which is traced with " (rv:".
template <class Call>
int sdkRead(char const* file, int line, char const* callText, Call&& call) {
   ::Shim::sdk_->preCall(callText);
   int rv = call();
   KIV_TRACE(apiTraceHandle(), 4, file << ":" << line << " " << callText << " (rv:" << rv << ")");
   return rv;
}

}  // namespace Nimbal

// The call text is the system's fixed text of the call; the file and line are the call site's.
#define NIMBAL_SDK_CALL(callText, call) \
   ::Nimbal::sdkCall(__FILE__, __LINE__, callText, [&]() -> int { return (call); })
#define NIMBAL_SDK_READ(callText, call) \
   ::Nimbal::sdkRead(__FILE__, __LINE__, callText, [&]() -> int { return (call); })
