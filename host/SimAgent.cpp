#include "host/SimAgent.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Kiv/Clock.h"
#include "Kiv/Log.h"
#include "Kiv/Type.h"
#include "Nimbal/Toggle.h"
#include "Orvik/IntfNameCmp.h"
#include "Oskel/VerifyData.h"
#include "host/SvgPlot.h"

namespace NimbalHost {

namespace {

// A number of seconds as a person writes it: 60, 0.5, 2.25.
std::string secondsText(double s) {
   char buf[48];
   if (std::fabs(s - std::round(s)) < 1e-9) {
      std::snprintf(buf, sizeof buf, "%.0f", s);
   } else {
      std::snprintf(buf, sizeof buf, "%g", s);
   }
   return buf;
}

// "1 key", "2 keys".
std::string counted(std::size_t n, std::string const& one, std::string const& many = "") {
   return std::to_string(n) + " " + (n == 1 ? one : many.empty() ? one + "s" : many);
}

std::string timeText(double s) {
   char buf[48];
   std::snprintf(buf, sizeof buf, "%.3f", s);
   return buf;
}

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
         std::string const to =
             s.queue ? "queue " + std::to_string(*s.queue) : "class " + s.cmapName;
         return s.interface + " " + to + " " + std::to_string(s.pps) + " pps for " +
                secondsText(s.seconds) + " s" + (s.vxlan ? " as VXLAN tunnel traffic" : "");
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

// The toggle file the factory reads, with the scenario's toggles, for as long as it lives.
class ToggleFile {
  public:
   explicit ToggleFile(ScenarioSwitch const& sw) {
      char dir[] = "/tmp/nimbal-copp-sim-XXXXXX";
      if (!::mkdtemp(dir)) {
         throw std::runtime_error("cannot make a directory for the toggle file");
      }
      dir_ = dir;
      std::ofstream file(dir_ + "/NimbalTcam.json");
      file << "{";
      for (std::size_t i = 0; i < sw.toggles.size(); ++i) {
         file << (i ? ", " : "") << "\"" << sw.toggles[i].first
              << "\": " << (sw.toggles[i].second ? "true" : "false");
      }
      file << "}\n";
      if (char const* old = std::getenv(Nimbal::toggleDirEnv)) {
         previous_ = old;
      }
      ::setenv(Nimbal::toggleDirEnv, dir_.c_str(), 1);
   }
   ~ToggleFile() {
      if (previous_) {
         ::setenv(Nimbal::toggleDirEnv, previous_->c_str(), 1);
      } else {
         ::unsetenv(Nimbal::toggleDirEnv);
      }
      std::error_code ec;
      std::filesystem::remove_all(dir_, ec);
   }
   ToggleFile(ToggleFile const&) = delete;
   ToggleFile& operator=(ToggleFile const&) = delete;

  private:
   std::string dir_;
   std::optional<std::string> previous_;
};

}  // namespace

SimAgent::SimAgent(Scenario const& scenario, std::FILE* out) : scenario_(scenario), out_(out) {
   Kiv::logSinkIs([this](Kiv::LogHandle const& handle, std::string const& message) {
      line("log: " + handle.key() + ": " + message);
   });
   start_ = Kiv::activityClock()->now();
   // What the scenario asks for comes first: start-up may already raise log messages.
   switchReport();
   {
      ToggleFile const toggles(scenario_.sw);
      try {
         switch_ = buildSwitch(scenario_.sw.switchConfig());
      } catch (std::invalid_argument const& e) {
         Kiv::logSinkIs(nullptr);
         throw ScenarioError(scenario_.file + ": switch: " + e.what());
      }
   }
   // The journal of SDK calls is for tests of the library; the agent has no use for it.
   switch_->sdk().journalLimitIs(0);
   if (!switch_->scsd()->verifyData()) {
      switch_->scsd()->verifyDataIs(new Oskel::VerifyData());
   }
   classes_ = std::make_unique<QosClassConfig>(*switch_);
   kernel_ = std::make_unique<KernelCoppReactor>(switch_->helper().ptr());
   kernel_->notifierIs(switch_->kernelCoppConfig());
   startUpReport();
   afterStep();
}

SimAgent::~SimAgent() {
   kernel_.reset();
   classes_.reset();
   switch_.reset();
   Kiv::logSinkIs(nullptr);
}

void SimAgent::line(std::string const& text) {
   std::fputs(text.c_str(), out_);
   std::fputc('\n', out_);
}

double SimAgent::now() const {
   return Kiv::activityClock()->now() - start_;
}

void SimAgent::advanceTo(double seconds) {
   double const t = start_ + seconds;
   if (t <= Kiv::activityClock()->now()) {
      return;
   }
   Kiv::activityClock()->nowIs(t);
   kernel_->retry();
}

std::string SimAgent::queueText(U32 queue) const {
   Kiv::Ptr<Nimbal::MmuCpuQ> const cpuQ = switch_->mmuSm()->cpuQColl()->cpuQ(queue);
   return "CPU queue " + std::to_string(queue) + (cpuQ ? " (" + cpuQ->name() + ")" : "");
}

Oskel::ModIdPortQueueKey SimAgent::keyOf(std::string const& intf, U32 queue) const {
   NimbalTypes::NimbalPort const p = switch_->port(Orvik::IntfId(intf));
   return Oskel::ModIdPortQueueKey(p.modId(), p.logicalPort(), queue);
}

void SimAgent::switchReport() {
   ScenarioSwitch const& sw = scenario_.sw;
   line("nimbal-copp-sim: " + scenario_.file);
   for (std::string const& l : wrapped(scenario_.description, 96)) {
      line("  " + l);
   }
   std::size_t dynamicQueues = 0;
   for (auto const& row : sw.cpuQueues) {
      dynamicQueues += row.dynamic ? 1 : 0;
   }
   std::string interfaces = counted(sw.interfaces.size(), "interface");
   if (!sw.fabricInterfaces.empty()) {
      interfaces += " and " + counted(sw.fabricInterfaces.size(), "fabric interface");
   }
   line("switch: " + std::to_string(sw.modules.size()) +
        (sw.modules.size() == 1 ? " module, " : " modules, ") + interfaces + ", " +
        std::to_string(sw.cpuQueues.size()) + " CPU queues (" + std::to_string(dynamicQueues) +
        " dynamic), port default CoPP rate " + std::to_string(sw.portDefaultCoppRate) +
        " pps, VXLAN workaround " + (sw.vxlanWorkaround ? "on" : "off"));
}

void SimAgent::startUpReport() {
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = switch_->helper();
   line("helper: " + helper->fwkType()->fullName() +
        (switch_->helperFromLibraryFile() ? ", from the library file through dlopen and "
                                            "getQosAclHelper"
                                          : ", from getQosAclHelper"));
   std::size_t highPorts = 0;
   for (auto const& intf : switch_->interfaces()) {
      highPorts += switch_->port(intf).logicalPort() >= Switch::defaultEntryPorts ? 1 : 0;
   }
   line("start-up: " +
        counted(helper->portDefaultCoppPolicerHwData(), "per-port default CoPP policer") + ", " +
        counted(kernel_->programmed().size(), "kernel CoPP key") + " programmed");
   if (highPorts) {
      line("start-up: no per-port default CoPP policer on ports " +
           std::to_string(Switch::defaultEntryPorts) + " and above (" +
           counted(highPorts, "interface") + ")");
   }
   if (!switch_->interfacesWithoutDefaultPolicer().empty()) {
      line("start-up: no per-port default CoPP policer on " +
           counted(switch_->interfacesWithoutDefaultPolicer().size(), "interface") +
           " (the default-and-VXLAN group ran out), the first " +
           switch_->interfacesWithoutDefaultPolicer().front().stringValue());
   }
}

void SimAgent::afterStep() {
   std::size_t const failed = kernel_->failed().size();
   if (failed != reportedFailedKeys_) {
      line(failed ? "  kernel CoPP: " + counted(failed, "key") +
                        " waiting for hardware resources, tried again as the clock advances"
                  : "  kernel CoPP: every key is programmed");
      reportedFailedKeys_ = failed;
   }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = switch_->helper()->qosIntfCoppSm();
   bool const exhausted = sm && sm->vxlanEntryExhausted();
   double const retryAt = exhausted ? sm->vxlanEntryRetryTimer()->timeMin() - start_ : 0;
   if (exhausted != reportedVxlanExhausted_ || retryAt != reportedVxlanRetry_) {
      line(exhausted ? "  VXLAN CoPP entries ran out; the state machine retries at " +
                           timeText(retryAt) + " s"
                     : "  VXLAN CoPP entries: nothing waits for a retry");
      reportedVxlanExhausted_ = exhausted;
      reportedVxlanRetry_ = retryAt;
   }
}

void SimAgent::run() {
   for (ScenarioStep const& s : scenario_.steps) {
      step(s);
   }
   line("end at " + timeText(now()) +
        " s: " + counted(kernel_->programmed().size(), "kernel CoPP key") + " programmed");
}

void SimAgent::step(ScenarioStep const& s) {
   line("step " + std::to_string(s.number) + " at " + timeText(now()) + " s: " + stepText(s));
   std::visit(
       [this, &s](auto const& action) {
          using T = std::decay_t<decltype(action)>;
          if constexpr (std::is_same_v<T, step::Police>) {
             police(action);
          } else if constexpr (std::is_same_v<T, step::Unpolice>) {
             unpolice(action);
          } else if constexpr (std::is_same_v<T, step::Vxlan>) {
             vxlan(action);
          } else if constexpr (std::is_same_v<T, step::Recirc>) {
             recirc(action);
          } else if constexpr (std::is_same_v<T, step::Advance>) {
             advanceTo(now() + action.seconds);
          } else if constexpr (std::is_same_v<T, step::Traffic>) {
             traffic(action);
          } else if constexpr (std::is_same_v<T, step::Show>) {
             show(action);
          } else if constexpr (std::is_same_v<T, step::Clear>) {
             clear(action);
          } else if constexpr (std::is_same_v<T, step::Poll>) {
             poll(action);
          } else if constexpr (std::is_same_v<T, step::Verify>) {
             verify();
          } else if constexpr (std::is_same_v<T, step::Set>) {
             set(s, action);
          } else if constexpr (std::is_same_v<T, step::Resources>) {
             resources(action);
          } else if constexpr (std::is_same_v<T, step::Tamper>) {
             tamper(action);
          } else {
             fail(action);
          }
       },
       s.action);
   afterStep();
}

void SimAgent::police(step::Police const& s) {
   Orvik::IntfId const intf(s.interface);
   U32 const defaultRate = switch_->helper()->portDefaultCoppPolicerHwData(intf).policerRate();
   QosClassConfig::PoliceOutcome const o = classes_->police(s.interface, s.cmapName, s.cir, s.bc);
   if (!o.cpuQ) {
      line("  " + s.interface + " " + s.cmapName +
           ": no dynamic CPU queue is free; the class is not programmed");
      return;
   }
   line("  " + s.interface + " " + s.cmapName + " on " + queueText(*o.cpuQ) + ", " +
        (o.dynamic ? "dynamic" : "static") + ": " + std::to_string(s.cir) + " pps, burst " +
        std::to_string(s.bc) + " packets" + (o.rateChange ? " (rate changed)" : ""));
   Nimbal::NimbalQosPolicerHwData const d = switch_->helper()->portDefaultCoppPolicerHwData(intf);
   if (d.policerRate() != defaultRate) {
      line("  per-port default CoPP policer of " + s.interface + ": " +
           std::to_string(d.policerRate()) + " pps, burst " + std::to_string(d.policerBurst()) +
           " packets");
   }
}

void SimAgent::unpolice(step::Unpolice const& s) {
   Orvik::IntfId const intf(s.interface);
   U32 const defaultRate = switch_->helper()->portDefaultCoppPolicerHwData(intf).policerRate();
   QosClassConfig::UnpoliceOutcome const o = classes_->unpolice(s.interface, s.cmapName);
   if (!o.cpuQ) {
      line("  " + s.interface + " " + s.cmapName +
           ": police action removed; it was never "
           "programmed");
      return;
   }
   line("  " + s.interface + " " + s.cmapName + ": police action removed; " + queueText(*o.cpuQ) +
        (o.dynamic ? " is given back to the pool" : " is back to its default rate"));
   Nimbal::NimbalQosPolicerHwData const d = switch_->helper()->portDefaultCoppPolicerHwData(intf);
   if (d.policerRate() != defaultRate) {
      line("  per-port default CoPP policer of " + s.interface + ": " +
           std::to_string(d.policerRate()) + " pps, burst " + std::to_string(d.policerBurst()) +
           " packets");
   }
}

void SimAgent::vxlan(step::Vxlan const& s) {
   switch_->scsd()->vxlanEnabledIs(s.enabled);
   std::size_t const entries = switch_->helper()->kernelDynamicCoppVxlanData() +
                               switch_->helper()->portDefaultCoppPolicerVxlanHwData();
   line(std::string("  VXLAN ") + (s.enabled ? "enabled" : "disabled") + "; " +
        counted(entries, "VXLAN CoPP entry", "VXLAN CoPP entries") + " programmed");
}

void SimAgent::recirc(step::Recirc const& s) {
   Orvik::IntfId const intf(s.interface);
   if (s.enabled) {
      switch_->scsd()->vxlanRecircIntfIs(intf, true);
      line("  " + s.interface + " is a VXLAN recirculation interface");
   } else {
      switch_->scsd()->vxlanRecircIntfDel(intf);
      line("  " + s.interface + " is no longer a VXLAN recirculation interface");
   }
}

void SimAgent::traffic(step::Traffic const& s) {
   std::optional<U32> const queue = s.queue ? s.queue : classes_->queueOfClass(s.cmapName);
   if (!queue) {
      line("  class " + s.cmapName + " has no CPU queue: nothing was sent");
      return;
   }
   NimbalTypes::NimbalPort const source = switch_->port(Orvik::IntfId(s.interface));
   U32 unit = source.unit();
   U32 inPort = source.logicalPort();
   U16 innerVlan = 0;
   if (s.vxlan) {
      // Tunnel traffic carries its source port in the inner VLAN id; on chips with the
      // workaround it reaches the CPU from a recirculation port, of the same unit if there is one.
      innerVlan = source.logicalPort();
      if (scenario_.sw.vxlanWorkaround) {
         std::vector<std::string> recirc;
         for (auto const& [intf, on] : switch_->scsd()->vxlanRecircIntfCol()) {
            if (on) {
               recirc.push_back(intf.stringValue());
            }
         }
         std::sort(recirc.begin(), recirc.end(), Orvik::intfNameCmp);
         auto sameUnit = std::find_if(recirc.begin(), recirc.end(), [&](std::string const& name) {
            return switch_->port(Orvik::IntfId(name)).unit() == unit;
         });
         if (sameUnit == recirc.end()) {
            sameUnit = recirc.begin();
         }
         if (sameUnit == recirc.end()) {
            line("  no VXLAN recirculation interface: nothing was sent");
            return;
         }
         // It arrives where the recirculation interface is, which may be another unit.
         NimbalTypes::NimbalPort const recircPort = switch_->port(Orvik::IntfId(*sameUnit));
         unit = recircPort.unit();
         inPort = recircPort.logicalPort();
         line("  tunnel traffic of " + s.interface + " reaches the CPU from " + *sameUnit +
              " with inner VLAN " + std::to_string(innerVlan));
      }
   }
   Kiv::Ptr<Nimbal::MmuCpuQ> const cpuQ = switch_->mmuSm()->cpuQColl()->cpuQ(*queue);
   double const t0 = now();
   auto const packets =
       static_cast<std::size_t>(std::floor(static_cast<double>(s.pps) * s.seconds + 1e-9));
   TrafficBurst& burst =
       traffic_.burstIs(s.interface, *queue, cpuQ ? cpuQ->name() : "", s.vxlan, t0, s.pps);
   burst.dropped.reserve(packets);
   U64 allowed = 0;
   Kiv::Ptr<Nimbal::PktDrv> const pktDrv = switch_->pktDrv();
   for (std::size_t i = 0; i < packets; ++i) {
      advanceTo(burst.packetTime(i));
      bool const passed = pktDrv->sendToCpu(unit, inPort, *queue, innerVlan);
      burst.dropped.push_back(!passed);
      allowed += passed ? 1 : 0;
   }
   advanceTo(t0 + s.seconds);
   line("traffic " + s.interface + " queue " + std::to_string(*queue) + ": offered " +
        std::to_string(packets) + " allowed " + std::to_string(allowed) + " dropped " +
        std::to_string(packets - allowed));
}

void SimAgent::show(step::Show const& s) {
   std::fflush(out_);
   Kiv::invoke(*switch_->helper(), s.hw ? "showCoppIntfCountersHw" : "showCoppIntfCountersSw",
               {std::to_string(::fileno(out_))});
   std::fflush(out_);
}

void SimAgent::clear(step::Clear const& s) {
   std::optional<NimbalTypes::NimbalPort> port;
   if (s.interface) {
      port = switch_->port(Orvik::IntfId(*s.interface));
   }
   std::vector<Oskel::ModIdPortQueueKey> keys =
       switch_->helper()->kernelDynamicCoppDataCol().keys();
   std::sort(keys.begin(), keys.end());
   std::size_t cleared = 0;
   for (auto const& key : keys) {
      if (port && (key.modId() != port->modId() || key.port() != port->logicalPort())) {
         continue;
      }
      if (s.queue && key.queue() != *s.queue) {
         continue;
      }
      // The agent's clear command reaches the full clear by name.
      Kiv::invoke(*switch_->helper(), "clearCoppIntfSwCounterByPortQueue",
                  {std::to_string(key.modId()), std::to_string(key.port()),
                   std::to_string(key.queue()), "false"});
      ++cleared;
   }
   line("  cleared the counters of " + counted(cleared, "programmed port-queue key"));
}

void SimAgent::poll(step::Poll const& s) {
   Oskel::QosClassCounterData const c = classes_->poll(s.interface, s.cmapName);
   line("poll " + s.interface + " " + s.cmapName + ": pktHits=" + std::to_string(c.pktHits()) +
        " drop=" + std::to_string(c.drop()) + " byteHits=" + std::to_string(c.byteHits()) +
        " dropBytes=" + std::to_string(c.dropBytes()));
}

void SimAgent::verify() {
   Kiv::Ptr<Oskel::VerifyData> const data = switch_->scsd()->verifyData();
   data->clear();
   classes_->verifyAll();
   // The per-port default policers are verified by name, as the agent's verify command does.
   Kiv::invoke(*switch_->helper(), "verifyCoppPerPortDefaultPolicer", {});
   for (auto const& cli : data->cliVerifyOutput()) {
      line("verify: " + cli.message);
   }
   line("verify: " + std::to_string(data->cliVerifyOutput().size()) + " differences");
}

void SimAgent::set(ScenarioStep const& step, step::Set const& s) {
   for (auto const& [name, value] : s.attributes) {
      try {
         Kiv::attributeValueIs(*switch_->helper(), name, value);
      } catch (std::invalid_argument const& e) {
         throw ScenarioError(scenario_.file + ": step " + std::to_string(step.number) +
                             " (set): key \"" + name + "\": " + e.what());
      }
      line("  " + name + " = " + Kiv::attributeValue(*switch_->helper(), name));
   }
}

void SimAgent::resources(step::Resources const& s) {
   switch_->resourcesIs(s.sizes);
   for (U16 unit : switch_->units()) {
      Shim::FieldGroup const* copp = switch_->chip().group(unit, Switch::efpCoppGroupId);
      Shim::FieldGroup const* def = switch_->chip().group(unit, Switch::efpCoppDefAndVxlanGroupId);
      if (!copp || !def) {
         continue;
      }
      line("  unit " + std::to_string(unit) + ": egress CoPP entries " +
           std::to_string(copp->entriesInUse) + " of " + std::to_string(copp->entryPoolSize) +
           ", meters " + std::to_string(copp->metersInUse) + " of " +
           std::to_string(copp->meterPoolSize) + "; default-and-VXLAN meters " +
           std::to_string(def->metersInUse) + " of " + std::to_string(def->meterPoolSize));
   }
}

void SimAgent::tamper(step::Tamper const& s) {
   Oskel::ModIdPortQueueKey const key = keyOf(s.interface, s.queue);
   std::string const what = s.interface + " queue " + std::to_string(s.queue);
   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const data =
       switch_->helper()->kernelDynamicCoppData(key);
   int const unit = switch_->port(Orvik::IntfId(s.interface)).unit();
   Shim::Policer const* policer =
       data ? switch_->chip().policer(unit, static_cast<Shim::bcm_policer_t>(data->policerId()))
            : nullptr;
   if (!policer) {
      line("  " + what + " has no programmed meter: nothing was changed");
      return;
   }
   Shim::bcm_policer_config_s config = policer->config;
   config.ckbits_sec_is(s.cir);
   config.ckbits_burst_is(s.bc);
   switch_->chip().tamperPolicer(unit, policer->id, config);
   line("  policer " + std::to_string(policer->id) + " of " + what + " now meters " +
        std::to_string(s.cir) + " pps, burst " + std::to_string(s.bc) +
        " packets, behind the agent's back");
}

void SimAgent::fail(step::Fail const& s) {
   switch_->sdk().failNextCallIs(s.call, s.rc);
   line("  the next " + s.call + " returns " + std::to_string(s.rc) + " (" +
        Shim::bcm_errmsg(s.rc) + ")");
}

std::string SimAgent::plot() const {
   return svgChart("CPU-bound traffic of " + scenario_.file, scenario_.description,
                   traffic_.panels(now()), now());
}

}  // namespace NimbalHost
