#include "host/scenario/JsonReader.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "Kiv/Type.h"
#include "NimbalQos/NimbalQosProtectionHelper.h"
#include "NimbalQos/NimbalQosTcamProtectionHelper.h"
#include "host/scenario/NameHints.h"

namespace NimbalHost {
namespace scenario {

namespace {

// Past this many characters a list of interfaces is cut short.
constexpr std::size_t maxNameListText = 200;

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
         std::vector<std::string> const names = sw_.interfaceNames();
         // A known prefix with an unknown number is not a slip: the list says enough.
         bool const knownPrefix =
             std::any_of(names.begin(), names.end(),
                         [&](std::string const& n) { return namePrefix(n) == namePrefix(name); });
         std::optional<std::string> const closest =
             knownPrefix ? std::nullopt : closestName(name, names);
         std::string ranges = nameRangesText(names);
         if (ranges.size() > maxNameListText) {
            ranges = ranges.substr(0, ranges.rfind(", ", maxNameListText)) + ", ...";
         }
         r.fail(key, "unknown interface " + inQuotes(name) + "; the switch has " + ranges +
                         (closest ? "; the closest is " + inQuotes(*closest) : ""));
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
         if (p.cir > maxClassRate) {
            r.fail("cir", std::to_string(p.cir) + " pps is more than " +
                              std::to_string(maxClassRate) +
                              ", the highest class rate: the port's default policer meters "
                              "twice the class rate in 32 bits");
         }
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
         return readTraffic(r, v, file_, sw_, state_,
                            [this](Reader const& rr, Json const& obj, std::string const& key) {
                               return knownInterface(rr, obj, key);
                            });
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

ScenarioStep readStep(std::string const& file, ScenarioSwitch const& sw, StepState& state,
                      Json const& v, int number) {
   return StepReader(file, sw, state).read(v, number);
}

}  // namespace scenario
}  // namespace NimbalHost
