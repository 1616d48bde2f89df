#pragma once

// The CoPP hardware a scenario's switch takes, worked out from the scenario alone: the agent's
// start-up and reactors and the library's programming, reduced to the pools they take from, the
// order in which they take, and what they do when a pool is empty. Nothing is run: no chip, no
// library. Where the library walks a hash collection, the model keeps the same kind of
// collection with the same keys, so that it meets the keys in the same order and the same ones
// go short. An oracle independent of the library, for the step fuzzer: it tells a designed stop
// of the agent from a bug. Its agreement with the preflight's dry run is tested.

#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Kiv/Types.h"
#include "Orvik/IntfId.h"
#include "Oskel/KernelCoPPConfig.h"
#include "host/scenario/Scenario.h"

namespace NimbalHost {

class CoppResourceModel {
  public:
   using Key = Oskel::ModIdPortQueueKey;
   static constexpr double never = std::numeric_limits<double>::infinity();
   // The library's pool of VXLAN source-port entry indices, shared by all units.
   static constexpr U32 vxlanPoolSize = 512;
   // The entries of the default-and-VXLAN group, on every unit.
   static constexpr U32 defaultGroupEntries = 4096;

   struct Pool {
      U32 size = 0;
      U32 inUse = 0;
      U32 demand = 0;  // what the switch wants from it now
   };
   struct UnitPools {
      Pool coppEntries;     // egress CoPP group: one entry per kernel CoPP key
      Pool coppMeters;      // and one meter
      Pool defaultEntries;  // default-and-VXLAN group: per-port defaults and VXLAN entries
      Pool defaultMeters;
      // What the default-and-VXLAN demand is made of.
      U32 portDefaultsWanted = 0;
      U32 vxlanDefaultsWanted = 0;
      U32 vxlanSourcePortWanted = 0;
   };

   // Why something has no hardware.
   enum class Shortage {
      coppEntry,          // no egress CoPP entry left
      coppMeter,          // no egress CoPP meter left
      debugAlwaysFalse,   // createCoppPolicerAlwaysFalse is set
      vxlanPool,          // the pool of 512 VXLAN source-port indices is full
      defaultEntry,       // no default-and-VXLAN entry left
      defaultMeter,       // no default-and-VXLAN meter left
      vxlanDefaultFirst,  // a VXLAN default entry is missing, so source-port entries wait
      dynamicCpuQueue,    // no dynamic CPU queue is free
   };

   // Something that should have hardware and has none, from when to when.
   struct Shortfall {
      enum class What { kernelKey, vxlanSourcePort, vxlanDefault, portDefault, classQueue };
      What what = What::kernelKey;
      std::string interface;
      std::optional<Key> key;  // kernelKey, vxlanSourcePort
      std::string cmapName;    // classQueue
      Shortage reason = Shortage::coppEntry;
      int fromStep = 0;  // 0: from the start-up
      double fromTime = 0;
      std::optional<int> toStep;  // none: to the end
      double toTime = 0;
      bool programmed = false;  // it got its hardware in the end (else it was no longer needed)
   };

   struct LogLine {
      std::string key;
      std::string text;
      int step = 0;
   };

   // Plays the agent's start-up on the scenario's switch. `start` is the virtual clock when
   // the agent starts.
   explicit CoppResourceModel(Scenario const& scenario, double start = 0);

   // Plays one step; nothing once the agent has stopped.
   void play(ScenarioStep const& step);

   double now() const { return clock_ - start_; }
   std::map<U16, UnitPools> const& units() const { return units_; }
   Pool const& vxlanPool() const { return vxlanPool_; }
   Pool const& dynamicCpuQueues() const { return dynamicCpuQueues_; }

   // Kernel CoPP keys whose entry could not be made; the agent tries them again as the clock
   // advances.
   std::set<Key> const& waitingKeys() const { return failed_; }
   // Programmed kernel CoPP keys that lack their VXLAN source-port entry while VXLAN needs one.
   std::set<Key> keysWithoutVxlanEntry() const;
   // Interfaces with a per-port default policer that lack its VXLAN twin while VXLAN needs one.
   std::set<std::string> interfacesWithoutVxlanDefault() const;
   // Interfaces below port 256 whose per-port default policer found no room at start-up.
   std::vector<std::string> const& interfacesWithoutDefaultPolicer() const {
      return withoutDefaultPolicer_;
   }
   // (interface, class) police actions whose class found no dynamic CPU queue.
   std::set<std::pair<std::string, std::string>> classesWithoutQueue() const;
   bool vxlanEntryExhausted() const { return exhausted_; }
   // Seconds since the start of the state machine's next VXLAN retry; none when not armed.
   std::optional<double> vxlanRetryAt() const;

   // QOS_COPP_HW_RESOURCE_FULL and QOS_COPP_HW_RESOURCE_NORMAL, as the library would raise them.
   std::vector<LogLine> const& logs() const { return logs_; }
   std::vector<Shortfall> const& shortfalls() const { return shortfalls_; }
   // Why the agent would stop, at which step; none while it runs.
   std::optional<std::string> const& stop() const { return stop_; }
   int stopStep() const { return stopStep_; }
   // Steps whose effect the model does not know (SDK failures injected by `fail`).
   std::vector<int> const& unmodelledSteps() const { return unmodelled_; }

   // The interface of a key's port ("" when none), and a key as a person reads it.
   std::string interfaceOf(Key const& key) const;
   std::string keyText(Key const& key) const;

  private:
   struct Port {
      U16 modId = 0;
      U16 unit = 0;
      U16 port = 0;
      bool operator<(Port const& o) const {
         return std::tie(modId, unit, port) < std::tie(o.modId, o.unit, o.port);
      }
   };
   struct Policed {
      bool dynamic = false;
      std::optional<U32> queue;
   };
   struct CpuQueue {
      Nimbal::MmuCpuQRow row;
      U32 users = 0;
      std::string holder;  // the class holding a dynamic queue
   };

   void startUp();
   void observe();
   void stopIs(std::string const& why);
   void changed() { ++version_; }
   bool take(Pool& pool);
   void give(Pool& pool);

   // The agent around the library.
   void advanceTo(double seconds);
   void traffic(step::Traffic const& s);
   void police(step::Police const& s);
   void unpolice(step::Unpolice const& s);
   void recirc(step::Recirc const& s);
   void verify();
   void set(step::Set const& s);
   void resources(SwitchResources const& sizes);
   void coppInfoIs(Key const& key, Oskel::CoppInfo const& info);
   void reactorHandle(Key const& key);
   void reactorCreate(Key const& key);
   void reactorRetry();

   // The library.
   bool createCoppPolicerByPortQueue(Key const& key);
   void destroyCoppPolicerByPortQueue(Key const& key);
   bool createVxlanSourcePort(Key const& key);
   void destroyVxlanSourcePort(Key const& key);
   void syncVxlanEntries(bool retry);
   bool syncVxlanDefaults(bool retry);
   void createAndAttachCoppPolicer(std::string const& intf, std::string const& cmapName, U32 queue,
                                   U32 cir, U32 bc);
   void destroyCoppPolicer(std::string const& intf, std::string const& cmapName, U32 queue);
   void updatePortDefaultCoppPolicer(Port const& port);
   std::optional<U32> allocateDynamicCpuQ(std::string const& cmapName);
   void deallocateDynamicCpuQ(U32 queue);
   void vxlanEntryExhaustedIs(bool exhausted);
   void retryTimerFires();
   void log(char const* key, std::string const& text);
   std::string classOfQueue(U32 queue) const;

   bool vxlanNeeded() const { return scenario_.sw.vxlanWorkaround && vxlanEnabled_; }
   std::optional<Port> portOf(std::string const& intf) const;
   std::string interfaceOf(Port const& port) const;
   std::optional<U16> unitOf(U32 modId) const;
   void demandIs();

   Scenario const& scenario_;
   bool tcamVariant_ = false;
   double start_ = 0;
   double clock_ = 0;
   int step_ = 0;

   std::map<U16, UnitPools> units_;
   Pool vxlanPool_;
   Pool dynamicCpuQueues_;
   std::map<U32, CpuQueue> cpuQueues_;
   // The chip ports and their interfaces, front-panel first.
   std::map<Port, std::string> portIntf_;
   std::map<Port, std::string> fabricPortIntf_;

   // The kernel CoPP configuration and the agent's reactor on it.
   std::map<Key, Oskel::CoppInfo> coppInfo_;
   std::set<Key> programmed_;
   std::set<Key> failed_;
   U64 version_ = 0;  // grows whenever a kernel CoPP key that failed might now succeed
   std::optional<U64> retriedAt_;

   // The library's collections, as the library keeps them.
   std::map<Key, bool> kernelDynamicCoppData_;
   std::set<Key> kernelDynamicCoppVxlanData_;
   std::unordered_map<Orvik::IntfId, U32> portDefaultCoppPolicerRate_;
   std::set<std::string> portDefaultCoppPolicerVxlan_;
   std::map<std::string, std::map<std::string, U32>> coppIntfPolicerRate_;
   bool alwaysFalse_ = false;

   // The agent's QoS configuration of classes, in its order.
   std::map<std::pair<std::string, std::string>, Policed> policed_;

   // VXLAN and the interface CoPP state machine.
   bool vxlanEnabled_ = false;
   std::set<std::string> recirc_;
   bool exhausted_ = false;
   double retryWake_ = never;

   std::map<Key, Shortage> kernelShortage_;
   std::map<Key, Shortage> vxlanShortage_;
   std::map<std::string, Shortage> vxlanDefaultShortage_;
   std::map<std::string, Shortage> portDefaultShortage_;
   std::vector<std::string> withoutDefaultPolicer_;
   std::vector<LogLine> logs_;
   std::vector<Shortfall> shortfalls_;
   std::map<std::tuple<int, std::string, std::string>, std::size_t> open_;
   std::optional<std::string> stop_;
   int stopStep_ = 0;
   std::vector<int> unmodelled_;
};

// How a shortage reads.
std::string shortageText(CoppResourceModel::Shortage s);

}  // namespace NimbalHost
