#include "Kiv/Log.h"

#include <algorithm>
#include <cstdio>

namespace Kiv {

char const* const NoActionRequired = "No action is required.";
char const* const CallSupportIfPersists =
    "If this message persists, contact your customer support representative.";

namespace {
struct LogRegistry {
   std::vector<LogHandle const*> handles;
   LogSink sink;
};
LogRegistry& registry() {
   static LogRegistry* r = new LogRegistry();  // lives past static destructors
   return *r;
}
}  // namespace

LogHandle::LogHandle(std::string key, LogSeverity severity, std::string format,
                     std::string explanation, std::string recommendedAction, double minInterval,
                     double maxInterval, unsigned burst, unsigned flags)
    : key_(std::move(key)),
      severity_(severity),
      format_(std::move(format)),
      explanation_(std::move(explanation)),
      recommendedAction_(std::move(recommendedAction)),
      minInterval_(minInterval),
      maxInterval_(maxInterval),
      burst_(burst),
      flags_(flags) {
   registry().handles.push_back(this);
}

LogHandle::~LogHandle() {
   auto& v = registry().handles;
   v.erase(std::remove(v.begin(), v.end(), this), v.end());
}

void LogHandle::emit(std::string const& message) const {
   auto& r = registry();
   if (r.sink) {
      r.sink(*this, message);
      return;
   }
   std::fprintf(stderr, "%%%s-%d: %s\n", key_.c_str(), severity_, message.c_str());
}

std::vector<LogHandle const*> logHandles() {
   return registry().handles;
}

LogHandle const* logHandle(std::string const& key) {
   for (auto* h : registry().handles) {
      if (h->key() == key) {
         return h;
      }
   }
   return nullptr;
}

void logSinkIs(LogSink sink) {
   registry().sink = std::move(sink);
}

}  // namespace Kiv
