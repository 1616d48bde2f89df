#pragma once

// What a dying death-test child has to say: written to standard error when the process aborts,
// after the assertion's own line, so that a death test can match state that only exists in the
// child.

#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>

namespace DeathTest {

inline std::function<std::string()> abortReport;

extern "C" inline void writeAbortReport(int) {
   if (abortReport) {
      std::string const text = "\nreport: " + abortReport() + "\n";
      ssize_t const written = ::write(2, text.data(), text.size());
      (void)written;
   }
   std::signal(SIGABRT, SIG_DFL);
   std::raise(SIGABRT);
}

inline void abortReportIs(std::function<std::string()> report) {
   abortReport = std::move(report);
   std::signal(SIGABRT, writeAbortReport);
}

}  // namespace DeathTest
