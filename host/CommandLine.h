#pragma once

// The simulator's command line.

#include <optional>
#include <ostream>
#include <string>

namespace NimbalHost {

struct SimOptions {
   std::string scenario;    // empty: the built-in demo
   std::string trace;       // NAME:LEVEL[,NAME:LEVEL...]
   std::string plot;        // SVG file to write, or empty
   bool check = false;      // read and check the scenario only
   bool printDemo = false;  // write the built-in demo scenario
   bool json = false;       // the transcript as JSON Lines
   bool preflight = false;  // the hardware demand of the scenario, without running it
   bool advise = false;     // the rates that meet the scenario's advise goals
   std::string adviseOut;   // where to write the advised scenario, or empty
};

// Exit status of a command line that cannot be used.
inline constexpr int usageExitCode = 2;
// Exit status of a preflight that finds something that would not fit.
inline constexpr int preflightShortExitCode = 3;
// Exit status of advice that finds no configuration meeting every goal.
inline constexpr int adviceUnmetExitCode = 3;

// Reads the command line into `options`. Returns an exit status when the program should end
// at once (0 after --help, usageExitCode for a command line it cannot use, with the reason on
// `err`), or nothing to go on.
std::optional<int> parseCommandLine(int argc, char const* const* argv, SimOptions& options,
                                    std::ostream& out, std::ostream& err);

// Empty when `config` reads as NAME:LEVEL[,NAME:LEVEL...], else what is wrong with it.
std::string traceConfigError(std::string const& config);

// Empty when every handle that `config` names exists, else which do not and the names that
// do. Read after the library made its handles.
std::string traceNamesError(std::string const& config);

// Whether `path` can be written without making it now.
bool plotWritable(std::string const& path);
// Writes `text` to a file beside `path` and renames it to `path`: readers never see a part.
bool writeFileWhole(std::string const& path, std::string const& text);

// What --help shows after the options: the steps, the exit statuses, the built-in CPU queues.
std::string helpFooter();

}  // namespace NimbalHost
