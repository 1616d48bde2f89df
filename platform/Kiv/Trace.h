#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace Kiv {

// A named trace handle. Off (level 0) unless switched on by name, from the environment
// (KIV_TRACE=NAME:LEVEL,...) or by the program. A line at level L is written when L <= level.
class TraceHandle {
  public:
   explicit TraceHandle(std::string name);
   std::string const& name() const { return name_; }
   int level() const { return level_; }
   void levelIs(int level) { level_ = level; }
   bool enabled(int level) const { return level <= level_ && level_ > 0; }
   void emit(int level, std::string const& line) const;

  private:
   std::string name_;
   int level_ = 0;
};

// Create-or-return the handle of that name; handles live until the process ends.
TraceHandle& traceHandle(std::string const& name);
// Names of the handles in the order in which they were created.
std::vector<std::string> traceHandleNames();
// Switches handles on from "NAME:LEVEL[,NAME:LEVEL...]"; also applies to handles made later.
void traceConfigIs(std::string const& config);

// Where trace lines go: standard error unless a sink is set (tests capture them).
using TraceSink =
    std::function<void(std::string const& handle, int level, std::string const& line)>;
void traceSinkIs(TraceSink sink);

}  // namespace Kiv

// Formats nothing unless the handle is on at that level.
#define KIV_TRACE(handle, lvl, expr)               \
   do {                                            \
      ::Kiv::TraceHandle const& kivTh_ = (handle); \
      if (kivTh_.enabled(lvl)) {                   \
         std::ostringstream kivOs_;                \
         kivOs_ << expr;                           \
         kivTh_.emit(lvl, kivOs_.str());           \
      }                                            \
   } while (0)
