#include "host/scenario/StepText.h"

#include <cmath>
#include <cstdio>
#include <variant>

namespace NimbalHost {

std::string secondsText(double s) {
   char buf[48];
   if (std::fabs(s - std::round(s)) < 1e-9) {
      std::snprintf(buf, sizeof buf, "%.0f", s);
   } else {
      std::snprintf(buf, sizeof buf, "%g", s);
   }
   return buf;
}

namespace {

std::string destinationText(std::optional<U32> const& queue, std::string const& cmapName) {
   return queue ? "queue " + std::to_string(*queue) : "class " + cmapName;
}

// "Ethernet1 class copp-system-bgp 400 pps in bursts of 40".
std::string flowText(step::Flow const& f, bool withVxlan = true) {
   if (f.capture) {
      step::Capture const& c = *f.capture;
      std::string out = f.interface + " capture " + c.file;
      if (c.speed != 1) {
         out += " at speed " + secondsText(c.speed);
      }
      return out;
   }
   std::string out = f.interface + " " + destinationText(f.queue, f.cmapName) + " " +
                     std::to_string(f.pps) + " pps";
   switch (f.pattern.kind) {
      case step::Pattern::Kind::constant:
         out += f.exact ? " exactly evenly spaced" : "";
         break;
      case step::Pattern::Kind::bursts:
         out += " in bursts of " + std::to_string(f.pattern.burstSize);
         break;
      case step::Pattern::Kind::poisson:
         out += " as Poisson arrivals (seed " + std::to_string(f.pattern.seed) + ")";
         break;
   }
   return out + (withVxlan && f.vxlan ? " as VXLAN tunnel traffic" : "");
}

}  // namespace

std::string stepText(ScenarioStep const& step) {
   struct Describe {
      std::string operator()(step::Police const& s) const {
         return s.interface + " " + s.cmapName + " cir " + std::to_string(s.cir) + " pps bc " +
                std::to_string(s.bc) + " packets";
      }
      std::string operator()(step::Unpolice const& s) const {
         return s.interface + " " + s.cmapName;
      }
      std::string operator()(step::Vxlan const& s) const { return s.enabled ? "on" : "off"; }
      std::string operator()(step::Recirc const& s) const {
         return s.interface + (s.enabled ? " on" : " off");
      }
      std::string operator()(step::Advance const& s) const { return secondsText(s.seconds) + " s"; }
      std::string operator()(step::Traffic const& s) const {
         if (s.oneFlow) {
            // The VXLAN note reads after the time, as it always has.
            return flowText(s.flowList().front(), false) + " for " + secondsText(s.seconds) + " s" +
                   (s.vxlan ? " as VXLAN tunnel traffic" : "");
         }
         std::string out = std::to_string(s.flows.size()) +
                           (s.flows.size() == 1 ? " flow for " : " flows for ") +
                           secondsText(s.seconds) + " s:";
         for (std::size_t i = 0; i < s.flows.size(); ++i) {
            out += (i ? "; " : " ") + flowText(s.flows[i]);
         }
         return out;
      }
      std::string operator()(step::Show const& s) const { return s.hw ? "hw" : "sw"; }
      std::string operator()(step::Clear const& s) const {
         std::string out = s.interface ? *s.interface : "every interface";
         return out + (s.queue ? " queue " + std::to_string(*s.queue) : ", every queue");
      }
      std::string operator()(step::Poll const& s) const { return s.interface + " " + s.cmapName; }
      std::string operator()(step::Verify const&) const { return ""; }
      std::string operator()(step::Set const& s) const {
         std::string out;
         for (auto const& [name, value] : s.attributes) {
            out += (out.empty() ? "" : ", ") + name + " " + value;
         }
         return out;
      }
      std::string operator()(step::Resources const& s) const {
         std::string out;
         auto add = [&out](char const* name, std::optional<U32> const& v) {
            if (v) {
               out += (out.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(*v);
            }
         };
         add("efpCoppEntries", s.sizes.efpCoppEntries);
         add("efpCoppMeters", s.sizes.efpCoppMeters);
         add("efpDefaultMeters", s.sizes.efpDefaultMeters);
         return out;
      }
      std::string operator()(step::Tamper const& s) const {
         return s.interface + " queue " + std::to_string(s.queue) + " cir " +
                std::to_string(s.cir) + " bc " + std::to_string(s.bc);
      }
      std::string operator()(step::Fail const& s) const {
         return s.call + " " + std::to_string(s.rc);
      }
   };
   std::string const what = std::visit(Describe(), step.action);
   return step.name + (what.empty() ? "" : " " + what);
}

}  // namespace NimbalHost
