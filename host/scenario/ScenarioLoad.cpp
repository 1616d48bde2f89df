#include "host/scenario/Scenario.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/scenario/JsonReader.h"

namespace NimbalHost {

using namespace scenario;

std::vector<std::string> const& scenarioStepNames() {
   static std::vector<std::string> const names = {
       "police", "unpolice", "vxlan",  "recirc", "advance",   "traffic", "show",
       "clear",  "poll",     "verify", "set",    "resources", "tamper",  "fail"};
   return names;
}

std::vector<std::string> const& failableSdkCalls() {
   static std::vector<std::string> const calls = {"bcm_field_group_create_id",
                                                  "bcm_field_group_compress",
                                                  "bcm_field_entry_create",
                                                  "bcm_field_entry_create_id",
                                                  "bcm_field_entry_destroy",
                                                  "bcm_field_entry_install",
                                                  "bcm_field_entry_remove",
                                                  "bcm_field_entry_prio_set",
                                                  "bcm_field_qualify_InPort",
                                                  "bcm_field_qualify_InPorts",
                                                  "bcm_field_qualify_CpuQueue",
                                                  "bcm_field_qualify_InnerVlanId",
                                                  "bcm_field_qualify_InterfaceClassPort",
                                                  "bcm_field_action_add",
                                                  "bcm_field_action_get",
                                                  "bcm_field_entry_policer_attach",
                                                  "bcm_field_entry_policer_detach",
                                                  "bcm_field_entry_policer_get",
                                                  "bcm_policer_create",
                                                  "bcm_policer_destroy",
                                                  "bcm_policer_get",
                                                  "bcm_field_stat_create",
                                                  "bcm_field_entry_stat_attach",
                                                  "bcm_field_stat_get",
                                                  "bcm_field_stat_destroy"};
   return calls;
}

Scenario scenarioFromText(std::string const& text, std::string const& file) {
   Json doc;
   try {
      doc = Json::parse(text);
   } catch (Json::exception const& e) {
      // "[json.exception.parse_error.101] parse error at line 3, column 5: syntax error ...",
      // or, for a number beyond a double, "[json.exception.out_of_range.406] number overflow
      // parsing '2e308'"
      std::string what = e.what();
      std::string where;
      std::size_t const at = what.find(" at line ");
      std::size_t const colon = what.find(": ", at == std::string::npos ? 0 : at);
      if (at != std::string::npos && colon != std::string::npos) {
         where = what.substr(at + 4, colon - at - 4) + ": ";
         what = what.substr(colon + 2);
      } else if (std::size_t const close = what.find("] "); close != std::string::npos) {
         what = what.substr(close + 2);
      }
      throw ScenarioError(file + ": " + where + "not valid JSON: " + what);
   }
   Reader const top(file, "");
   if (!doc.is_object()) {
      throw ScenarioError(file + ": a scenario is an object {\"switch\": {...}, \"steps\": " +
                          "[...]}, not " + shown(doc));
   }
   top.object(doc, "", {"description", "switch", "steps", "advise"});
   Scenario s;
   s.file = file;
   if (doc.contains("description")) {
      s.description = top.string(doc.at("description"), "description");
   }
   s.sw = readSwitch(file, doc.contains("switch") ? doc.at("switch") : Json::object());
   if (doc.contains("switch")) {
      s.switchValue = doc.at("switch").dump();
   }
   if (!doc.contains("steps")) {
      top.fail("steps", "is missing; a scenario is {\"switch\": {...}, \"steps\": [...]}");
   }
   Json const& steps = doc.at("steps");
   if (!steps.is_array()) {
      top.fail("steps", "must be a list of steps, not " + shown(steps));
   }
   StepState state;
   for (std::size_t i = 0; i < steps.size(); ++i) {
      s.steps.push_back(readStep(file, s.sw, state, steps.at(i), static_cast<int>(i + 1)));
   }
   if (doc.contains("advise")) {
      s.advise = readAdvise(file, s, doc.at("advise"));
   }
   return s;
}

Scenario scenarioFromFile(std::string const& path) {
   std::error_code ec;
   if (std::filesystem::is_directory(path, ec)) {
      throw ScenarioError(path + ": cannot read the file (it is a directory)");
   }
   std::ifstream in(path);
   if (!in) {
      throw ScenarioError(path + ": cannot read the file (" + std::strerror(errno) + ")");
   }
   std::ostringstream text;
   text << in.rdbuf();
   if (in.bad()) {
      throw ScenarioError(path + ": cannot read the file (" + std::strerror(errno) + ")");
   }
   return scenarioFromText(text.str(), path);
}

}  // namespace NimbalHost
