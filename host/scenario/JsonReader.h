#pragma once

// Reading a scenario's JSON: one reader per part of the file that reports the first fault with
// the file, the part and the key. Shared by the files that read the switch and the steps.

#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "host/scenario/Scenario.h"

namespace NimbalHost {
namespace scenario {

// Key order is kept so that the first fault in the file is the one reported.
using Json = nlohmann::ordered_json;

inline std::string joined(std::vector<std::string> const& names) {
   std::string out;
   for (auto const& n : names) {
      out += (out.empty() ? "" : ", ") + n;
   }
   return out;
}

// A value as the file wrote it, short enough for a one-line message.
inline std::string shown(Json const& v) {
   std::string text = v.dump();
   if (text.size() > 40) {
      text = text.substr(0, 37) + "...";
   }
   return text;
}

inline std::string inQuotes(std::string const& s) {
   return "\"" + s + "\"";
}

// Reads values of one part of the file (the switch, or one step) and reports the first fault
// with the file, the part and the key.
class Reader {
  public:
   Reader(std::string const& file, std::string where) : file_(file), where_(std::move(where)) {}

   [[noreturn]] void fail(std::string const& key, std::string const& message) const {
      std::string line = file_ + ": ";
      if (!where_.empty()) {
         line += where_ + ": ";
      }
      throw ScenarioError(line + "key " + inQuotes(prefix_ + key) + ": " + message);
   }

   // An object whose keys are all among `known`.
   void object(Json const& v, std::string const& key, std::vector<std::string> const& known) const {
      if (!v.is_object()) {
         fail(key, "must be an object, not " + shown(v));
      }
      for (auto const& [k, value] : v.items()) {
         (void)value;
         if (std::find(known.begin(), known.end(), k) == known.end()) {
            fail(path(key, k), known.empty() ? "unknown key; this object takes no keys"
                                             : "unknown key; the keys here are " + joined(known));
         }
      }
   }

   Json const& member(Json const& obj, std::string const& objKey, std::string const& k) const {
      if (!obj.contains(k)) {
         fail(path(objKey, k), "is missing");
      }
      return obj.at(k);
   }

   S64 integer(Json const& v, std::string const& key, S64 lo, S64 hi) const {
      if (!v.is_number_integer()) {
         fail(key, "must be a whole number, not " + shown(v));
      }
      if (v.is_number_unsigned() && v.get<U64>() > static_cast<U64>(hi)) {
         fail(key, "must be from " + std::to_string(lo) + " to " + std::to_string(hi) + ", not " +
                       shown(v));
      }
      S64 const n = v.get<S64>();
      if (n < lo && lo == 0) {
         fail(key, "must not be negative, not " + shown(v));
      }
      if (n < lo || n > hi) {
         fail(key, "must be from " + std::to_string(lo) + " to " + std::to_string(hi) + ", not " +
                       shown(v));
      }
      return n;
   }
   U32 u32(Json const& v, std::string const& key, U32 hi = std::numeric_limits<U32>::max()) const {
      return static_cast<U32>(integer(v, key, 0, hi));
   }

   double number(Json const& v, std::string const& key, bool zeroAllowed) const {
      if (!v.is_number()) {
         fail(key, "must be a number of seconds, not " + shown(v));
      }
      double const d = v.get<double>();
      if (!std::isfinite(d) || d < 0 || (!zeroAllowed && d == 0)) {
         fail(key, std::string(zeroAllowed ? "must not be negative" : "must be above 0") +
                       ", not " + shown(v));
      }
      return d;
   }

   bool boolean(Json const& v, std::string const& key) const {
      if (!v.is_boolean()) {
         fail(key, "must be true or false, not " + shown(v));
      }
      return v.get<bool>();
   }

   std::string string(Json const& v, std::string const& key) const {
      if (!v.is_string()) {
         fail(key, "must be a string, not " + shown(v));
      }
      std::string s = v.get<std::string>();
      if (s.empty()) {
         fail(key, "must not be empty");
      }
      return s;
   }

   static std::string path(std::string const& obj, std::string const& k) {
      return obj.empty() ? k : obj + "." + k;
   }

   // The same part of the file, one level down: keys are named from `prefix` on.
   Reader within(std::string const& prefix) const {
      Reader inner = *this;
      inner.prefix_ += prefix;
      return inner;
   }

  private:
   std::string const& file_;
   std::string where_;
   std::string prefix_;
};

ScenarioSwitch readSwitch(std::string const& file, Json const& v);
ScenarioResources readResources(Reader const& r, Json const& v, std::string const& key);

// What the steps have configured so far, to check the steps that refer to it.
struct StepState {
   std::set<std::pair<std::string, std::string>> policed;  // (interface, class)
   std::set<std::string> recirc;

   bool policedAnywhere(std::string const& cmapName) const {
      for (auto const& p : policed) {
         if (p.second == cmapName) {
            return true;
         }
      }
      return false;
   }
};

// Reads an interface name at a key and checks that the switch has it.
using InterfaceCheck = std::function<std::string(Reader const&, Json const&, std::string const&)>;

step::Traffic readTraffic(Reader const& r, Json const& v, std::string const& file,
                          ScenarioSwitch const& sw, StepState const& state,
                          InterfaceCheck const& knownInterface);

ScenarioStep readStep(std::string const& file, ScenarioSwitch const& sw, StepState& state,
                      Json const& v, int number);

// Reads the advisor's question; the steps are read already, to check the classes it names.
Advise readAdvise(std::string const& file, Scenario const& s, Json const& v);

}  // namespace scenario
}  // namespace NimbalHost
