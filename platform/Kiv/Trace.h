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

// Create-or-return the handle of that name; it lives until it is removed by name.
TraceHandle& traceHandle(std::string const& name);
// Removes and destroys the handle of that name, for a component that goes away with the handles
// it made. A level set by name still applies to a handle made again later. False when there is
// no such handle.
bool traceHandleDel(std::string const& name);
// Names of the handles in the order in which they were created.
std::vector<std::string> traceHandleNames();
// Switches handles on from "NAME:LEVEL[,NAME:LEVEL...]"; also applies to handles made later.
void traceConfigIs(std::string const& config);

// Where trace lines go: standard error unless a sink is set (tests capture them).
using TraceSink =
    std::function<void(std::string const& handle, int level, std::string const& line)>;
void traceSinkIs(TraceSink sink);

}  // namespace Kiv

// Formats nothing unless the handle is on at that level. The formatting is kept out of line, so
// that a statement whose handle is off costs the caller one comparison.
#define KIV_TRACE(handle, lvl, expr)                  \
   do {                                               \
      ::Kiv::TraceHandle const& kivTh_ = (handle);    \
      if (__builtin_expect(kivTh_.enabled(lvl), 0)) { \
         [&]() __attribute__((noinline, cold)) {      \
            std::ostringstream kivOs_;                \
            kivOs_ << expr;                           \
            kivTh_.emit(lvl, kivOs_.str());           \
         }                                            \
         ();                                          \
      }                                               \
   } while (0)
