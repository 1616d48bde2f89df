#include "host/CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "Kiv/Trace.h"
#include "Nimbal/MmuCpuQ.h"
#include "NimbalVersion.h"

namespace NimbalHost {

std::string traceConfigError(std::string const& config) {
   if (config.empty()) {
      return "names no trace handle; write NAME:LEVEL[,NAME:LEVEL...]";
   }
   std::stringstream in(config);
   std::string item;
   while (std::getline(in, item, ',')) {
      std::size_t const colon = item.rfind(':');
      if (colon == std::string::npos || colon == 0 || colon + 1 == item.size()) {
         return "\"" + item + "\" is not NAME:LEVEL";
      }
      for (std::size_t i = colon + 1; i < item.size(); ++i) {
         if (!std::isdigit(static_cast<unsigned char>(item[i]))) {
            return "\"" + item + "\": the level must be a whole number from 0 to 9";
         }
      }
      if (item.size() - colon - 1 > 1) {
         return "\"" + item + "\": the level must be a whole number from 0 to 9";
      }
   }
   if (config.back() == ',') {
      return "ends with a comma";
   }
   return "";
}

std::string traceNamesError(std::string const& config) {
   std::vector<std::string> const known = Kiv::traceHandleNames();
   std::vector<std::string> unknown;
   std::stringstream in(config);
   std::string item;
   while (std::getline(in, item, ',')) {
      std::string const name = item.substr(0, item.rfind(':'));
      if (std::find(known.begin(), known.end(), name) == known.end()) {
         unknown.push_back("\"" + name + "\"");
      }
   }
   if (unknown.empty()) {
      return "";
   }
   auto joined = [](std::vector<std::string> const& items) {
      std::string out;
      for (std::string const& s : items) {
         out += (out.empty() ? "" : ", ") + s;
      }
      return out;
   };
   std::vector<std::string> sorted = known;
   std::sort(sorted.begin(), sorted.end());
   return std::string(unknown.size() == 1 ? "names an unknown trace handle: "
                                          : "names unknown trace handles: ") +
          joined(unknown) + "; the handles are " + joined(sorted);
}

bool plotWritable(std::string const& path) {
   std::filesystem::path const p(path);
   std::error_code ec;
   if (std::filesystem::is_directory(p, ec)) {
      return false;
   }
   if (std::filesystem::exists(p, ec)) {
      return ::access(path.c_str(), W_OK) == 0;
   }
   std::filesystem::path const dir = p.has_parent_path() ? p.parent_path() : ".";
   return ::access(dir.c_str(), W_OK) == 0;
}

bool writeFileWhole(std::string const& path, std::string const& text) {
   std::string const part = path + ".part-" + std::to_string(::getpid());
   {
      std::ofstream out(part, std::ios::binary);
      out << text;
      out.close();
      if (!out) {
         std::remove(part.c_str());
         return false;
      }
   }
   if (std::rename(part.c_str(), path.c_str()) != 0) {
      std::remove(part.c_str());
      return false;
   }
   return true;
}

std::string helpFooter() {
   std::ostringstream os;
   os << "A scenario is a JSON object {\"switch\": {...}, \"steps\": [...]} (\"description\" is\n"
         "optional). Every \"switch\" key is optional: modules, interfaces, interfaceRanges,\n"
         "fabricInterfaces, cpuQueues, portDefaultCoppRate, vxlanWorkaround, resources,\n"
         "toggles. Each step is an object with exactly one key:\n"
         "  police     {\"interface\", \"class\", \"cir\", \"bc\"}  police a CoPP class (pps, "
         "packets)\n"
         "  unpolice   {\"interface\", \"class\"}               remove the police action\n"
         "  vxlan      true | false                          VXLAN enabled on the switch\n"
         "  recirc     {\"interface\", \"enabled\"}             a VXLAN recirculation interface\n"
         "  advance    SECONDS                               move the virtual clock on\n"
         "  traffic    {\"interface\", \"queue\" | \"class\", \"pps\", \"seconds\", \"vxlan\"}\n"
         "                                                   send packets to the CPU\n"
         "  show       \"hw\" | \"sw\"                           a CoPP counter table\n"
         "  clear      {\"interface\", \"queue\"} or {}          clear CoPP counters\n"
         "  poll       {\"interface\", \"class\"}               the counter poll of a class\n"
         "  verify     {}                                    verify the CoPP policers\n"
         "  set        {\"ATTRIBUTE\": VALUE}                  set a helper attribute\n"
         "  resources  {\"efpCoppEntries\", \"efpCoppMeters\", \"efpDefaultMeters\"}\n"
         "                                                   resize the egress CoPP pools\n"
         "  tamper     {\"interface\", \"queue\", \"cir\", \"bc\"}  change a meter behind the "
         "agent\n"
         "  fail       {\"call\", \"rc\"}                       the next such SDK call fails\n"
         "\n"
         "Exit status: 0 the scenario ran to its end; 1 the scenario cannot be read or is\n"
         "invalid, or no directory for the toggle file can be made under TMPDIR (nothing ran);\n"
         "2 the command line cannot be used; an assertion or a fatal SDK error ends the\n"
         "process abnormally, as it ends the agent. With --preflight: 0 everything fits; 3\n"
         "something would not fit (a kernel CoPP key, VXLAN CoPP entry, per-port default\n"
         "policer or class would stay unpoliced, or the agent would stop); 1 and 2 as above.\n"
         "With --advise: 0 the advice meets every goal; 3 no configuration meets them all (the\n"
         "line names the goal); 1 and 2 as above.\n"
         "\n"
         "\"advise\" (top level, for --advise): {\"protect\": [{\"interface\": NAME or \"*\",\n"
         "\"class\", \"maxLoss\": 0 to 1}], \"cpuBudget\": pps per port, \"classes\": [CLASS...]}\n"
         "\n"
         "Built-in CPU queues (\"cpuQueues\" replaces them; rate in pps, burst in packets):\n";
   char line[160];
   std::snprintf(line, sizeof line, "  %-3s %-23s %6s %6s  %s\n", "id", "name", "rate", "burst",
                 "classes");
   os << line;
   for (Nimbal::MmuCpuQRow const& row : Nimbal::builtInCpuQTable()) {
      std::string classes;
      for (auto const& c : row.classes) {
         classes += (classes.empty() ? "" : ", ") + c;
      }
      if (row.dynamic) {
         classes = "(dynamic: for classes without a static queue)";
      } else if (row.id == Nimbal::cpuCosqDrop_) {
         classes = "(drop queue)";
      }
      std::snprintf(line, sizeof line, "  %-3u %-23s %6u %6u  %s\n", row.id, row.name.c_str(),
                    row.rate, row.burst, classes.c_str());
      os << line;
   }
   return os.str();
}

std::optional<int> parseCommandLine(int argc, char const* const* argv, SimOptions& options,
                                    std::ostream& out, std::ostream& err) {
   CLI::App app(
       "nimbal-copp-sim: the simulated switch agent. It builds a switch from a scenario, loads\n"
       "the CoPP library as the agent does, plays the scenario's steps on a virtual clock and\n"
       "prints what an operator would see. With no scenario it plays a built-in demo.",
       "nimbal-copp-sim");
   app.add_option("SCENARIO.json", options.scenario, "the scenario to play");
   app.add_option("--trace", options.trace,
                  "trace handles to switch on, to standard error (NimbalQosSm:4,ApiNimbal:4)")
       ->type_name("NAME:LEVEL,...")
       ->check([](std::string const& config) {
          std::string const error = traceConfigError(config);
          return error.empty() ? std::string() : "--trace " + error;
       });
   auto* plot = app.add_option("--plot", options.plot,
                               "write an SVG chart of the traffic per flow over virtual time")
                    ->type_name("FILE.svg");
   std::string format = "text";
   app.add_option("--format", format,
                  "text: the transcript for a person (the default); json: the same run as JSON "
                  "Lines, one object per event (host/transcript/transcript.schema.json); with "
                  "--preflight, the switch and the preflight as JSON Lines in the same schema")
       ->type_name("text|json")
       ->check(CLI::IsMember({"text", "json"}));
   auto* check = app.add_flag("--check", options.check, "read and check the scenario, run nothing");
   auto* preflight =
       app.add_flag("--preflight", options.preflight,
                    "a dry run of the scenario with the library on the simulated chip, traffic "
                    "reduced to its clock advance; print the switch's hardware demand at start-up "
                    "and at its peak over the steps against its resources, what would stay "
                    "unpoliced and where the agent would stop; exit status 3 when something would "
                    "not fit")
           ->excludes(check)
           ->excludes(plot);
   auto* advise =
       app.add_flag("--advise", options.advise,
                    "search the class rates and bursts and the per-port default rate that keep "
                    "the classes of the scenario's \"advise\" key within their loss and each "
                    "port within its CPU budget, trying each configuration on the library and "
                    "the simulated chip; print the advice; exit status 3 when no configuration "
                    "meets every goal")
           ->excludes(check)
           ->excludes(plot)
           ->excludes(preflight);
   app.add_option("--advise-out", options.adviseOut,
                  "with --advise, write the advised configuration as a scenario that plays it")
       ->type_name("FILE.json")
       ->needs(advise);
   app.add_flag("--print-demo", options.printDemo,
                "write the built-in demo scenario as JSON and end");
   app.set_version_flag("--version", "nimbal-copp-sim " NIMBAL_VERSION,
                        "print the version and end");
   app.footer(helpFooter());
   try {
      app.parse(argc, argv);
      options.json = format == "json";
   } catch (CLI::Success const& e) {  // --help or --version
      app.exit(e, out, err);
      return 0;
   } catch (CLI::ParseError const& e) {
      err << "nimbal-copp-sim: " << e.what() << "\n"
          << "Run with --help for more information.\n";
      return usageExitCode;
   }
   return std::nullopt;
}

}  // namespace NimbalHost
