// The child's side of a dry run: the agent plays the scenario and an observer reads the chip's
// pools and the library's records after the start-up, after every step and whenever the VXLAN
// retry timer has fired, writing what it sees as tab-separated lines.

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <deque>
#include <functional>
#include <set>

#include "Kiv/Activity.h"
#include "Kiv/Clock.h"
#include "NimbalQos/NimbalQosIntfCoppSm.h"
#include "host/agent/SimAgent.h"
#include "host/preflight/DryRun.h"

namespace NimbalHost {

namespace {

// Lines to the parent. What is buffered goes out also when an assertion aborts the child.
class Wire {
  public:
   explicit Wire(int fd) : fd_(fd) {
      current_ = this;
      std::signal(SIGABRT, [](int) {
         if (current_) {
            if (current_->lastWords) {
               current_->lastWords();
            }
            current_->flush();
         }
      });
   }
   ~Wire() {
      flush();
      current_ = nullptr;
   }
   Wire(Wire const&) = delete;
   Wire& operator=(Wire const&) = delete;

   // What to write when the agent stops in the middle of a step.
   std::function<void()> lastWords;

   template <class... T>
   void line(T const&... fields) {
      std::size_t n = 0;
      ((buffer_ += (n++ ? "\t" : "") + text(fields)), ...);
      buffer_ += "\n";
      if (buffer_.size() > 1 << 16) {
         flush();
      }
   }
   void flush() {
      std::size_t done = 0;
      while (done < buffer_.size()) {
         ssize_t const n = ::write(fd_, buffer_.data() + done, buffer_.size() - done);
         if (n <= 0) {
            break;
         }
         done += static_cast<std::size_t>(n);
      }
      buffer_.clear();
   }

  private:
   static std::string text(std::string const& s) { return s; }
   static std::string text(char const* s) { return s; }
   static std::string text(double d) {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%.17g", d);
      return buf;
   }
   template <class I>
   static std::string text(I i) {
      return std::to_string(i);
   }

   static inline Wire* current_ = nullptr;
   int fd_;
   std::string buffer_;
};

// The resource messages, counted as the library raises them.
class LogCount : public TranscriptWriter {
  public:
   explicit LogCount(Wire& wire) : wire_(wire) {}
   void write(TranscriptEvent const& e) override {
      if (auto const* log = std::get_if<event::Log>(&e.what)) {
         if (log->key == "QOS_COPP_HW_RESOURCE_FULL") {
            wire_.line("log", "full");
         } else if (log->key == "QOS_COPP_HW_RESOURCE_NORMAL") {
            wire_.line("log", "normal");
         }
      }
   }

  private:
   Wire& wire_;
};

class Observer {
  public:
   Observer(Scenario const& scenario, SimAgent& agent, Wire& wire)
       : scenario_(scenario), agent_(agent), wire_(wire) {
      for (auto const& row : scenario.sw.cpuQueues) {
         queueNames_[row.id] = row.name;
         dynamicQueues_ += row.dynamic ? 1 : 0;
      }
   }

   void stepIs(int step) { step_ = step; }

   bool vxlanNeeded() const {
      return scenario_.sw.vxlanWorkaround && agent_.sw().scsd()->vxlanEnabled();
   }

   void snapshot() {
      Switch& sw = agent_.sw();
      Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw.helper();
      std::map<U16, UnitUse> units;
      for (U16 unit : sw.units()) {
         UnitUse& u = units[unit];
         auto pools = [&](U32 group, PoolUse& entries, PoolUse& meters) {
            if (Shim::FieldGroup const* g = sw.chip().group(unit, group)) {
               entries = {g->entryPoolSize, sw.chip().entriesInUse(unit, group)};
               meters = {g->meterPoolSize, sw.chip().metersInUse(unit, group)};
            }
         };
         pools(Switch::efpCoppGroupId, u.coppEntries, u.coppMeters);
         pools(Switch::efpCoppDefAndVxlanGroupId, u.defaultEntries, u.defaultMeters);
      }
      bool const vxlan = vxlanNeeded();
      for (auto const& [intf, data] : helper->portDefaultCoppPolicerHwDataCol()) {
         UnitUse& u = units[sw.port(intf).unit()];
         u.portDefaults += 1;
         u.vxlanDefaults += vxlan ? 1 : 0;
      }
      // The keys that want an egress CoPP entry: those the library holds and those waiting.
      std::map<U16, U32> keys;
      for (auto const& [key, data] : helper->kernelDynamicCoppDataCol()) {
         ++keys[sw.unitOfModule(static_cast<U16>(key.modId()))];
      }
      for (CoppKey const& key : agent_.kernelCopp().failed()) {
         U16 const unit = sw.unitOfModule(static_cast<U16>(key.modId()));
         ++keys[unit];
         units[unit].waitingKeys += 1;
      }
      for (auto const& [unit, n] : keys) {
         units[unit].vxlanSourcePort = vxlan ? n : 0;
      }
      std::set<U32> held;
      std::set<std::string> dynamicClasses;
      for (auto const& [id, policed] : agent_.classes().all()) {
         if (policed.dynamic) {
            dynamicClasses.insert(id.second);
            if (policed.cpuQ) {
               held.insert(*policed.cpuQ);
            }
         }
      }
      U32 const vxlanPool = Nimbal::QosAclHelperV1::coppVxlanDynEntryMax -
                            Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset;
      wire_.line("snapshot", step_, helper->coppVxlanDynEntryInUse(), vxlanPool, held.size(),
                 dynamicQueues_, dynamicClasses.size());
      for (auto const& [unit, u] : units) {
         wire_.line("unit", unit, u.coppEntries.size, u.coppEntries.inUse, u.coppMeters.size,
                    u.coppMeters.inUse, u.defaultEntries.size, u.defaultEntries.inUse,
                    u.defaultMeters.size, u.defaultMeters.inUse, u.portDefaults, u.vxlanDefaults,
                    u.vxlanSourcePort, u.waitingKeys);
      }
   }

   // What lacks hardware now against what lacked it before: shortfalls open and close.
   void observe() {
      std::map<std::string, Shortfall> now;
      Switch& sw = agent_.sw();
      Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw.helper();
      auto full = [&sw](CoppKey const& key, U32 group, bool entries) {
         U16 const unit = sw.unitOfModule(static_cast<U16>(key.modId()));
         Shim::FieldGroup const* g = sw.chip().group(unit, group);
         return g && (entries ? sw.chip().entriesInUse(unit, group) >= g->entryPoolSize
                              : sw.chip().metersInUse(unit, group) >= g->meterPoolSize);
      };
      auto keyed = [&](Shortfall::What what, CoppKey const& key, Shortage reason) {
         Shortfall s;
         s.what = what;
         s.key = key;
         s.interface = interfaceOf(key);
         s.queueName = queueNames_[key.queue()];
         s.reason = reason;
         now.emplace(std::to_string(static_cast<int>(what)) + "|" + std::to_string(key.modId()) +
                         "/" + std::to_string(key.port()) + "/" + std::to_string(key.queue()),
                     s);
      };
      for (CoppKey const& key : agent_.kernelCopp().failed()) {
         keyed(Shortfall::What::kernelKey, key,
               helper->createCoppPolicerAlwaysFalse()    ? Shortage::debugAlwaysFalse
               : full(key, Switch::efpCoppGroupId, true) ? Shortage::coppEntry
                                                         : Shortage::coppMeter);
      }
      if (vxlanNeeded()) {
         auto intfFull = [&](Orvik::IntfId const& intf, bool entries) {
            NimbalTypes::NimbalPort const p = sw.port(intf);
            return full(CoppKey(p.modId(), p.logicalPort(), 0), Switch::efpCoppDefAndVxlanGroupId,
                        entries);
         };
         bool defaultsMissing = false;
         for (auto const& [intf, data] : helper->portDefaultCoppPolicerHwDataCol()) {
            if (helper->portDefaultCoppPolicerVxlanHwDataHas(intf)) {
               continue;
            }
            defaultsMissing = true;
            Shortfall s;
            s.what = Shortfall::What::vxlanDefault;
            s.interface = intf.stringValue();
            s.reason = intfFull(intf, true) ? Shortage::defaultEntry : Shortage::defaultMeter;
            now.emplace("2|" + s.interface, s);
         }
         bool const poolFull = helper->coppVxlanDynEntryInUse() >=
                               Nimbal::QosAclHelperV1::coppVxlanDynEntryMax -
                                   Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset;
         for (auto const& [key, data] : helper->kernelDynamicCoppDataCol()) {
            if (helper->kernelDynamicCoppVxlanDataHas(key)) {
               continue;
            }
            keyed(Shortfall::What::vxlanSourcePort, key,
                  defaultsMissing                                      ? Shortage::vxlanDefaultFirst
                  : poolFull                                           ? Shortage::vxlanPool
                  : full(key, Switch::efpCoppDefAndVxlanGroupId, true) ? Shortage::defaultEntry
                                                                       : Shortage::defaultMeter);
         }
      }
      for (Orvik::IntfId const& intf : sw.interfacesWithoutDefaultPolicer()) {
         Shortfall s;
         s.what = Shortfall::What::portDefault;
         s.interface = intf.stringValue();
         NimbalTypes::NimbalPort const p = sw.port(intf);
         s.reason =
             full(CoppKey(p.modId(), p.logicalPort(), 0), Switch::efpCoppDefAndVxlanGroupId, true)
                 ? Shortage::defaultEntry
                 : Shortage::defaultMeter;
         now.emplace("3|" + s.interface, s);
      }
      for (auto const& [id, policed] : agent_.classes().all()) {
         if (!policed.cpuQ) {
            Shortfall s;
            s.what = Shortfall::What::classQueue;
            s.interface = id.first;
            s.cmapName = id.second;
            s.reason = Shortage::dynamicCpuQueue;
            now.emplace("4|" + id.first + "|" + id.second, s);
         }
      }

      double const time = agent_.now();
      for (auto it = open_.begin(); it != open_.end();) {
         if (now.count(it->first)) {
            ++it;
            continue;
         }
         wire_.line("close", it->first, step_, time, programmed(it->second) ? 1 : 0);
         it = open_.erase(it);
      }
      for (auto& [id, s] : now) {
         if (open_.count(id)) {
            continue;
         }
         CoppKey const key = s.key.value_or(CoppKey());
         wire_.line("open", id, static_cast<int>(s.what), s.interface, s.key ? 1 : 0, key.modId(),
                    key.port(), key.queue(), s.queueName, s.cmapName.empty() ? "-" : s.cmapName,
                    static_cast<int>(s.reason), step_, time);
         open_.emplace(id, std::move(s));
      }
   }

  private:
   std::string interfaceOf(CoppKey const& key) const {
      auto const modId = static_cast<U16>(key.modId());
      NimbalTypes::NimbalPort const port(modId, agent_.sw().unitOfModule(modId),
                                         static_cast<U16>(key.port()));
      return agent_.sw().intf(port).stringValue();
   }

   bool programmed(Shortfall const& s) const {
      Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
      switch (s.what) {
         case Shortfall::What::kernelKey:
            return agent_.kernelCopp().programmed().count(*s.key) != 0;
         case Shortfall::What::vxlanSourcePort:
            return helper->kernelDynamicCoppVxlanDataHas(*s.key);
         case Shortfall::What::vxlanDefault:
            return helper->portDefaultCoppPolicerVxlanHwDataHas(Orvik::IntfId(s.interface));
         case Shortfall::What::portDefault:
            return false;
         case Shortfall::What::classQueue: {
            auto const* p = agent_.classes().policed(s.interface, s.cmapName);
            return p && p->cpuQ;
         }
      }
      return false;
   }

   Scenario const& scenario_;
   SimAgent& agent_;
   Wire& wire_;
   int step_ = 0;
   std::map<U32, std::string> queueNames_;
   std::size_t dynamicQueues_ = 0;
   std::map<std::string, Shortfall> open_;
};

// Wakes right after the state machine's VXLAN retry timer, which is bound to the clock first
// and so fires first at the same time, to observe what its retry did.
class RetryWatch : public Kiv::Clock::Notifiee {
  public:
   RetryWatch(SimAgent& agent, Observer& observer) : agent_(agent), observer_(observer) {
      notifierIs(Kiv::activityClock());
   }
   ~RetryWatch() override { notifierIs(nullptr); }
   RetryWatch(RetryWatch const&) = delete;
   RetryWatch& operator=(RetryWatch const&) = delete;

   void arm() {
      Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = agent_.sw().helper()->qosIntfCoppSm();
      timeMinIs(sm && sm->vxlanEntryRetryTimer() ? sm->vxlanEntryRetryTimer()->timeMin()
                                                 : Kiv::never);
   }
   void onTimeMin() override {
      observer_.observe();
      arm();
   }

  private:
   SimAgent& agent_;
   Observer& observer_;
};

SwitchResources roomFor() {
   U32 const room = 1u << 22;
   return SwitchResources{room, room, room};
}

// Whether a traffic step sends anything, as the agent decides: a class needs its queue, and
// tunnel traffic on a chip with the workaround a recirculation interface.
bool sends(SimAgent& agent, Scenario const& scenario, step::Traffic const& t) {
   if (!t.queue && !agent.classes().queueOfClass(t.cmapName)) {
      return false;
   }
   if (t.vxlan && scenario.sw.vxlanWorkaround) {
      for (auto const& [intf, on] : agent.sw().scsd()->vxlanRecircIntfCol()) {
         if (on) {
            return true;
         }
      }
      return false;
   }
   return true;
}

}  // namespace

void playDry(Scenario const& original, bool roomForAll, int fd) {
   Scenario scenario = original;
   if (roomForAll) {
      scenario.sw.resources = roomFor();
      for (ScenarioStep& s : scenario.steps) {
         if (std::holds_alternative<step::Resources>(s.action)) {
            s.action = step::Resources{roomFor()};
         }
      }
   }
   Wire wire(fd);
   wire.line("step", 0);
   wire.flush();
   Kiv::ActivityScope activity;
   LogCount logs(wire);
   std::unique_ptr<SimAgent> agent;
   try {
      agent = std::make_unique<SimAgent>(scenario, logs);
   } catch (ScenarioError const& e) {
      wire.line("error", e.what());
      return;
   }
   Observer observer(scenario, *agent, wire);
   observer.snapshot();
   observer.observe();
   RetryWatch watch(*agent, observer);
   std::deque<int> pendingFailures;
   std::size_t faultsBefore = 0;
   int playing = 0;
   // The injected failures that calls of this step took.
   auto failuresHit = [&] {
      std::size_t const faultsAfter = agent->sw().sdk().faultsPending();
      for (std::size_t i = faultsAfter; i < faultsBefore && !pendingFailures.empty(); ++i) {
         wire.line("injected", pendingFailures.front(), playing);
         pendingFailures.pop_front();
      }
   };
   wire.lastWords = failuresHit;
   for (ScenarioStep const& s : scenario.steps) {
      wire.line("step", s.number);
      wire.flush();
      observer.stepIs(s.number);
      watch.arm();
      playing = s.number;
      faultsBefore = agent->sw().sdk().faultsPending();
      auto const* traffic = std::get_if<step::Traffic>(&s.action);
      if (traffic && sends(*agent, scenario, *traffic)) {
         // The packets change counters and meters, never pools: only their time counts.
         ScenarioStep advance = s;
         advance.action = step::Advance{traffic->seconds};
         agent->step(advance);
      } else {
         agent->step(s);
      }
      failuresHit();
      if (std::holds_alternative<step::Fail>(s.action)) {
         wire.line("injected", s.number, 0);
         pendingFailures.push_back(s.number);
      }
      observer.observe();
      observer.snapshot();
   }
   watch.timeMinIs(Kiv::never);
   wire.lastWords = nullptr;
   wire.line("end");
}

}  // namespace NimbalHost
