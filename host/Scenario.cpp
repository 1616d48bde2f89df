#include "host/Scenario.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "Kiv/Type.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosTcamProtectionHelper.h"

namespace NimbalHost {

namespace {

// Key order is kept so that the first fault in the file is the one reported.
using Json = nlohmann::ordered_json;

std::string joined(std::vector<std::string> const& names) {
   std::string out;
   for (auto const& n : names) {
      out += (out.empty() ? "" : ", ") + n;
   }
   return out;
}

// A value as the file wrote it, short enough for a one-line message.
std::string shown(Json const& v) {
   std::string text = v.dump();
   if (text.size() > 40) {
      text = text.substr(0, 37) + "...";
   }
   return text;
}

std::string inQuotes(std::string const& s) {
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
      throw ScenarioError(line + "key " + inQuotes(key) + ": " + message);
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

  private:
   std::string const& file_;
   std::string where_;
};

ScenarioResources readResources(Reader const& r, Json const& v, std::string const& key) {
   r.object(v, key, {"efpCoppEntries", "efpCoppMeters", "efpDefaultMeters"});
   ScenarioResources out;
   if (v.contains("efpCoppEntries")) {
      out.efpCoppEntries = r.u32(v.at("efpCoppEntries"), Reader::path(key, "efpCoppEntries"));
   }
   if (v.contains("efpCoppMeters")) {
      out.efpCoppMeters = r.u32(v.at("efpCoppMeters"), Reader::path(key, "efpCoppMeters"));
   }
   if (v.contains("efpDefaultMeters")) {
      out.efpDefaultMeters = r.u32(v.at("efpDefaultMeters"), Reader::path(key, "efpDefaultMeters"));
   }
   return out;
}

std::vector<ScenarioInterface> readInterfaces(Reader const& r, Json const& v,
                                              std::string const& key) {
   if (!v.is_array()) {
      r.fail(key, "must be a list of {\"name\", \"modId\", \"port\"} objects, not " + shown(v));
   }
   std::vector<ScenarioInterface> out;
   for (std::size_t i = 0; i < v.size(); ++i) {
      std::string const at = key + "[" + std::to_string(i) + "]";
      Json const& e = v.at(i);
      r.object(e, at, {"name", "modId", "port"});
      ScenarioInterface intf;
      intf.name = r.string(r.member(e, at, "name"), at + ".name");
      intf.modId = static_cast<U16>(r.integer(r.member(e, at, "modId"), at + ".modId", 0, 63));
      intf.port = static_cast<U16>(r.integer(r.member(e, at, "port"), at + ".port", 0, 1023));
      out.push_back(intf);
   }
   return out;
}

// Many interfaces at once: prefix + number, on consecutive ports of one module.
void readInterfaceRanges(Reader const& r, Json const& v, std::vector<ScenarioInterface>& out) {
   std::string const key = "interfaceRanges";
   if (!v.is_array()) {
      r.fail(key,
             "must be a list of {\"prefix\", \"first\", \"count\", \"modId\", \"port\"} "
             "objects, not " +
                 shown(v));
   }
   for (std::size_t i = 0; i < v.size(); ++i) {
      std::string const at = key + "[" + std::to_string(i) + "]";
      Json const& e = v.at(i);
      r.object(e, at, {"prefix", "first", "count", "modId", "port"});
      std::string const prefix = r.string(r.member(e, at, "prefix"), at + ".prefix");
      S64 const first = r.integer(r.member(e, at, "first"), at + ".first", 0, 1000000);
      S64 const count = r.integer(r.member(e, at, "count"), at + ".count", 1, 1024);
      auto const modId =
          static_cast<U16>(r.integer(r.member(e, at, "modId"), at + ".modId", 0, 63));
      S64 const port = r.integer(r.member(e, at, "port"), at + ".port", 0, 1023);
      if (port + count - 1 > 1023) {
         r.fail(at + ".count", "the last port would be " + std::to_string(port + count - 1) +
                                   "; ports go up to 1023");
      }
      for (S64 n = 0; n < count; ++n) {
         out.push_back({prefix + std::to_string(first + n), modId, static_cast<U16>(port + n)});
      }
   }
}

std::vector<Nimbal::MmuCpuQRow> readCpuQueues(Reader const& r, Json const& v) {
   std::string const key = "cpuQueues";
   if (!v.is_array()) {
      r.fail(key, "must be a list of 48 CPU queues, not " + shown(v));
   }
   std::vector<Nimbal::MmuCpuQRow> rows;
   for (std::size_t i = 0; i < v.size(); ++i) {
      std::string const at = key + "[" + std::to_string(i) + "]";
      Json const& e = v.at(i);
      r.object(e, at, {"id", "name", "rate", "burst", "classes", "dynamic"});
      Nimbal::MmuCpuQRow row;
      row.id = static_cast<U32>(r.integer(r.member(e, at, "id"), at + ".id", 0, 47));
      row.name = r.string(r.member(e, at, "name"), at + ".name");
      row.rate = r.u32(r.member(e, at, "rate"), at + ".rate");
      row.burst = r.u32(r.member(e, at, "burst"), at + ".burst");
      if (e.contains("classes")) {
         Json const& c = e.at("classes");
         if (!c.is_array()) {
            r.fail(at + ".classes", "must be a list of class names, not " + shown(c));
         }
         for (std::size_t j = 0; j < c.size(); ++j) {
            row.classes.push_back(r.string(c.at(j), at + ".classes[" + std::to_string(j) + "]"));
         }
      }
      if (e.contains("dynamic")) {
         row.dynamic = r.boolean(e.at("dynamic"), at + ".dynamic");
      }
      rows.push_back(row);
   }
   std::string const error = Nimbal::MmuCpuQSm::cpuQTableError(rows);
   if (!error.empty()) {
      r.fail(key, error);
   }
   return rows;
}

ScenarioSwitch readSwitch(std::string const& file, Json const& v) {
   Reader const r(file, "switch");
   ScenarioSwitch sw;
   if (!v.is_object()) {
      Reader(file, "").fail("switch", "must be an object, not " + shown(v));
   }
   r.object(v, "",
            {"modules", "interfaces", "interfaceRanges", "fabricInterfaces", "cpuQueues",
             "portDefaultCoppRate", "vxlanWorkaround", "resources", "toggles"});
   if (v.contains("modules")) {
      Json const& m = v.at("modules");
      if (!m.is_array() || m.empty()) {
         r.fail("modules",
                "must be a non-empty list of {\"modId\", \"unit\"} objects, not " + shown(m));
      }
      std::set<U16> modIds;
      for (std::size_t i = 0; i < m.size(); ++i) {
         std::string const at = "modules[" + std::to_string(i) + "]";
         r.object(m.at(i), at, {"modId", "unit"});
         ScenarioModule mod;
         mod.modId =
             static_cast<U16>(r.integer(r.member(m.at(i), at, "modId"), at + ".modId", 0, 63));
         mod.unit =
             static_cast<U16>(r.integer(r.member(m.at(i), at, "unit"), at + ".unit", 0, 127));
         if (!modIds.insert(mod.modId).second) {
            r.fail(at + ".modId", "module " + std::to_string(mod.modId) + " appears twice");
         }
         sw.modules.push_back(mod);
      }
   } else {
      sw.modules.push_back({0, 0});
   }

   bool const defaulted = !v.contains("interfaces") && !v.contains("interfaceRanges");
   if (defaulted) {
      sw.interfaces = defaultSwitchInterfaces();
   } else if (v.contains("interfaces")) {
      sw.interfaces = readInterfaces(r, v.at("interfaces"), "interfaces");
   }
   if (v.contains("interfaceRanges")) {
      readInterfaceRanges(r, v.at("interfaceRanges"), sw.interfaces);
   }
   if (v.contains("fabricInterfaces")) {
      sw.fabricInterfaces = readInterfaces(r, v.at("fabricInterfaces"), "fabricInterfaces");
   }
   std::set<std::string> names;
   std::set<std::pair<U16, U16>> ports;
   auto checkAll = [&](std::vector<ScenarioInterface> const& list, std::string const& key) {
      for (std::size_t i = 0; i < list.size(); ++i) {
         ScenarioInterface const& intf = list[i];
         std::string const at = key + "[" + std::to_string(i) + "]";
         bool known = false;
         for (auto const& mod : sw.modules) {
            known = known || mod.modId == intf.modId;
         }
         if (!known) {
            r.fail(defaulted && key == "interfaces" ? key : at + ".modId",
                   (defaulted && key == "interfaces" ? "the default interfaces are on module 0, "
                                                     : "") +
                       std::string("module ") + std::to_string(intf.modId) +
                       " is not in \"modules\"");
         }
         if (!names.insert(intf.name).second) {
            r.fail(at + ".name", "interface " + intf.name + " appears twice");
         }
         if (!ports.insert({intf.modId, intf.port}).second) {
            r.fail(at + ".port", "port " + std::to_string(intf.port) + " of module " +
                                     std::to_string(intf.modId) + " has another interface");
         }
      }
   };
   checkAll(sw.interfaces, "interfaces");
   checkAll(sw.fabricInterfaces, "fabricInterfaces");

   sw.cpuQueues =
       v.contains("cpuQueues") ? readCpuQueues(r, v.at("cpuQueues")) : Nimbal::builtInCpuQTable();
   if (v.contains("portDefaultCoppRate")) {
      sw.portDefaultCoppRate = r.u32(v.at("portDefaultCoppRate"), "portDefaultCoppRate");
   }
   if (v.contains("vxlanWorkaround")) {
      sw.vxlanWorkaround = r.boolean(v.at("vxlanWorkaround"), "vxlanWorkaround");
   }
   if (v.contains("resources")) {
      sw.resources = readResources(r, v.at("resources"), "resources");
   }
   if (v.contains("toggles")) {
      Json const& t = v.at("toggles");
      if (!t.is_object()) {
         r.fail("toggles", "must be an object of toggle names and true or false, not " + shown(t));
      }
      for (auto const& [name, value] : t.items()) {
         sw.toggles.emplace_back(name, r.boolean(value, "toggles." + name));
      }
   }
   return sw;
}

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

// The helper attributes that a `set` step can change.
bool settableAttribute(ScenarioSwitch const& sw, std::string const& name) {
   Kiv::TypeDesc const* type = sw.toggle("UseTcamAgentForPolicyQos")
                                   ? Nimbal::QosTcamAclHelperV1::fwkTypeDesc()
                                   : Nimbal::QosAclHelperV1::fwkTypeDesc();
   Kiv::TypeDesc::Attribute const* attr = type->attribute(name);
   return attr && attr->set;
}

std::vector<std::string> settableAttributes(ScenarioSwitch const& sw) {
   std::vector<std::string> out;
   Kiv::TypeDesc const* type = sw.toggle("UseTcamAgentForPolicyQos")
                                   ? Nimbal::QosTcamAclHelperV1::fwkTypeDesc()
                                   : Nimbal::QosAclHelperV1::fwkTypeDesc();
   for (auto const& name : type->attributeNames()) {
      if (settableAttribute(sw, name)) {
         out.push_back(name);
      }
   }
   return out;
}

class StepReader {
  public:
   StepReader(std::string const& file, ScenarioSwitch const& sw, StepState& state)
       : file_(file), sw_(sw), state_(state) {}

   ScenarioStep read(Json const& v, int number) {
      std::string const where = "step " + std::to_string(number);
      if (!v.is_object() || v.size() != 1) {
         std::string found;
         if (v.is_object()) {
            std::vector<std::string> keys;
            for (auto const& [k, value] : v.items()) {
               (void)value;
               keys.push_back(k);
            }
            found = keys.empty() ? "it has none" : "it has " + joined(keys);
         } else {
            found = "it is " + shown(v);
         }
         throw ScenarioError(file_ + ": " + where +
                             ": a step is an object with exactly one key, the step's name; " +
                             found);
      }
      auto const it = v.items().begin();
      std::string const name = it.key();
      Json const& value = it.value();
      auto const& names = scenarioStepNames();
      if (std::find(names.begin(), names.end(), name) == names.end()) {
         Reader(file_, where).fail(name, "unknown step; the steps are " + joined(names));
      }
      Reader const r(file_, where + " (" + name + ")");
      ScenarioStep s;
      s.number = number;
      s.name = name;
      s.action = action(r, name, value);
      s.value = value.dump();
      return s;
   }

  private:
   std::string knownInterface(Reader const& r, Json const& obj, std::string const& key) const {
      std::string const name = r.string(r.member(obj, "", key), key);
      if (!sw_.interface(name)) {
         r.fail(key, "unknown interface " + inQuotes(name));
      }
      return name;
   }

   U32 queue(Reader const& r, Json const& v, std::string const& key) const {
      return static_cast<U32>(r.integer(v, key, 0, Nimbal::mmuCpuQueues - 1));
   }

   StepAction action(Reader const& r, std::string const& name, Json const& v) {
      if (name == "police") {
         r.object(v, "", {"interface", "class", "cir", "bc"});
         step::Police p;
         p.interface = knownInterface(r, v, "interface");
         p.cmapName = r.string(r.member(v, "", "class"), "class");
         p.cir = r.u32(r.member(v, "", "cir"), "cir");
         p.bc = r.u32(r.member(v, "", "bc"), "bc");
         state_.policed.insert({p.interface, p.cmapName});
         return p;
      }
      if (name == "unpolice") {
         r.object(v, "", {"interface", "class"});
         step::Unpolice u;
         u.interface = knownInterface(r, v, "interface");
         u.cmapName = r.string(r.member(v, "", "class"), "class");
         if (!state_.policed.erase({u.interface, u.cmapName})) {
            r.fail("class", "unknown class " + inQuotes(u.cmapName) +
                                ": no police step before "
                                "this one polices it on " +
                                u.interface);
         }
         return u;
      }
      if (name == "vxlan") {
         return step::Vxlan{r.boolean(v, "vxlan")};
      }
      if (name == "recirc") {
         r.object(v, "", {"interface", "enabled"});
         step::Recirc rc;
         rc.interface = knownInterface(r, v, "interface");
         if (v.contains("enabled")) {
            rc.enabled = r.boolean(v.at("enabled"), "enabled");
         }
         if (rc.enabled) {
            state_.recirc.insert(rc.interface);
         } else {
            state_.recirc.erase(rc.interface);
         }
         return rc;
      }
      if (name == "advance") {
         return step::Advance{r.number(v, "advance", true)};
      }
      if (name == "traffic") {
         r.object(v, "", {"interface", "queue", "class", "pps", "seconds", "vxlan"});
         step::Traffic t;
         t.interface = knownInterface(r, v, "interface");
         if (v.contains("queue") == v.contains("class")) {
            r.fail(v.contains("queue") ? "class" : "queue",
                   "a traffic step names either a CPU \"queue\" or a \"class\", not both");
         }
         if (v.contains("queue")) {
            t.queue = queue(r, v.at("queue"), "queue");
         } else {
            t.cmapName = r.string(v.at("class"), "class");
            if (sw_.staticQueue(t.cmapName) < 0 && !state_.policedAnywhere(t.cmapName)) {
               r.fail("class", "unknown class " + inQuotes(t.cmapName) +
                                   ": it has no static CPU queue and no police step before "
                                   "this one gives it one");
            }
         }
         t.pps = static_cast<U32>(
             r.integer(r.member(v, "", "pps"), "pps", 1, std::numeric_limits<U32>::max()));
         t.seconds = r.number(r.member(v, "", "seconds"), "seconds", false);
         if (static_cast<double>(t.pps) * t.seconds > maxTrafficPackets) {
            r.fail("pps", "pps * seconds is more than " +
                              std::to_string(static_cast<long>(maxTrafficPackets)) +
                              " packets; split the traffic into several steps");
         }
         if (v.contains("vxlan")) {
            t.vxlan = r.boolean(v.at("vxlan"), "vxlan");
         }
         if (t.vxlan && sw_.vxlanWorkaround && state_.recirc.empty()) {
            r.fail("vxlan",
                   "tunnel traffic reaches the CPU through a recirculation interface on this "
                   "switch; enable one with a recirc step first");
         }
         return t;
      }
      if (name == "show") {
         if (!v.is_string() || (v != "hw" && v != "sw")) {
            r.fail("show", "must be \"hw\" or \"sw\", not " + shown(v));
         }
         return step::Show{v == "hw"};
      }
      if (name == "clear") {
         r.object(v, "", {"interface", "queue"});
         step::Clear c;
         if (v.contains("interface")) {
            c.interface = knownInterface(r, v, "interface");
         }
         if (v.contains("queue")) {
            c.queue = queue(r, v.at("queue"), "queue");
         }
         return c;
      }
      if (name == "poll") {
         r.object(v, "", {"interface", "class"});
         step::Poll p;
         p.interface = knownInterface(r, v, "interface");
         p.cmapName = r.string(r.member(v, "", "class"), "class");
         if (!state_.policed.count({p.interface, p.cmapName})) {
            r.fail("class", "unknown class " + inQuotes(p.cmapName) +
                                ": no police step before "
                                "this one polices it on " +
                                p.interface);
         }
         return p;
      }
      if (name == "verify") {
         r.object(v, "", {});
         return step::Verify{};
      }
      if (name == "set") {
         if (!v.is_object() || v.empty()) {
            r.fail("set", "must be an object of helper attributes and values, not " + shown(v));
         }
         step::Set s;
         for (auto const& [attr, value] : v.items()) {
            if (!settableAttribute(sw_, attr)) {
               r.fail(attr, "not an attribute of the helper that can be set; those are " +
                                joined(settableAttributes(sw_)));
            }
            std::string text;
            if (value.is_boolean()) {
               text = value.get<bool>() ? "true" : "false";
            } else if (value.is_number_integer()) {
               text = value.dump();
            } else if (value.is_string()) {
               text = value.get<std::string>();
            } else {
               r.fail(attr, "must be true, false, a whole number or a string, not " + shown(value));
            }
            s.attributes.emplace_back(attr, text);
         }
         return s;
      }
      if (name == "resources") {
         step::Resources res;
         res.sizes = readResources(r, v, "");
         if (v.empty()) {
            r.fail("resources",
                   "names no pool; the keys are efpCoppEntries, efpCoppMeters, "
                   "efpDefaultMeters");
         }
         return res;
      }
      if (name == "tamper") {
         r.object(v, "", {"interface", "queue", "cir", "bc"});
         step::Tamper t;
         t.interface = knownInterface(r, v, "interface");
         t.queue = queue(r, r.member(v, "", "queue"), "queue");
         t.cir = r.u32(r.member(v, "", "cir"), "cir");
         t.bc = r.u32(r.member(v, "", "bc"), "bc");
         return t;
      }
      // fail
      r.object(v, "", {"call", "rc"});
      step::Fail f;
      f.call = r.string(r.member(v, "", "call"), "call");
      auto const& calls = failableSdkCalls();
      if (std::find(calls.begin(), calls.end(), f.call) == calls.end()) {
         r.fail("call",
                "unknown SDK call " + inQuotes(f.call) + "; the calls are " + joined(calls));
      }
      f.rc = static_cast<int>(r.integer(r.member(v, "", "rc"), "rc", -1000, -1));
      return f;
   }

   std::string const& file_;
   ScenarioSwitch const& sw_;
   StepState& state_;
};

}  // namespace

SwitchConfig ScenarioSwitch::switchConfig() const {
   SwitchConfig config;
   config.modules = modules;
   config.interfaces = interfaces;
   config.fabricInterfaces = fabricInterfaces;
   config.cpuQueues = cpuQueues;
   config.portDefaultCoppRate = portDefaultCoppRate;
   config.vxlanWorkaround = vxlanWorkaround;
   config.resources = resources;
   return config;
}

bool ScenarioSwitch::toggle(std::string const& name) const {
   for (auto const& [n, on] : toggles) {
      if (n == name) {
         return on;
      }
   }
   return false;
}

ScenarioInterface const* ScenarioSwitch::interface(std::string const& name) const {
   for (auto const* list : {&interfaces, &fabricInterfaces}) {
      for (auto const& intf : *list) {
         if (intf.name == name) {
            return &intf;
         }
      }
   }
   return nullptr;
}

int ScenarioSwitch::staticQueue(std::string const& cmapName) const {
   for (auto const& row : cpuQueues) {
      for (auto const& c : row.classes) {
         if (c == cmapName) {
            return static_cast<int>(row.id);
         }
      }
   }
   return -1;
}

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
   top.object(doc, "", {"description", "switch", "steps"});
   Scenario s;
   s.file = file;
   if (doc.contains("description")) {
      s.description = top.string(doc.at("description"), "description");
   }
   s.sw = readSwitch(file, doc.contains("switch") ? doc.at("switch") : Json::object());
   if (!doc.contains("steps")) {
      top.fail("steps", "is missing; a scenario is {\"switch\": {...}, \"steps\": [...]}");
   }
   Json const& steps = doc.at("steps");
   if (!steps.is_array()) {
      top.fail("steps", "must be a list of steps, not " + shown(steps));
   }
   StepState state;
   StepReader reader(file, s.sw, state);
   for (std::size_t i = 0; i < steps.size(); ++i) {
      s.steps.push_back(reader.read(steps.at(i), static_cast<int>(i + 1)));
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
