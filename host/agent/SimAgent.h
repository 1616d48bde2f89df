#pragma once

// The simulated agent: the switch of a scenario with the CoPP library loaded on it, the
// agent's reactors around the helper, the virtual clock and the traffic engine, playing the
// scenario's steps and writing what an operator would see.

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "host/agent/KernelCoppReactor.h"
#include "host/agent/QosClassConfig.h"
#include "host/agent/SwitchBuilder.h"
#include "host/scenario/Scenario.h"
#include "host/transcript/TrafficLog.h"
#include "host/transcript/TranscriptEvent.h"

namespace NimbalHost {

// The switch of a scenario as the builder takes it.
SwitchConfig switchConfigOf(ScenarioSwitch const& sw);

class SimAgent {
  public:
   // Starts the agent on the scenario's switch, reporting to `out`. Throws ScenarioError when
   // the switch cannot be built. Runs on the caller's activity lock.
   SimAgent(Scenario const& scenario, TranscriptWriter& out);
   // The same, with the text transcript written to `out`.
   SimAgent(Scenario const& scenario, std::FILE* out);
   ~SimAgent();
   SimAgent(SimAgent const&) = delete;
   SimAgent& operator=(SimAgent const&) = delete;

   // Plays every step in order.
   void run();
   void step(ScenarioStep const& s);

   // Virtual seconds since the agent started.
   double now() const;
   // Moves the clock to `seconds` since the start (never back); timers fire on the way.
   void advanceTo(double seconds);
   // Tries the kernel CoPP keys that ran out of hardware again: once per advance or traffic
   // step, since nothing a failed create needs changes between two packets.
   void retryWaitingKeys();

   Switch& sw() { return *switch_; }
   QosClassConfig& classes() { return *classes_; }
   KernelCoppReactor const& kernelCopp() const { return *kernel_; }
   TrafficLog const& traffic() const { return traffic_; }

   // Whether traffic steps keep each packet for the plot (on by default).
   void recordTrafficIs(bool on) { recordTraffic_ = on; }

   // Where a flow's packets enter the chip: unit, port and inner VLAN id.
   struct TrafficRoute {
      U32 unit = 0;
      U32 inPort = 0;
      U16 innerVlan = 0;
   };

   // The SVG chart of the traffic so far.
   std::string plot() const;

  private:
   void start();
   void emit(TranscriptPayload what);
   void switchReport();
   void startUpReport();
   void afterStep();
   std::optional<std::string> queueName(U32 queue) const;
   event::KernelKey kernelKey(Oskel::ModIdPortQueueKey const& key) const;
   Oskel::ModIdPortQueueKey keyOf(std::string const& intf, U32 queue) const;
   void portDefaultPolicerReport(Orvik::IntfId const& intf, U32 rateBefore);
   // What a library operation called by name writes to its descriptor.
   std::string libraryOutput(char const* operation);

   void police(step::Police const& s);
   void unpolice(step::Unpolice const& s);
   void vxlan(step::Vxlan const& s);
   void recirc(step::Recirc const& s);
   void traffic(step::Traffic const& s);
   std::optional<U32> flowQueue(std::optional<U32> const& queue, std::string const& cmapName,
                                std::size_t flow);
   std::optional<TrafficRoute> trafficRoute(std::string const& interface, bool vxlan,
                                            std::size_t flow);
   void show(step::Show const& s);
   void clear(step::Clear const& s);
   void poll(step::Poll const& s);
   void verify();
   void set(ScenarioStep const& step, step::Set const& s);
   void resources(step::Resources const& s);
   void tamper(step::Tamper const& s);
   void fail(step::Fail const& s);

   Scenario const& scenario_;
   std::unique_ptr<TranscriptWriter> ownWriter_;
   TranscriptWriter& out_;
   double start_ = 0;
   int stepNumber_ = 0;  // the step being played, 0 before the first
   std::unique_ptr<Switch> switch_;
   std::unique_ptr<QosClassConfig> classes_;
   std::unique_ptr<KernelCoppReactor> kernel_;
   TrafficLog traffic_;
   bool recordTraffic_ = true;
   std::size_t reportedFailedKeys_ = 0;
   bool reportedVxlanExhausted_ = false;
   double reportedVxlanRetry_ = 0;
};

}  // namespace NimbalHost
