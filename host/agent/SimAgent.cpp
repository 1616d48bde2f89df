#include "host/agent/SimAgent.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
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
#include "host/scenario/StepText.h"
#include "host/transcript/SvgPlot.h"
#include "host/transcript/TextTranscript.h"

namespace NimbalHost {

namespace {

// The directory that holds the toggle files of the live agents: made for the first and removed
// with the last, so that a process that leaves without running its destructors (a dry run's
// child ends with _exit) leaves nothing behind. Its name is kept for the next agent where it is
// still free, so that one agent after another sets the same environment value: glibc keeps every
// distinct value ever set.
class ToggleRoot {
  public:
   ToggleRoot(ToggleRoot const&) = delete;
   ToggleRoot& operator=(ToggleRoot const&) = delete;

   static ToggleRoot& instance() {
      static ToggleRoot root;
      return root;
   }

   std::string const& acquire() {
      if (users_ == 0) {
         make();
      }
      ++users_;
      return path_;
   }

   void release() {
      if (--users_ == 0) {
         std::error_code ec;
         std::filesystem::remove_all(path_, ec);
      }
   }

  private:
   ToggleRoot() = default;

   void make() {
      if (!path_.empty() && ::mkdir(path_.c_str(), 0700) == 0) {
         return;
      }
      char const* tmp = std::getenv("TMPDIR");
      std::string const dir = tmp && *tmp ? tmp : "/tmp";
      std::string pattern = dir + "/nimbal-copp-sim-XXXXXX";
      if (!::mkdtemp(pattern.data())) {
         // Nothing can run without it: said as a scenario that cannot start is said.
         throw ScenarioError("nimbal-copp-sim: cannot make a directory for the toggle file in " +
                             dir + ": " + std::strerror(errno));
      }
      path_ = pattern;
   }

   std::string path_;
   int users_ = 0;
};

// The toggle file the factory reads, with the scenario's toggles, for as long as it lives. Its
// directory is the lowest number that no live agent holds, for the same reason as above.
class ToggleFile {
  public:
   explicit ToggleFile(ScenarioSwitch const& sw) {
      while (inUse_.count(slot_)) {
         ++slot_;
      }
      dir_ = ToggleRoot::instance().acquire() + "/" + std::to_string(slot_);
      std::error_code ec;
      std::filesystem::remove_all(dir_, ec);
      if (!std::filesystem::create_directories(dir_, ec)) {
         ToggleRoot::instance().release();
         throw ScenarioError("nimbal-copp-sim: cannot make a directory for the toggle file " +
                             dir_ + ": " + ec.message());
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
      ToggleRoot::instance().release();
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

SwitchConfig switchConfigOf(ScenarioSwitch const& sw) {
   SwitchConfig config;
   config.modules = sw.modules;
   config.interfaces = sw.interfaces;
   config.fabricInterfaces = sw.fabricInterfaces;
   config.cpuQueues = sw.cpuQueues;
   config.portDefaultCoppRate = sw.portDefaultCoppRate;
   config.vxlanWorkaround = sw.vxlanWorkaround;
   config.resources = sw.resources;
   return config;
}

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
   try {
      ToggleFile const toggles(scenario_.sw);
      switch_ = buildSwitch(switchConfigOf(scenario_.sw));
   } catch (std::invalid_argument const& e) {
      Kiv::logSinkIs(nullptr);
      throw ScenarioError(scenario_.file + ": switch: " + e.what());
   } catch (ScenarioError const&) {
      Kiv::logSinkIs(nullptr);
      throw;
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
}

void SimAgent::retryWaitingKeys() {
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

event::KernelKey SimAgent::kernelKey(Oskel::ModIdPortQueueKey const& key) const {
   NimbalTypes::NimbalPort const port(static_cast<U16>(key.modId()),
                                      switch_->unitOfModule(static_cast<U16>(key.modId())),
                                      static_cast<U16>(key.port()));
   return {switch_->intf(port).stringValue(), key.modId(), key.port(), key.queue(), std::nullopt};
}

void SimAgent::afterStep() {
   std::size_t const failed = kernel_->failed().size();
   if (failed != reportedFailedKeys_) {
      event::KernelCopp e;
      for (Oskel::ModIdPortQueueKey const& key : kernel_->failed()) {
         e.waiting.push_back(kernelKey(key));
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
   event::End e{kernel_->programmed().size(), kernel_->failed().size(), {}, {}, {}};
   for (Oskel::ModIdPortQueueKey const& key : kernel_->failed()) {
      e.waiting.push_back(kernelKey(key));
      e.waiting.back().queueName = queueName(key.queue());
   }
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = switch_->helper();
   if (helper->vxlanCoppSrcPortWorkAroundNeeded() && switch_->scsd()->vxlanEnabled()) {
      std::vector<Oskel::ModIdPortQueueKey> keys = helper->kernelDynamicCoppDataCol().keys();
      std::sort(keys.begin(), keys.end());
      for (Oskel::ModIdPortQueueKey const& key : keys) {
         if (!helper->kernelDynamicCoppVxlanDataHas(key)) {
            e.vxlanWithoutEntry.push_back(kernelKey(key));
            e.vxlanWithoutEntry.back().queueName = queueName(key.queue());
         }
      }
   }
   if (!e.waiting.empty() || !e.vxlanWithoutEntry.empty()) {
      for (Orvik::IntfId const& intf : switch_->interfaces()) {
         e.interfaceOrder.push_back(intf.stringValue());
      }
   }
   emit(std::move(e));
}

void SimAgent::step(ScenarioStep const& s) {
   stepNumber_ = s.number;
   emit(event::Step{s.number, s.name, s.value, stepText(s)});
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
             retryWaitingKeys();
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

std::string SimAgent::plot() const {
   return svgChart("CPU-bound traffic of " + scenario_.file, scenario_.description,
                   traffic_.panels(now()), now());
}

}  // namespace NimbalHost
