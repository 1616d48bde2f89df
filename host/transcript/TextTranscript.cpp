#include "host/transcript/TextTranscript.h"

#include <cmath>
#include <type_traits>

#include "host/transcript/KeyRanges.h"
#include "host/transcript/SvgPlot.h"

namespace NimbalHost {

namespace {

// A number of seconds as a person writes it: 60, 0.5, 2.25.
std::string secondsText(double s) {
   char buf[48];
   std::snprintf(buf, sizeof buf, "%g", s);
   return buf;
}

std::string queueText(U32 queue, std::optional<std::string> const& name) {
   return "CPU queue " + std::to_string(queue) + (name ? " (" + *name + ")" : "");
}

// The lines of each kind of event.
struct Lines {
   double time;
   std::string out;

   void line(std::string const& text) { out += text + "\n"; }

   void operator()(event::Scenario const& e) {
      line("nimbal-copp-sim: " + e.file);
      for (std::string const& l : wrapped(e.description, 96)) {
         line("  " + l);
      }
   }
   void operator()(event::Switch const& e) {
      std::string interfaces = counted(e.interfaces, "interface");
      if (e.fabricInterfaces) {
         interfaces += " and " + counted(e.fabricInterfaces, "fabric interface");
      }
      line("switch: " + std::to_string(e.modules) + (e.modules == 1 ? " module, " : " modules, ") +
           interfaces + ", " + std::to_string(e.cpuQueues) + " CPU queues (" +
           std::to_string(e.dynamicCpuQueues) + " dynamic), port default CoPP rate " +
           std::to_string(e.portDefaultCoppRate) + " pps, VXLAN workaround " +
           (e.vxlanWorkaround ? "on" : "off"));
   }
   void operator()(event::Helper const& e) {
      line("helper: " + e.type +
           (e.fromLibraryFile ? ", from the library file through dlopen and getQosAclHelper"
                              : ", from getQosAclHelper"));
   }
   void operator()(event::StartUp const& e) {
      line("start-up: " + counted(e.portDefaultPolicers, "per-port default CoPP policer") + ", " +
           counted(e.kernelKeysProgrammed, "kernel CoPP key") + " programmed");
      if (e.interfacesOnHighPorts) {
         line("start-up: no per-port default CoPP policer on ports " +
              std::to_string(e.highPortsFrom) + " and above (" +
              counted(e.interfacesOnHighPorts, "interface") + ")");
      }
      if (!e.interfacesWithoutDefaultPolicer.empty()) {
         line("start-up: no per-port default CoPP policer on " +
              counted(e.interfacesWithoutDefaultPolicer.size(), "interface") +
              " (the default-and-VXLAN group ran out), the first " +
              e.interfacesWithoutDefaultPolicer.front());
      }
   }
   void operator()(event::Step const& e) {
      line("step " + std::to_string(e.number) + " at " + timeText(time) + " s: " + e.text);
   }
   void operator()(event::ClassPoliced const& e) {
      line("  " + e.interface + " " + e.cmapName + " on " + queueText(e.queue, e.queueName) + ", " +
           (e.dynamic ? "dynamic" : "static") + ": " + std::to_string(e.cir) + " pps, burst " +
           std::to_string(e.bc) + " packets" + (e.rateChanged ? " (rate changed)" : ""));
   }
   void operator()(event::ClassNameNote const& e) {
      line("  note: " + e.cmapName +
           " has no static CPU queue, so it is a user class on a dynamic queue and " +
           e.systemClass + " stays as it was; did you mean " + e.systemClass + "?");
   }
   void operator()(event::ClassNotProgrammed const& e) {
      line("  " + e.interface + " " + e.cmapName +
           ": no dynamic CPU queue is free; the class is not programmed");
   }
   void operator()(event::PortDefaultPolicer const& e) {
      line("  per-port default CoPP policer of " + e.interface + ": " + std::to_string(e.rate) +
           " pps, burst " + std::to_string(e.burst) + " packets");
   }
   void operator()(event::ClassUnpoliced const& e) {
      if (!e.queue) {
         line("  " + e.interface + " " + e.cmapName +
              ": police action removed; it was never programmed");
         return;
      }
      line("  " + e.interface + " " + e.cmapName + ": police action removed; " +
           queueText(*e.queue, e.queueName) +
           (e.dynamic ? " is given back to the pool" : " is back to its default rate"));
   }
   void operator()(event::Vxlan const& e) {
      line(std::string("  VXLAN ") + (e.enabled ? "enabled" : "disabled") + "; " +
           counted(e.entries, "VXLAN CoPP entry", "VXLAN CoPP entries") + " programmed");
   }
   void operator()(event::Recirc const& e) {
      line("  " + e.interface +
           (e.enabled ? " is a VXLAN recirculation interface"
                      : " is no longer a VXLAN recirculation interface"));
   }
   void operator()(event::TrafficNotSent const& e) {
      line(e.reason == event::TrafficNotSent::Reason::noCpuQueue
               ? "  class " + e.cmapName + " has no CPU queue: nothing was sent"
               : "  no VXLAN recirculation interface: nothing was sent");
   }
   void operator()(event::TunnelTraffic const& e) {
      line("  tunnel traffic of " + e.interface + " reaches the CPU from " + e.recircInterface +
           " with inner VLAN " + std::to_string(e.innerVlan));
   }
   void operator()(event::TrafficEmpty const& e) {
      line("  note: " + std::to_string(e.pps) + " pps for " + secondsText(e.seconds) +
           " s is less than one packet: " + e.interface + " sent nothing");
   }
   void operator()(event::CaptureSummary const& e) {
      line("capture " + e.file + ": " + std::to_string(e.packets) + " packets, " +
           std::to_string(e.classified) + " classified, " + std::to_string(e.ignored) + " ignored");
   }
   void operator()(event::Traffic const& e) {
      line("traffic " + e.interface + " queue " + std::to_string(e.queue) + ": offered " +
           std::to_string(e.offered) + " allowed " + std::to_string(e.allowed) + " dropped " +
           std::to_string(e.dropped));
   }
   // The table byte for byte as the library wrote it.
   void operator()(event::Show const& e) { out += e.text; }
   void operator()(event::Clear const& e) {
      line("  cleared the counters of " + counted(e.keys, "programmed port-queue key"));
   }
   void operator()(event::Poll const& e) {
      line("poll " + e.interface + " " + e.cmapName + ": pktHits=" + std::to_string(e.pktHits) +
           " drop=" + std::to_string(e.drop) + " byteHits=" + std::to_string(e.byteHits) +
           " dropBytes=" + std::to_string(e.dropBytes));
   }
   void operator()(event::Verify const& e) {
      for (std::string const& d : e.differences) {
         line("verify: " + d);
      }
      line("verify: " + std::to_string(e.differences.size()) + " differences");
      if (e.keysNotInHardware) {
         line("  not verified: " + counted(e.keysNotInHardware, "configured kernel CoPP key") +
              " not in hardware (waiting for resources)");
      }
   }
   void operator()(event::AttributeSet const& e) { line("  " + e.name + " = " + e.value); }
   void operator()(event::Resources const& e) {
      for (event::Resources::Unit const& u : e.units) {
         line("  unit " + std::to_string(u.unit) + ": egress CoPP entries " +
              std::to_string(u.coppEntriesInUse) + " of " + std::to_string(u.coppEntries) +
              ", meters " + std::to_string(u.coppMetersInUse) + " of " +
              std::to_string(u.coppMeters) + "; default-and-VXLAN meters " +
              std::to_string(u.defaultMetersInUse) + " of " + std::to_string(u.defaultMeters));
      }
   }
   void operator()(event::Tamper const& e) {
      std::string const what = e.interface + " queue " + std::to_string(e.queue);
      if (!e.policer) {
         line("  " + what + " has no programmed meter: nothing was changed");
         return;
      }
      line("  policer " + std::to_string(*e.policer) + " of " + what + " now meters " +
           std::to_string(e.cir) + " pps, burst " + std::to_string(e.bc) +
           " packets, behind the agent's back");
   }
   void operator()(event::Fail const& e) {
      line("  the next " + e.call + " returns " + std::to_string(e.rc) + " (" + e.rcText + ")");
   }
   void operator()(event::KernelCopp const& e) {
      line(e.waiting.empty() ? "  kernel CoPP: every key is programmed"
                             : "  kernel CoPP: " + counted(e.waiting.size(), "key") +
                                   " waiting for hardware resources, tried again as the clock "
                                   "advances");
   }
   void operator()(event::VxlanRetry const& e) {
      line(e.exhausted ? "  VXLAN CoPP entries ran out; the state machine retries at " +
                             timeText(e.retryAt) + " s"
                       : "  VXLAN CoPP entries: nothing waits for a retry");
   }
   void operator()(event::Log const& e) { line("log: " + e.key + ": " + e.text); }
   void operator()(event::End const& e) {
      line("end at " + timeText(time) +
           " s: " + counted(e.kernelKeysProgrammed, "kernel CoPP key") + " programmed");
      if (!e.waiting.empty()) {
         line("  unpoliced, waiting for hardware: " + counted(e.waiting.size(), "key") + ", " +
              keysText(e.waiting, e.interfaceOrder));
      }
      if (!e.vxlanWithoutEntry.empty()) {
         line("  without a VXLAN CoPP entry: " + counted(e.vxlanWithoutEntry.size(), "key") + ", " +
              keysText(e.vxlanWithoutEntry, e.interfaceOrder));
      }
   }
   static std::string keysText(std::vector<event::KernelKey> const& keys,
                               std::vector<std::string> const& order) {
      std::vector<KeyName> names;
      names.reserve(keys.size());
      for (event::KernelKey const& k : keys) {
         names.push_back({k.interface, k.queue, k.queueName.value_or("")});
      }
      return keyRangesText(names, order);
   }
};

}  // namespace

std::string counted(std::size_t n, std::string const& one, std::string const& many) {
   return std::to_string(n) + " " + (n == 1 ? one : many.empty() ? one + "s" : many);
}

std::string timeText(double s) {
   char buf[48];
   std::snprintf(buf, sizeof buf, "%.3f", s);
   return buf;
}

std::string eventText(TranscriptEvent const& e) {
   Lines lines{e.time, ""};
   std::visit(lines, e.what);
   return lines.out;
}

void TextTranscript::write(TranscriptEvent const& e) {
   std::string const text = eventText(e);
   std::fwrite(text.data(), 1, text.size(), out_);
}

}  // namespace NimbalHost
