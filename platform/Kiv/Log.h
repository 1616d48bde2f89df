#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Kiv/Format.h"

namespace Kiv {

using LogSeverity = int;  // 3 error, 4 warning, 6 informational

extern char const* const NoActionRequired;
extern char const* const CallSupportIfPersists;

// A structured log message of the agent: key, severity, format, explanation, recommended
// action and the handle's two real and two unsigned parameters.
class LogHandle {
  public:
   LogHandle(std::string key, LogSeverity severity, std::string format, std::string explanation,
             std::string recommendedAction, double minInterval, double maxInterval, unsigned burst,
             unsigned flags);
   ~LogHandle();
   LogHandle(LogHandle const&) = delete;
   LogHandle& operator=(LogHandle const&) = delete;

   std::string const& key() const { return key_; }
   LogSeverity severity() const { return severity_; }
   std::string const& format() const { return format_; }
   std::string const& explanation() const { return explanation_; }
   std::string const& recommendedAction() const { return recommendedAction_; }
   double minInterval() const { return minInterval_; }
   double maxInterval() const { return maxInterval_; }
   unsigned burst() const { return burst_; }
   unsigned flags() const { return flags_; }

   // Formats the message with the arguments and hands it to the log sink.
   template <class... A>
   void log(A const&... args) const {
      emit(Kiv::format(format_.c_str(), args...));
   }
   void emit(std::string const& message) const;

  private:
   std::string key_;
   LogSeverity severity_;
   std::string format_;
   std::string explanation_;
   std::string recommendedAction_;
   double minInterval_;
   double maxInterval_;
   unsigned burst_;
   unsigned flags_;
};

// Live handles in the order in which they were created.
std::vector<LogHandle const*> logHandles();
LogHandle const* logHandle(std::string const& key);

// Where raised messages go: standard error unless a sink is set.
using LogSink = std::function<void(LogHandle const& handle, std::string const& message)>;
void logSinkIs(LogSink sink);

}  // namespace Kiv
