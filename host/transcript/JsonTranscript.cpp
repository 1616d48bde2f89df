#include "host/transcript/JsonTranscript.h"

namespace NimbalHost {

namespace {

using Json = nlohmann::ordered_json;

// Syslog's names of the severities.
char const* severityName(int severity) {
   static char const* const names[] = {"emergency", "alert",  "critical",      "error",
                                       "warning",   "notice", "informational", "debug"};
   return severity >= 0 && severity < 8 ? names[severity] : "unknown";
}

Json keysJson(std::vector<event::KernelKey> const& keys) {
   Json out = Json::array();
   for (event::KernelKey const& k : keys) {
      Json key;
      key["interface"] = k.interface;
      key["modId"] = k.modId;
      key["port"] = k.port;
      key["queue"] = k.queue;
      if (k.queueName) {
         key["queueName"] = *k.queueName;
      }
      out.push_back(key);
   }
   return out;
}

// The fields of each kind of event, after the ones every event has.
struct Fields {
   Json& j;

   char const* operator()(event::Scenario const& e) {
      j["file"] = e.file;
      j["description"] = e.description;
      return "scenario";
   }
   char const* operator()(event::Switch const& e) {
      j["modules"] = e.modules;
      j["interfaces"] = e.interfaces;
      j["fabricInterfaces"] = e.fabricInterfaces;
      j["cpuQueues"] = e.cpuQueues;
      j["dynamicCpuQueues"] = e.dynamicCpuQueues;
      j["portDefaultCoppRate"] = e.portDefaultCoppRate;
      j["vxlanWorkaround"] = e.vxlanWorkaround;
      return "switch";
   }
   char const* operator()(event::Helper const& e) {
      j["type"] = e.type;
      j["fromLibraryFile"] = e.fromLibraryFile;
      return "helper";
   }
   char const* operator()(event::StartUp const& e) {
      j["portDefaultPolicers"] = e.portDefaultPolicers;
      j["kernelKeysProgrammed"] = e.kernelKeysProgrammed;
      j["highPortsFrom"] = e.highPortsFrom;
      j["interfacesOnHighPorts"] = e.interfacesOnHighPorts;
      j["interfacesWithoutDefaultPolicer"] = e.interfacesWithoutDefaultPolicer;
      return "startUp";
   }
   char const* operator()(event::Step const& e) {
      j["name"] = e.name;
      j["value"] = Json::parse(e.value);
      return "step";
   }
   char const* operator()(event::ClassPoliced const& e) {
      j["interface"] = e.interface;
      j["class"] = e.cmapName;
      j["queue"] = e.queue;
      if (e.queueName) {
         j["queueName"] = *e.queueName;
      }
      j["queueKind"] = e.dynamic ? "dynamic" : "static";
      j["cir"] = e.cir;
      j["bc"] = e.bc;
      j["rateChanged"] = e.rateChanged;
      return "classPoliced";
   }
   char const* operator()(event::ClassNameNote const& e) {
      j["interface"] = e.interface;
      j["class"] = e.cmapName;
      j["systemClass"] = e.systemClass;
      return "classNameNote";
   }
   char const* operator()(event::ClassNotProgrammed const& e) {
      j["interface"] = e.interface;
      j["class"] = e.cmapName;
      j["reason"] = "noDynamicCpuQueue";
      return "classNotProgrammed";
   }
   char const* operator()(event::PortDefaultPolicer const& e) {
      j["interface"] = e.interface;
      j["rate"] = e.rate;
      j["burst"] = e.burst;
      return "portDefaultPolicer";
   }
   char const* operator()(event::ClassUnpoliced const& e) {
      j["interface"] = e.interface;
      j["class"] = e.cmapName;
      j["programmed"] = e.queue.has_value();
      if (e.queue) {
         j["queue"] = *e.queue;
         if (e.queueName) {
            j["queueName"] = *e.queueName;
         }
         j["queueKind"] = e.dynamic ? "dynamic" : "static";
      }
      return "classUnpoliced";
   }
   char const* operator()(event::Vxlan const& e) {
      j["enabled"] = e.enabled;
      j["entries"] = e.entries;
      return "vxlan";
   }
   char const* operator()(event::Recirc const& e) {
      j["interface"] = e.interface;
      j["enabled"] = e.enabled;
      return "recirc";
   }
   char const* operator()(event::TrafficNotSent const& e) {
      if (e.reason == event::TrafficNotSent::Reason::noCpuQueue) {
         j["reason"] = "noCpuQueue";
         j["class"] = e.cmapName;
      } else {
         j["reason"] = "noRecirculationInterface";
      }
      j["flow"] = e.flow;
      return "trafficNotSent";
   }
   char const* operator()(event::TunnelTraffic const& e) {
      j["interface"] = e.interface;
      j["recircInterface"] = e.recircInterface;
      j["innerVlan"] = e.innerVlan;
      return "tunnelTraffic";
   }
   char const* operator()(event::TrafficEmpty const& e) {
      j["interface"] = e.interface;
      j["pps"] = e.pps;
      j["seconds"] = e.seconds;
      return "trafficEmpty";
   }
   char const* operator()(event::Traffic const& e) {
      j["interface"] = e.interface;
      j["queue"] = e.queue;
      if (e.queueName) {
         j["queueName"] = *e.queueName;
      }
      j["vxlan"] = e.vxlan;
      j["offered"] = e.offered;
      j["allowed"] = e.allowed;
      j["dropped"] = e.dropped;
      j["flow"] = e.flow;
      j["pattern"] = e.pattern;
      return "traffic";
   }
   char const* operator()(event::CaptureSummary const& e) {
      j["flow"] = e.flow;
      j["file"] = e.file;
      j["packets"] = e.packets;
      j["classified"] = e.classified;
      j["ignored"] = e.ignored;
      return "capture";
   }
   char const* operator()(event::Show const& e) {
      j["table"] = e.hw ? "hw" : "sw";
      Json rows = Json::array();
      for (CounterTableRow const& r : e.rows) {
         Json row;
         row["interface"] = r.interface;
         row["queue"] = r.queue;
         if (e.hw) {
            row["hits"] = r.hits;
         } else {
            row["dropped"] = r.dropped;
            row["allowed"] = r.allowed;
         }
         rows.push_back(row);
      }
      j["rows"] = rows;
      return "show";
   }
   char const* operator()(event::Clear const& e) {
      j["keys"] = e.keys;
      return "clear";
   }
   char const* operator()(event::Poll const& e) {
      j["interface"] = e.interface;
      j["class"] = e.cmapName;
      j["pktHits"] = e.pktHits;
      j["drop"] = e.drop;
      j["byteHits"] = e.byteHits;
      j["dropBytes"] = e.dropBytes;
      return "poll";
   }
   char const* operator()(event::Verify const& e) {
      j["differences"] = e.differences;
      j["keysNotInHardware"] = e.keysNotInHardware;
      return "verify";
   }
   char const* operator()(event::AttributeSet const& e) {
      j["attribute"] = e.name;
      j["value"] = e.value;
      return "set";
   }
   char const* operator()(event::Resources const& e) {
      Json units = Json::array();
      for (event::Resources::Unit const& u : e.units) {
         Json unit;
         unit["unit"] = u.unit;
         unit["coppEntriesInUse"] = u.coppEntriesInUse;
         unit["coppEntries"] = u.coppEntries;
         unit["coppMetersInUse"] = u.coppMetersInUse;
         unit["coppMeters"] = u.coppMeters;
         unit["defaultMetersInUse"] = u.defaultMetersInUse;
         unit["defaultMeters"] = u.defaultMeters;
         units.push_back(unit);
      }
      j["units"] = units;
      return "resources";
   }
   char const* operator()(event::Tamper const& e) {
      j["interface"] = e.interface;
      j["queue"] = e.queue;
      j["changed"] = e.policer.has_value();
      if (e.policer) {
         j["policer"] = *e.policer;
         j["cir"] = e.cir;
         j["bc"] = e.bc;
      }
      return "tamper";
   }
   char const* operator()(event::Fail const& e) {
      j["call"] = e.call;
      j["rc"] = e.rc;
      j["rcText"] = e.rcText;
      return "fail";
   }
   char const* operator()(event::KernelCopp const& e) {
      Json keys = Json::array();
      for (event::KernelKey const& k : e.waiting) {
         Json key;
         key["interface"] = k.interface;
         key["modId"] = k.modId;
         key["port"] = k.port;
         key["queue"] = k.queue;
         keys.push_back(key);
      }
      j["waiting"] = keys;
      return "kernelCopp";
   }
   char const* operator()(event::VxlanRetry const& e) {
      j["exhausted"] = e.exhausted;
      if (e.exhausted) {
         j["retryAt"] = e.retryAt;
      }
      return "vxlanRetry";
   }
   char const* operator()(event::Log const& e) {
      j["key"] = e.key;
      j["severity"] = e.severity;
      j["severityName"] = severityName(e.severity);
      j["text"] = e.text;
      j["minInterval"] = e.minInterval;
      j["maxInterval"] = e.maxInterval;
      j["burst"] = e.burst;
      j["flags"] = e.flags;
      return "log";
   }
   char const* operator()(event::End const& e) {
      j["kernelKeysProgrammed"] = e.kernelKeysProgrammed;
      j["kernelKeysWaiting"] = e.kernelKeysWaiting;
      j["waiting"] = keysJson(e.waiting);
      j["vxlanWithoutEntry"] = keysJson(e.vxlanWithoutEntry);
      return "end";
   }
};

}  // namespace

Json eventJson(TranscriptEvent const& e) {
   Json fields = Json::object();
   char const* const kind = std::visit(Fields{fields}, e.what);
   Json j;
   j["event"] = kind;
   j["time"] = e.time;
   j["step"] = e.step;
   for (auto const& [k, v] : fields.items()) {
      j[k] = v;
   }
   return j;
}

void JsonTranscript::write(TranscriptEvent const& e) {
   // Names come from the scenario file and are valid UTF-8; texts of the library are ASCII.
   std::string const line =
       eventJson(e).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
   std::fwrite(line.data(), 1, line.size(), out_);
}

}  // namespace NimbalHost
