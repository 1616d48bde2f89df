#include "host/SimAgent.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "Kiv/Clock.h"
#include "Kiv/Log.h"
#include "Kiv/Type.h"
#include "Nimbal/Toggle.h"
#include "Orvik/IntfNameCmp.h"
#include "Oskel/VerifyData.h"
#include "host/SvgPlot.h"
#include "host/TextTranscript.h"

namespace NimbalHost {

namespace {

// A directory of this process's own, made once and removed at exit (by this process only, not
// by a child forked from it).
class ToggleRoot {
  public:
   ToggleRoot() {
      char dir[] = "/tmp/nimbal-copp-sim-XXXXXX";
      if (!::mkdtemp(dir)) {
         throw std::runtime_error("cannot make a directory for the toggle file");
      }
      path_ = dir;
   }
   ~ToggleRoot() {
      if (::getpid() == owner_) {
         std::error_code ec;
         std::filesystem::remove_all(path_, ec);
      }
   }
   ToggleRoot(ToggleRoot const&) = delete;
   ToggleRoot& operator=(ToggleRoot const&) = delete;
   std::string const& path() const { return path_; }

  private:
   std::string path_;
   ::pid_t owner_ = ::getpid();
};

// The toggle file the factory reads, with the scenario's toggles, for as long as it lives. Its
// directory is the lowest number that no live agent holds, so that one agent after another sets
// the same environment value: glibc keeps every distinct value ever set.
class ToggleFile {
  public:
   explicit ToggleFile(ScenarioSwitch const& sw) {
      static ToggleRoot const root;
      while (inUse_.count(slot_)) {
         ++slot_;
      }
      dir_ = root.path() + "/" + std::to_string(slot_);
      std::error_code ec;
      std::filesystem::remove_all(dir_, ec);
      if (!std::filesystem::create_directories(dir_, ec)) {
         throw std::runtime_error("cannot make a directory for the toggle file");
      }
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
      inUse_.insert(slot_);
   }
   ~ToggleFile() {
      if (previous_) {
         ::setenv(Nimbal::toggleDirEnv, previous_->c_str(), 1);
      } else {
         ::unsetenv(Nimbal::toggleDirEnv);
      }
      std::error_code ec;
      std::filesystem::remove_all(dir_, ec);
      inUse_.erase(slot_);
   }
   ToggleFile(ToggleFile const&) = delete;
   ToggleFile& operator=(ToggleFile const&) = delete;

  private:
   static inline std::set<int> inUse_;
   int slot_ = 0;
   std::string dir_;
   std::optional<std::string> previous_;
};

}  // namespace

SimAgent::SimAgent(Scenario const& scenario, TranscriptWriter& out)
    : scenario_(scenario), out_(out) {
   start();
}

SimAgent::SimAgent(Scenario const& scenario, std::FILE* out)
    : scenario_(scenario), ownWriter_(std::make_unique<TextTranscript>(out)), out_(*ownWriter_) {
   start();
}

void SimAgent::start() {
   Kiv::logSinkIs([this](Kiv::LogHandle const& handle, std::string const& message) {
      emit(event::Log{handle.key(), handle.severity(), message, handle.minInterval(),
                      handle.maxInterval(), handle.burst(), handle.flags()});
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

void SimAgent::emit(TranscriptPayload what) {
   out_.write(TranscriptEvent{now(), stepNumber_, std::move(what)});
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

std::optional<std::string> SimAgent::queueName(U32 queue) const {
   Kiv::Ptr<Nimbal::MmuCpuQ> const cpuQ = switch_->mmuSm()->cpuQColl()->cpuQ(queue);
   return cpuQ ? std::optional<std::string>(cpuQ->name()) : std::nullopt;
}

Oskel::ModIdPortQueueKey SimAgent::keyOf(std::string const& intf, U32 queue) const {
   NimbalTypes::NimbalPort const p = switch_->port(Orvik::IntfId(intf));
   return Oskel::ModIdPortQueueKey(p.modId(), p.logicalPort(), queue);
}

void SimAgent::switchReport() {
   ScenarioSwitch const& sw = scenario_.sw;
   emit(event::Scenario{scenario_.file, scenario_.description});
   std::size_t dynamicQueues = 0;
   for (auto const& row : sw.cpuQueues) {
      dynamicQueues += row.dynamic ? 1 : 0;
   }
   emit(event::Switch{sw.modules.size(), sw.interfaces.size(), sw.fabricInterfaces.size(),
                      sw.cpuQueues.size(), dynamicQueues, sw.portDefaultCoppRate,
                      sw.vxlanWorkaround});
}

void SimAgent::startUpReport() {
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = switch_->helper();
   emit(event::Helper{helper->fwkType()->fullName(), switch_->helperFromLibraryFile()});
   event::StartUp e;
   e.portDefaultPolicers = helper->portDefaultCoppPolicerHwData();
   e.kernelKeysProgrammed = kernel_->programmed().size();
   e.highPortsFrom = Switch::defaultEntryPorts;
   for (auto const& intf : switch_->interfaces()) {
      e.interfacesOnHighPorts +=
          switch_->port(intf).logicalPort() >= Switch::defaultEntryPorts ? 1 : 0;
   }
   for (Orvik::IntfId const& intf : switch_->interfacesWithoutDefaultPolicer()) {
      e.interfacesWithoutDefaultPolicer.push_back(intf.stringValue());
   }
   emit(std::move(e));
}

void SimAgent::afterStep() {
   std::size_t const failed = kernel_->failed().size();
   if (failed != reportedFailedKeys_) {
      event::KernelCopp e;
      for (Oskel::ModIdPortQueueKey const& key : kernel_->failed()) {
         NimbalTypes::NimbalPort const port(static_cast<U16>(key.modId()),
                                            switch_->unitOfModule(static_cast<U16>(key.modId())),
                                            static_cast<U16>(key.port()));
         e.waiting.push_back(
             {switch_->intf(port).stringValue(), key.modId(), key.port(), key.queue()});
      }
      emit(std::move(e));
      reportedFailedKeys_ = failed;
   }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = switch_->helper()->qosIntfCoppSm();
   bool const exhausted = sm && sm->vxlanEntryExhausted();
   double const retryAt = exhausted ? sm->vxlanEntryRetryTimer()->timeMin() - start_ : 0;
   if (exhausted != reportedVxlanExhausted_ || retryAt != reportedVxlanRetry_) {
      emit(event::VxlanRetry{exhausted, retryAt});
      reportedVxlanExhausted_ = exhausted;
      reportedVxlanRetry_ = retryAt;
   }
}

void SimAgent::run() {
   for (ScenarioStep const& s : scenario_.steps) {
      step(s);
   }
   emit(event::End{kernel_->programmed().size(), kernel_->failed().size()});
}

void SimAgent::step(ScenarioStep const& s) {
   stepNumber_ = s.number;
   emit(event::Step{&s});
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
      emit(event::ClassNotProgrammed{s.interface, s.cmapName});
      return;
   }
   emit(event::ClassPoliced{s.interface, s.cmapName, *o.cpuQ, queueName(*o.cpuQ), o.dynamic, s.cir,
                            s.bc, o.rateChange});
   portDefaultPolicerReport(intf, defaultRate);
}

void SimAgent::unpolice(step::Unpolice const& s) {
   Orvik::IntfId const intf(s.interface);
   U32 const defaultRate = switch_->helper()->portDefaultCoppPolicerHwData(intf).policerRate();
   QosClassConfig::UnpoliceOutcome const o = classes_->unpolice(s.interface, s.cmapName);
   emit(event::ClassUnpoliced{s.interface, s.cmapName, o.cpuQ,
                              o.cpuQ ? queueName(*o.cpuQ) : std::nullopt, o.dynamic});
   if (o.cpuQ) {
      portDefaultPolicerReport(intf, defaultRate);
   }
}

void SimAgent::portDefaultPolicerReport(Orvik::IntfId const& intf, U32 rateBefore) {
   Nimbal::NimbalQosPolicerHwData const d = switch_->helper()->portDefaultCoppPolicerHwData(intf);
   if (d.policerRate() != rateBefore) {
      emit(event::PortDefaultPolicer{intf.stringValue(), d.policerRate(), d.policerBurst()});
   }
}

void SimAgent::vxlan(step::Vxlan const& s) {
   switch_->scsd()->vxlanEnabledIs(s.enabled);
   std::size_t const entries = switch_->helper()->kernelDynamicCoppVxlanData() +
                               switch_->helper()->portDefaultCoppPolicerVxlanHwData();
   emit(event::Vxlan{s.enabled, entries});
}

void SimAgent::recirc(step::Recirc const& s) {
   Orvik::IntfId const intf(s.interface);
   if (s.enabled) {
      switch_->scsd()->vxlanRecircIntfIs(intf, true);
   } else {
      switch_->scsd()->vxlanRecircIntfDel(intf);
   }
   emit(event::Recirc{s.interface, s.enabled});
}

void SimAgent::traffic(step::Traffic const& s) {
   std::optional<U32> const queue = s.queue ? s.queue : classes_->queueOfClass(s.cmapName);
   if (!queue) {
      emit(event::TrafficNotSent{event::TrafficNotSent::Reason::noCpuQueue, s.cmapName});
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
            emit(
                event::TrafficNotSent{event::TrafficNotSent::Reason::noRecirculationInterface, ""});
            return;
         }
         // It arrives where the recirculation interface is, which may be another unit.
         NimbalTypes::NimbalPort const recircPort = switch_->port(Orvik::IntfId(*sameUnit));
         unit = recircPort.unit();
         inPort = recircPort.logicalPort();
         emit(event::TunnelTraffic{s.interface, *sameUnit, innerVlan});
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
   emit(event::Traffic{s.interface, *queue, queueName(*queue), s.vxlan, packets, allowed,
                       packets - allowed});
}

void SimAgent::show(step::Show const& s) {
   std::string text = libraryOutput(s.hw ? "showCoppIntfCountersHw" : "showCoppIntfCountersSw");
   std::vector<std::string> interfaces;
   for (Orvik::IntfId const& intf : switch_->interfaces()) {
      interfaces.push_back(intf.stringValue());
   }
   std::vector<CounterTableRow> rows = counterTableRows(text, s.hw, interfaces);
   emit(event::Show{s.hw, std::move(text), std::move(rows)});
}

std::string SimAgent::libraryOutput(char const* operation) {
   // The library writes to a descriptor; a file of our own takes it whole.
   std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
   if (!file) {
      throw std::runtime_error(std::string("cannot make a file for ") + operation);
   }
   Kiv::invoke(*switch_->helper(), operation, {std::to_string(::fileno(file.get()))});
   std::rewind(file.get());
   std::string text;
   char buf[4096];
   std::size_t n;
   while ((n = std::fread(buf, 1, sizeof buf, file.get())) > 0) {
      text.append(buf, n);
   }
   return text;
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
   emit(event::Clear{cleared});
}

void SimAgent::poll(step::Poll const& s) {
   Oskel::QosClassCounterData const c = classes_->poll(s.interface, s.cmapName);
   emit(event::Poll{s.interface, s.cmapName, c.pktHits(), c.drop(), c.byteHits(), c.dropBytes()});
}

void SimAgent::verify() {
   Kiv::Ptr<Oskel::VerifyData> const data = switch_->scsd()->verifyData();
   data->clear();
   classes_->verifyAll();
   // The per-port default policers are verified by name, as the agent's verify command does.
   Kiv::invoke(*switch_->helper(), "verifyCoppPerPortDefaultPolicer", {});
   event::Verify e;
   for (auto const& cli : data->cliVerifyOutput()) {
      e.differences.push_back(cli.message);
   }
   emit(std::move(e));
}

void SimAgent::set(ScenarioStep const& step, step::Set const& s) {
   for (auto const& [name, value] : s.attributes) {
      try {
         Kiv::attributeValueIs(*switch_->helper(), name, value);
      } catch (std::invalid_argument const& e) {
         throw ScenarioError(scenario_.file + ": step " + std::to_string(step.number) +
                             " (set): key \"" + name + "\": " + e.what());
      }
      emit(event::AttributeSet{name, Kiv::attributeValue(*switch_->helper(), name)});
   }
}

void SimAgent::resources(step::Resources const& s) {
   switch_->resourcesIs(s.sizes);
   event::Resources e;
   for (U16 unit : switch_->units()) {
      Shim::FieldGroup const* copp = switch_->chip().group(unit, Switch::efpCoppGroupId);
      Shim::FieldGroup const* def = switch_->chip().group(unit, Switch::efpCoppDefAndVxlanGroupId);
      if (!copp || !def) {
         continue;
      }
      e.units.push_back({unit, copp->entriesInUse, copp->entryPoolSize, copp->metersInUse,
                         copp->meterPoolSize, def->metersInUse, def->meterPoolSize});
   }
   emit(std::move(e));
}

void SimAgent::tamper(step::Tamper const& s) {
   Oskel::ModIdPortQueueKey const key = keyOf(s.interface, s.queue);
   Kiv::Ptr<Nimbal::NimbalQosKernelDynamicCoppData> const data =
       switch_->helper()->kernelDynamicCoppData(key);
   int const unit = switch_->port(Orvik::IntfId(s.interface)).unit();
   Shim::Policer const* policer =
       data ? switch_->chip().policer(unit, static_cast<Shim::bcm_policer_t>(data->policerId()))
            : nullptr;
   if (!policer) {
      emit(event::Tamper{s.interface, s.queue, std::nullopt, s.cir, s.bc});
      return;
   }
   Shim::bcm_policer_config_s config = policer->config;
   config.ckbits_sec_is(s.cir);
   config.ckbits_burst_is(s.bc);
   switch_->chip().tamperPolicer(unit, policer->id, config);
   emit(event::Tamper{s.interface, s.queue, static_cast<U32>(policer->id), s.cir, s.bc});
}

void SimAgent::fail(step::Fail const& s) {
   switch_->sdk().failNextCallIs(s.call, s.rc);
   emit(event::Fail{s.call, s.rc, Shim::bcm_errmsg(s.rc)});
}

std::string SimAgent::plot() const {
   return svgChart("CPU-bound traffic of " + scenario_.file, scenario_.description,
                   traffic_.panels(now()), now());
}

}  // namespace NimbalHost
