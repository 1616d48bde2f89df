#include "random/HistoryStep.h"

#include <cstdio>

namespace NimbalHistory {

namespace {

std::string quoted(std::string const& s) {
   return "\"" + s + "\"";
}

std::string number(double d) {
   char buf[32];
   std::snprintf(buf, sizeof buf, "%g", d);
   return buf;
}

// The step as a scenario file writes it, so that a failing history can be played again by hand.
struct Json {
   std::string operator()(NimbalHost::step::Police const& s) const {
      return "{\"interface\": " + quoted(s.interface) + ", \"class\": " + quoted(s.cmapName) +
             ", \"cir\": " + std::to_string(s.cir) + ", \"bc\": " + std::to_string(s.bc) + "}";
   }
   std::string operator()(NimbalHost::step::Unpolice const& s) const {
      return "{\"interface\": " + quoted(s.interface) + ", \"class\": " + quoted(s.cmapName) + "}";
   }
   std::string operator()(NimbalHost::step::Vxlan const& s) const {
      return s.enabled ? "true" : "false";
   }
   std::string operator()(NimbalHost::step::Recirc const& s) const {
      return "{\"interface\": " + quoted(s.interface) +
             ", \"enabled\": " + (s.enabled ? "true" : "false") + "}";
   }
   std::string operator()(NimbalHost::step::Advance const& s) const { return number(s.seconds); }
   std::string operator()(NimbalHost::step::Traffic const& s) const {
      std::string const to =
          s.queue ? "\"queue\": " + std::to_string(*s.queue) : "\"class\": " + quoted(s.cmapName);
      return "{\"interface\": " + quoted(s.interface) + ", " + to +
             ", \"pps\": " + std::to_string(s.pps) + ", \"seconds\": " + number(s.seconds) +
             ", \"vxlan\": " + (s.vxlan ? "true" : "false") + "}";
   }
   std::string operator()(NimbalHost::step::Show const& s) const {
      return s.hw ? "\"hw\"" : "\"sw\"";
   }
   std::string operator()(NimbalHost::step::Clear const& s) const {
      std::string out;
      if (s.interface) {
         out += "\"interface\": " + quoted(*s.interface);
      }
      if (s.queue) {
         out += std::string(out.empty() ? "" : ", ") + "\"queue\": " + std::to_string(*s.queue);
      }
      return "{" + out + "}";
   }
   std::string operator()(NimbalHost::step::Poll const& s) const {
      return "{\"interface\": " + quoted(s.interface) + ", \"class\": " + quoted(s.cmapName) + "}";
   }
   std::string operator()(NimbalHost::step::Verify const&) const { return "{}"; }
   std::string operator()(NimbalHost::step::Set const& s) const {
      std::string out;
      for (auto const& [name, value] : s.attributes) {
         out += (out.empty() ? "" : ", ") + quoted(name) + ": " + value;
      }
      return "{" + out + "}";
   }
   std::string operator()(NimbalHost::step::Resources const& s) const {
      std::string out;
      auto add = [&out](char const* name, std::optional<U32> const& v) {
         if (v) {
            out += (out.empty() ? "" : ", ") + quoted(name) + ": " + std::to_string(*v);
         }
      };
      add("efpCoppEntries", s.sizes.efpCoppEntries);
      add("efpCoppMeters", s.sizes.efpCoppMeters);
      add("efpDefaultMeters", s.sizes.efpDefaultMeters);
      return "{" + out + "}";
   }
   std::string operator()(NimbalHost::step::Tamper const& s) const {
      return "{\"interface\": " + quoted(s.interface) + ", \"queue\": " + std::to_string(s.queue) +
             ", \"cir\": " + std::to_string(s.cir) + ", \"bc\": " + std::to_string(s.bc) + "}";
   }
   std::string operator()(NimbalHost::step::Fail const& s) const {
      return "{\"call\": " + quoted(s.call) + ", \"rc\": " + std::to_string(s.rc) + "}";
   }
};

}  // namespace

std::string HistoryStep::text() const {
   if (NimbalHost::ScenarioStep const* s = scenarioStep()) {
      return "{\"" + s->name + "\": " + std::visit(Json(), s->action) + "}";
   }
   KernelKeyStep const& k = std::get<KernelKeyStep>(action);
   std::string const key = "(module " + std::to_string(k.key.modId()) + ", port " +
                           std::to_string(k.key.port()) + ", queue " +
                           std::to_string(k.key.queue()) + ")";
   if (!k.info) {
      return "kernel CoPP key " + key + " withdrawn";
   }
   return "kernel CoPP key " + key + " published at " + std::to_string(k.info->rateInPps()) +
          " pps, burst " + std::to_string(k.info->burstPkts());
}

}  // namespace NimbalHistory
