#include "host/scenario/JsonReader.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

namespace NimbalHost {
namespace scenario {

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

}  // namespace scenario

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

std::vector<std::string> ScenarioSwitch::systemClasses() const {
   std::vector<std::string> out;
   for (auto const& row : cpuQueues) {
      out.insert(out.end(), row.classes.begin(), row.classes.end());
   }
   return out;
}

std::vector<std::string> ScenarioSwitch::interfaceNames() const {
   std::vector<std::string> out;
   for (auto const* list : {&interfaces, &fabricInterfaces}) {
      for (auto const& intf : *list) {
         out.push_back(intf.name);
      }
   }
   return out;
}

}  // namespace NimbalHost
