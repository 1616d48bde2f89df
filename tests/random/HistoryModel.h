#pragma once

// What a history has configured, kept apart from the agent and the library: the classes
// policed, the dynamic CPU queues held, the kernel CoPP configuration the agent should hold,
// VXLAN state, and the counter baselines and folded hits the library's counters should show.
// The checks compare the chip and the library against it after every step.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Nimbal/MmuCpuQ.h"
#include "Oskel/KernelCoPPConfig.h"
#include "host/scenario/Scenario.h"

namespace NimbalHistory {

using Key = Oskel::ModIdPortQueueKey;

inline std::string keyText(Key const& k) {
   return "key (" + std::to_string(k.modId()) + "," + std::to_string(k.port()) + "," +
          std::to_string(k.queue()) + ")";
}

struct ModelInterface {
   std::string name;
   U16 modId = 0;
   U16 unit = 0;
   U16 port = 0;
   bool fabric = false;
};

struct PolicedClass {
   bool dynamic = false;      // the class has no static queue
   std::optional<U32> queue;  // none: a dynamic class that found no free queue
   U32 cir = 0;
   U32 bc = 0;
};

// A dynamic CPU queue and the class that holds it, with how many interfaces share it.
struct DynamicHold {
   std::string cmapName;
   U32 users = 0;
};

// The packet driver's counters of one (unit, port, queue).
struct DdeCounters {
   U64 dropped = 0;
   U64 allowed = 0;
   bool operator==(DdeCounters const&) const = default;
};

// A kernel entry's meter changed behind the agent's back: verify must see it until the key is
// programmed again.
struct Tampered {
   U32 entry = 0;
   U32 policer = 0;
   U32 cir = 0;
   U32 bc = 0;
};

class HistoryModel {
  public:
   // Ports below this have a per-port default CoPP entry.
   static constexpr U16 defaultEntryPorts = 256;

   HistoryModel(NimbalHost::ScenarioSwitch const& sw, std::vector<std::string> dynamicClasses);

   // The switch.
   NimbalHost::ScenarioSwitch const& sw() const { return sw_; }
   std::vector<ModelInterface> const& interfaces() const { return interfaces_; }
   ModelInterface const* interface(std::string const& name) const;
   ModelInterface const* interfaceOf(Key const& key) const;
   Key keyOf(ModelInterface const& intf, U32 queue) const {
      return Key(intf.modId, intf.port, queue);
   }
   U16 unitOfModule(U32 modId) const;
   std::vector<U16> units() const;
   static bool hasDefaultEntry(ModelInterface const& intf) { return intf.port < defaultEntryPorts; }
   Nimbal::MmuCpuQRow const& queue(U32 id) const;
   int staticQueue(std::string const& cmapName) const;
   std::vector<std::string> const& staticClasses() const { return staticClasses_; }
   std::vector<std::string> const& dynamicClasses() const { return dynamicClasses_; }
   // A queue that a class holds, statically or from the pool.
   bool queueAllocated(U32 id) const;
   // The queue of a class, as a traffic step finds it.
   std::optional<U32> queueOfClass(std::string const& cmapName) const;

   static Oskel::CoppInfo coppInfo(U32 rate, U32 burst) {
      return Oskel::CoppInfo(rate, burst * 2 / 3, burst, true);
   }
   Oskel::CoppInfo queueDefault(U32 queue) const {
      return coppInfo(this->queue(queue).rate, this->queue(queue).burst);
   }
   // The per-port default rate: the configured one, or twice the largest class rate of the
   // port when that is more.
   U32 expectedDefaultRate(ModelInterface const& intf) const;

   // The agent's work, step by step. `dde` reads the counters as they were before the step.
   template <class Dde>
   void police(std::string const& intf, std::string const& cmapName, U32 cir, U32 bc, Dde dde);
   template <class Dde>
   void unpolice(std::string const& intf, std::string const& cmapName, Dde dde);

   // Configuration.
   std::map<std::pair<std::string, std::string>, PolicedClass> policed;
   std::map<U32, DynamicHold> dynamicHolds;
   std::map<Key, Oskel::CoppInfo> kernel;
   bool vxlanEnabled = false;
   std::set<std::string> recirc;
   bool alwaysFalse = false;
   // Queues whose packet counters the step reset (a dynamic queue given back).
   std::set<U32> resetQueues;

   // Counters: the packet driver's counts at the last full clear (software table) and at the
   // last clear of any kind (counter poll); the hits folded into software when entries went;
   // every key that ever had an entry.
   std::map<Key, DdeCounters> swBaseline;
   std::map<Key, DdeCounters> cfgBaseline;
   std::map<Key, U64> folded;
   std::set<Key> everProgrammed;
   std::map<Key, Tampered> tampered;

  private:
   std::optional<U32> allocateDynamic(std::string const& cmapName);

   NimbalHost::ScenarioSwitch sw_;
   std::vector<ModelInterface> interfaces_;
   std::vector<std::string> staticClasses_;
   std::vector<std::string> dynamicClasses_;
};

template <class Dde>
void HistoryModel::police(std::string const& intf, std::string const& cmapName, U32 cir, U32 bc,
                          Dde dde) {
   auto it = policed.find({intf, cmapName});
   if (it == policed.end()) {
      PolicedClass c;
      int const q = staticQueue(cmapName);
      c.dynamic = q < 0;
      if (!c.dynamic) {
         c.queue = static_cast<U32>(q);
      }
      it = policed.emplace(std::make_pair(intf, cmapName), c).first;
   }
   PolicedClass& c = it->second;
   c.cir = cir;
   c.bc = bc;
   if (c.dynamic && !c.queue) {
      c.queue = allocateDynamic(cmapName);
   }
   if (c.queue) {
      Key const key = keyOf(*interface(intf), *c.queue);
      kernel[key] = coppInfo(cir, bc);
      cfgBaseline[key] = dde(key);
   }
}

template <class Dde>
void HistoryModel::unpolice(std::string const& intf, std::string const& cmapName, Dde dde) {
   auto it = policed.find({intf, cmapName});
   if (it == policed.end()) {
      return;
   }
   PolicedClass const c = it->second;
   policed.erase(it);
   if (!c.queue) {
      return;
   }
   Key const key = keyOf(*interface(intf), *c.queue);
   kernel[key] = queueDefault(*c.queue);
   cfgBaseline[key] = dde(key);
   if (c.dynamic) {
      DynamicHold& hold = dynamicHolds[*c.queue];
      if (--hold.users == 0) {
         dynamicHolds.erase(*c.queue);
      }
      resetQueues.insert(*c.queue);
   }
}

}  // namespace NimbalHistory
