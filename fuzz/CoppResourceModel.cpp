#include "fuzz/CoppResourceModel.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "Kiv/Type.h"

namespace NimbalHost {

namespace {

// Ports from this one up get no per-port default CoPP entry.
constexpr U16 defaultEntryPorts = 256;
constexpr double vxlanRetryInterval = 60.0;

char const* const resourceFull = "QOS_COPP_HW_RESOURCE_FULL";
char const* const resourceNormal = "QOS_COPP_HW_RESOURCE_NORMAL";

std::string classPolicerFull(std::string const& cmapName, std::string const& intf) {
   return "Insufficient egress TCAM resources to program the control plane policer (vxlan) for "
          "class " +
          cmapName + " on " + intf + ".";
}
std::string defaultPolicerFull(std::string const& intf) {
   return "Insufficient egress TCAM resources to program the default control plane policer "
          "(vxlan) on " +
          intf + ".";
}
std::string defaultPolicerNormal(std::string const& intf) {
   return "default control plane policer (vxlan) on " + intf + " is programmed in egress TCAM.";
}

std::string keyId(CoppResourceModel::Key const& key) {
   return std::to_string(key.modId()) + "/" + std::to_string(key.port()) + "/" +
          std::to_string(key.queue());
}

}  // namespace

std::string shortageText(CoppResourceModel::Shortage s) {
   using S = CoppResourceModel::Shortage;
   switch (s) {
      case S::coppEntry:
         return "no egress CoPP entry left";
      case S::coppMeter:
         return "no egress CoPP meter left";
      case S::debugAlwaysFalse:
         return "createCoppPolicerAlwaysFalse is set";
      case S::vxlanPool:
         return "the pool of " + std::to_string(CoppResourceModel::vxlanPoolSize) +
                " VXLAN source-port entries is full";
      case S::defaultEntry:
         return "no default-and-VXLAN entry left";
      case S::defaultMeter:
         return "no default-and-VXLAN meter left";
      case S::vxlanDefaultFirst:
         return "a VXLAN default entry is missing, and source-port entries wait for it";
      case S::dynamicCpuQueue:
         return "no dynamic CPU queue is free";
   }
   return "";
}

CoppResourceModel::CoppResourceModel(Scenario const& scenario, double start)
    : scenario_(scenario),
      tcamVariant_(scenario.sw.toggle("UseTcamAgentForPolicyQos")),
      start_(start),
      clock_(start) {
   vxlanPool_.size = vxlanPoolSize;
   startUp();
}

// Start-up

void CoppResourceModel::startUp() {
   ScenarioSwitch const& sw = scenario_.sw;
   std::map<U16, U16> unitOfModule;
   for (ScenarioModule const& m : sw.modules) {
      unitOfModule[m.modId] = m.unit;
      units_[m.unit];
   }
   for (ScenarioInterface const& intf : sw.interfaces) {
      portIntf_.emplace(Port{intf.modId, unitOfModule[intf.modId], intf.port}, intf.name);
   }
   for (ScenarioInterface const& intf : sw.fabricInterfaces) {
      fabricPortIntf_.emplace(Port{intf.modId, unitOfModule[intf.modId], intf.port}, intf.name);
   }
   for (Nimbal::MmuCpuQRow const& row : sw.cpuQueues) {
      cpuQueues_[row.id].row = row;
      dynamicCpuQueues_.size += row.dynamic ? 1 : 0;
   }

   // Pools as the switch builder sizes them: an entry and a meter for every (port, CPU queue)
   // unless the scenario says otherwise.
   U32 const ports = static_cast<U32>(sw.interfaces.size() + sw.fabricInterfaces.size());
   U32 const perPortQueue = std::max<U32>(4096, ports * Nimbal::mmuCpuQueues);
   for (auto& [unit, pools] : units_) {
      pools.coppEntries.size = sw.resources.efpCoppEntries.value_or(perPortQueue);
      pools.coppMeters.size = sw.resources.efpCoppMeters.value_or(perPortQueue);
      pools.defaultMeters.size = sw.resources.efpDefaultMeters.value_or(4096);
      pools.defaultEntries.size = defaultGroupEntries;
   }

   // The agent's per-port default CoPP entries, one per chip port below 256.
   std::set<std::pair<U16, U16>> done;
   auto defaultEntry = [&](ScenarioInterface const& intf) {
      Port const p{intf.modId, unitOfModule[intf.modId], intf.port};
      if (p.port >= defaultEntryPorts || !done.insert({p.unit, p.port}).second) {
         return;
      }
      UnitPools& pools = units_[p.unit];
      pools.portDefaultsWanted += 1;
      if (!take(pools.defaultEntries)) {
         withoutDefaultPolicer_.push_back(intf.name);
         portDefaultShortage_[intf.name] = Shortage::defaultEntry;
         return;
      }
      if (!take(pools.defaultMeters)) {
         give(pools.defaultEntries);
         withoutDefaultPolicer_.push_back(intf.name);
         portDefaultShortage_[intf.name] = Shortage::defaultMeter;
         return;
      }
      portDefaultCoppPolicerRate_.emplace(Orvik::IntfId(intf.name), sw.portDefaultCoppRate);
   };
   for (ScenarioInterface const& intf : sw.interfaces) {
      defaultEntry(intf);
   }
   for (ScenarioInterface const& intf : sw.fabricInterfaces) {
      defaultEntry(intf);
   }

   // createDefaultCoppRates: every chip port and every queue a class holds, but the drop queue.
   std::set<Port> allPorts;
   for (auto const& [p, name] : portIntf_) {
      allPorts.insert(p);
   }
   for (auto const& [p, name] : fabricPortIntf_) {
      allPorts.insert(p);
   }
   for (Port const& p : allPorts) {
      for (auto const& [id, q] : cpuQueues_) {
         if (q.row.classes.empty() || id == Nimbal::cpuCosqDrop_) {
            continue;
         }
         coppInfo_[Key(p.modId, p.port, id)] =
             Oskel::CoppInfo(q.row.rate, q.row.burst * 2 / 3, q.row.burst, true);
      }
   }
   // The kernel CoPP reactor joins afterwards and programs what is there, in key order.
   for (auto const& [key, info] : coppInfo_) {
      reactorCreate(key);
   }
   demandIs();
   observe();
}

// Steps

void CoppResourceModel::play(ScenarioStep const& s) {
   if (stop_) {
      return;
   }
   step_ = s.number;
   std::visit(
       [this, &s](auto const& action) {
          using T = std::decay_t<decltype(action)>;
          if constexpr (std::is_same_v<T, step::Police>) {
             police(action);
          } else if constexpr (std::is_same_v<T, step::Unpolice>) {
             unpolice(action);
          } else if constexpr (std::is_same_v<T, step::Vxlan>) {
             if (action.enabled != vxlanEnabled_) {
                vxlanEnabled_ = action.enabled;
                syncVxlanEntries(false);
             }
          } else if constexpr (std::is_same_v<T, step::Recirc>) {
             recirc(action);
          } else if constexpr (std::is_same_v<T, step::Advance>) {
             advanceTo(now() + action.seconds);
          } else if constexpr (std::is_same_v<T, step::Traffic>) {
             traffic(action);
          } else if constexpr (std::is_same_v<T, step::Set>) {
             set(action);
          } else if constexpr (std::is_same_v<T, step::Resources>) {
             resources(action.sizes);
          } else if constexpr (std::is_same_v<T, step::Fail>) {
             unmodelled_.push_back(s.number);
          } else if constexpr (std::is_same_v<T, step::Verify>) {
             verify();
          }
          // show, clear, poll and tamper read or change meters, never pools.
       },
       s.action);
   demandIs();
   observe();
}

void CoppResourceModel::advanceTo(double seconds) {
   double const t = start_ + seconds;
   if (t <= clock_ || stop_) {
      return;
   }
   while (retryWake_ <= t && !stop_) {
      clock_ = std::max(clock_, retryWake_);
      retryTimerFires();
   }
   clock_ = std::max(clock_, t);
   reactorRetry();
}

void CoppResourceModel::traffic(step::Traffic const& s) {
   // The clock moves by the step's time when any flow has somewhere to go; the waiting keys
   // are tried once, at the end.
   bool sends = false;
   for (step::Flow const& f : s.flowList()) {
      if (f.capture) {
         sends = true;
         continue;
      }
      std::optional<U32> queue = f.queue;
      if (!queue) {
         int const staticQ = scenario_.sw.staticQueue(f.cmapName);
         if (staticQ >= 0) {
            queue = static_cast<U32>(staticQ);
         }
         for (auto const& [id, p] : policed_) {
            if (!queue && id.second == f.cmapName && p.queue) {
               queue = p.queue;
            }
         }
      }
      if (queue && !(f.vxlan && scenario_.sw.vxlanWorkaround && recirc_.empty())) {
         sends = true;
      }
   }
   if (sends) {
      advanceTo(now() + s.seconds);
   }
}

void CoppResourceModel::police(step::Police const& s) {
   auto const id = std::make_pair(s.interface, s.cmapName);
   auto it = policed_.find(id);
   if (it == policed_.end()) {
      Policed p;
      int const staticQ = scenario_.sw.staticQueue(s.cmapName);
      p.dynamic = staticQ < 0;
      if (!p.dynamic) {
         p.queue = static_cast<U32>(staticQ);
      }
      it = policed_.emplace(id, p).first;
   }
   Policed& p = it->second;
   if (p.dynamic && !p.queue) {
      p.queue = allocateDynamicCpuQ(s.cmapName);
   }
   if (p.queue && !tcamVariant_) {
      createAndAttachCoppPolicer(s.interface, s.cmapName, *p.queue, s.cir, s.bc);
   }
}

void CoppResourceModel::unpolice(step::Unpolice const& s) {
   auto it = policed_.find({s.interface, s.cmapName});
   if (it == policed_.end()) {
      return;
   }
   Policed const p = it->second;
   policed_.erase(it);
   if (!p.queue) {
      return;
   }
   if (!tcamVariant_) {
      destroyCoppPolicer(s.interface, s.cmapName, *p.queue);
   }
   if (p.dynamic && !stop_) {
      deallocateDynamicCpuQ(*p.queue);
   }
}

void CoppResourceModel::recirc(step::Recirc const& s) {
   bool const changed = s.enabled ? recirc_.insert(s.interface).second : recirc_.erase(s.interface);
   // The state machine rewrites the CPU-queue qualifier of the interface's per-port default
   // entry, which must exist.
   if (changed && !portDefaultCoppPolicerRate_.count(Orvik::IntfId(s.interface))) {
      stopIs("the change rewrites the per-port default CoPP entry of " + s.interface +
             ", which it does not have");
   }
}

void CoppResourceModel::verify() {
   // Verify finds the unit of a per-port default entry through the front-panel port map, which
   // has no fabric interface.
   for (auto const& [port, intf] : fabricPortIntf_) {
      if (portDefaultCoppPolicerRate_.count(Orvik::IntfId(intf))) {
         stopIs("verify reads the per-port default CoPP entry of " + intf +
                " on a unit that the front-panel port map does not know");
         return;
      }
   }
}

void CoppResourceModel::set(step::Set const& s) {
   for (auto const& [name, value] : s.attributes) {
      if (name != "createCoppPolicerAlwaysFalse") {
         continue;
      }
      try {
         alwaysFalse_ = Kiv::fromString<bool>(value);
      } catch (std::invalid_argument const&) {
         stopIs(name + " cannot take the value " + value);
         return;
      }
      changed();
   }
}

void CoppResourceModel::resources(SwitchResources const& sizes) {
   for (auto& [unit, pools] : units_) {
      if (sizes.efpCoppEntries) {
         pools.coppEntries.size = *sizes.efpCoppEntries;
      }
      if (sizes.efpCoppMeters) {
         pools.coppMeters.size = *sizes.efpCoppMeters;
      }
      if (sizes.efpDefaultMeters) {
         pools.defaultMeters.size = *sizes.efpDefaultMeters;
      }
   }
   changed();
}

// The agent's kernel CoPP reactor

void CoppResourceModel::coppInfoIs(Key const& key, Oskel::CoppInfo const& info) {
   auto it = coppInfo_.find(key);
   if (it != coppInfo_.end() && it->second == info) {
      return;  // an equal value notifies nobody
   }
   coppInfo_[key] = info;
   reactorHandle(key);
}

void CoppResourceModel::reactorHandle(Key const& key) {
   failed_.erase(key);
   if (programmed_.erase(key)) {
      destroyCoppPolicerByPortQueue(key);
   }
   if (coppInfo_.count(key)) {
      reactorCreate(key);
   }
}

void CoppResourceModel::reactorCreate(Key const& key) {
   if (createCoppPolicerByPortQueue(key)) {
      programmed_.insert(key);
      kernelShortage_.erase(key);
   } else {
      failed_.insert(key);
   }
}

void CoppResourceModel::reactorRetry() {
   // A key that failed fails again until a pool grows or gives back, or the debug switch goes.
   if (failed_.empty() || retriedAt_ == version_) {
      return;
   }
   std::size_t const before = failed_.size();
   std::vector<Key> const keys(failed_.begin(), failed_.end());
   for (Key const& key : keys) {
      failed_.erase(key);
      if (coppInfo_.count(key)) {
         reactorCreate(key);
      }
   }
   retriedAt_ = version_;
   if (failed_.size() != before) {
      observe();
   }
}

// The library: port-queue policers and their VXLAN entries

bool CoppResourceModel::createCoppPolicerByPortQueue(Key const& key) {
   if (alwaysFalse_) {
      kernelShortage_[key] = Shortage::debugAlwaysFalse;
      return false;
   }
   std::optional<U16> const unit = unitOf(key.modId());
   if (!unit || kernelDynamicCoppData_.count(key)) {
      return true;
   }
   if (interfaceOf(Port{static_cast<U16>(key.modId()), *unit, static_cast<U16>(key.port())})
           .empty()) {
      return true;
   }
   UnitPools& pools = units_[*unit];
   if (!take(pools.coppEntries)) {
      kernelShortage_[key] = Shortage::coppEntry;
      return false;
   }
   if (!take(pools.coppMeters)) {
      give(pools.coppEntries);
      kernelShortage_[key] = Shortage::coppMeter;
      return false;
   }
   kernelDynamicCoppData_.emplace(key, true);
   if (vxlanNeeded() && !createVxlanSourcePort(key)) {
      // The port-keyed entry stands; the state machine retries the VXLAN one.
      vxlanEntryExhaustedIs(true);
      log(resourceFull, classPolicerFull(classOfQueue(key.queue()), interfaceOf(key)));
   }
   return true;
}

void CoppResourceModel::destroyCoppPolicerByPortQueue(Key const& key) {
   if (kernelDynamicCoppData_.erase(key)) {
      UnitPools& pools = units_[unitOf(key.modId()).value_or(0)];
      give(pools.coppMeters);
      give(pools.coppEntries);
   }
   if (scenario_.sw.vxlanWorkaround) {
      destroyVxlanSourcePort(key);
   }
}

bool CoppResourceModel::createVxlanSourcePort(Key const& key) {
   if (!take(vxlanPool_)) {
      vxlanShortage_[key] = Shortage::vxlanPool;
      return false;
   }
   UnitPools& pools = units_[unitOf(key.modId()).value_or(0)];
   if (!take(pools.defaultEntries)) {
      give(vxlanPool_);
      vxlanShortage_[key] = Shortage::defaultEntry;
      return false;
   }
   if (!take(pools.defaultMeters)) {
      give(pools.defaultEntries);
      give(vxlanPool_);
      vxlanShortage_[key] = Shortage::defaultMeter;
      return false;
   }
   kernelDynamicCoppVxlanData_.insert(key);
   vxlanShortage_.erase(key);
   return true;
}

void CoppResourceModel::destroyVxlanSourcePort(Key const& key) {
   if (!kernelDynamicCoppVxlanData_.erase(key)) {
      return;
   }
   UnitPools& pools = units_[unitOf(key.modId()).value_or(0)];
   give(pools.defaultMeters);
   give(pools.defaultEntries);
   give(vxlanPool_);
}

void CoppResourceModel::syncVxlanEntries(bool retry) {
   if (!scenario_.sw.vxlanWorkaround) {
      return;
   }
   // Source-port entries wait while a port's VXLAN default entry is missing.
   if (!syncVxlanDefaults(retry)) {
      return;
   }
   // The library walks its records in key order.
   std::vector<Key> keys;
   keys.reserve(kernelDynamicCoppData_.size());
   for (auto const& [key, programmed] : kernelDynamicCoppData_) {
      keys.push_back(key);
   }
   if (!vxlanEnabled_) {
      for (Key const& key : keys) {
         destroyVxlanSourcePort(key);
      }
      return;
   }
   for (Key const& key : keys) {
      if (kernelDynamicCoppVxlanData_.count(key)) {
         continue;
      }
      if (!createVxlanSourcePort(key)) {
         vxlanEntryExhaustedIs(true);
         log(resourceFull, classPolicerFull(classOfQueue(key.queue()), interfaceOf(key)));
      } else if (retry) {
         log(resourceNormal, defaultPolicerNormal(interfaceOf(key)));
      }
   }
}

bool CoppResourceModel::syncVxlanDefaults(bool retry) {
   if (!vxlanEnabled_) {
      for (std::string const& intf : portDefaultCoppPolicerVxlan_) {
         UnitPools& pools = units_[portOf(intf)->unit];
         give(pools.defaultMeters);
         give(pools.defaultEntries);
      }
      portDefaultCoppPolicerVxlan_.clear();
      return true;
   }
   std::vector<Orvik::IntfId> intfs;
   for (auto const& [intf, rate] : portDefaultCoppPolicerRate_) {
      intfs.push_back(intf);
   }
   for (Orvik::IntfId const& intfId : intfs) {
      std::string const intf = intfId.stringValue();
      if (portDefaultCoppPolicerVxlan_.count(intf)) {
         continue;
      }
      UnitPools& pools = units_[portOf(intf)->unit];
      std::optional<Shortage> shortage;
      if (!take(pools.defaultEntries)) {
         shortage = Shortage::defaultEntry;
      } else if (!take(pools.defaultMeters)) {
         give(pools.defaultEntries);
         shortage = Shortage::defaultMeter;
      }
      if (shortage) {
         // The pass stops here: the interfaces after it are not tried either.
         for (Orvik::IntfId const& other : intfs) {
            if (!portDefaultCoppPolicerVxlan_.count(other.stringValue())) {
               vxlanDefaultShortage_[other.stringValue()] = *shortage;
            }
         }
         vxlanEntryExhaustedIs(true);
         log(resourceFull, defaultPolicerFull(intf));
         return false;
      }
      portDefaultCoppPolicerVxlan_.insert(intf);
      vxlanDefaultShortage_.erase(intf);
      if (retry) {
         log(resourceNormal, defaultPolicerNormal(intf));
      }
   }
   return true;
}

void CoppResourceModel::vxlanEntryExhaustedIs(bool exhausted) {
   if (exhausted == exhausted_) {
      return;
   }
   exhausted_ = exhausted;
   // An armed timer keeps its time.
   if (exhausted_ && retryWake_ == never) {
      retryWake_ = clock_ + vxlanRetryInterval;
   }
}

void CoppResourceModel::retryTimerFires() {
   retryWake_ = never;
   vxlanEntryExhaustedIs(false);
   syncVxlanEntries(true);
   observe();
}

// The library: class policers, per-port defaults and CPU queues

void CoppResourceModel::createAndAttachCoppPolicer(std::string const& intf,
                                                   std::string const& cmapName, U32 queue, U32 cir,
                                                   U32 bc) {
   std::optional<Port> const port = portOf(intf);
   if (!port) {
      return;
   }
   coppIntfPolicerRate_[intf][cmapName] = cir;
   updatePortDefaultCoppPolicer(*port);
   if (stop_) {
      return;
   }
   coppInfoIs(Key(port->modId, port->port, queue), Oskel::CoppInfo(cir, bc * 2 / 3, bc, true));
}

void CoppResourceModel::destroyCoppPolicer(std::string const& intf, std::string const& cmapName,
                                           U32 queue) {
   auto it = coppIntfPolicerRate_.find(intf);
   if (it == coppIntfPolicerRate_.end() || !it->second.count(cmapName)) {
      return;
   }
   std::optional<Port> const port = portOf(intf);
   // Without its class policer the queue falls back to its own default rate.
   Nimbal::MmuCpuQRow const& row = cpuQueues_.at(queue).row;
   coppInfoIs(Key(port->modId, port->port, queue),
              Oskel::CoppInfo(row.rate, row.burst * 2 / 3, row.burst, true));
   it->second.erase(cmapName);
   if (it->second.empty()) {
      coppIntfPolicerRate_.erase(it);
   }
   updatePortDefaultCoppPolicer(*port);
}

void CoppResourceModel::updatePortDefaultCoppPolicer(Port const& port) {
   std::string const intf = interfaceOf(port);
   U32 rate = scenario_.sw.portDefaultCoppRate;
   if (auto it = coppIntfPolicerRate_.find(intf); it != coppIntfPolicerRate_.end()) {
      U32 largest = 0;
      for (auto const& [cmapName, cir] : it->second) {
         largest = std::max(largest, cir);
      }
      rate = std::max(rate, 2 * largest);
   }
   auto record = portDefaultCoppPolicerRate_.find(Orvik::IntfId(intf));
   U32 const current = record == portDefaultCoppPolicerRate_.end() ? 0 : record->second;
   if (current == rate) {
      return;
   }
   if (record == portDefaultCoppPolicerRate_.end()) {
      stopIs("the class policer changes the per-port default CoPP policer of " + intf +
             ", which it does not have");
      return;
   }
   // The meter is swapped: the old one goes back first, so the new one finds room unless the
   // pool was shrunk below what it holds.
   Pool const& meters = units_[port.unit].defaultMeters;
   if (meters.inUse > meters.size) {
      stopIs("the per-port default CoPP policer of " + intf +
             " changes meter while the default-and-VXLAN group holds " +
             std::to_string(meters.inUse) + " meters of " + std::to_string(meters.size));
      return;
   }
   record->second = rate;
}

std::optional<U32> CoppResourceModel::allocateDynamicCpuQ(std::string const& cmapName) {
   // A class keeps one queue however many interfaces police it.
   for (auto& [id, q] : cpuQueues_) {
      if (q.row.dynamic && q.users > 0 && q.holder == cmapName) {
         ++q.users;
         return id;
      }
   }
   for (auto& [id, q] : cpuQueues_) {
      if (q.row.dynamic && q.users == 0) {
         q.holder = cmapName;
         q.users = 1;
         return id;
      }
   }
   return std::nullopt;
}

void CoppResourceModel::deallocateDynamicCpuQ(U32 queue) {
   CpuQueue& q = cpuQueues_.at(queue);
   if (q.users > 0 && --q.users == 0) {
      q.holder.clear();
   }
}

std::string CoppResourceModel::classOfQueue(U32 queue) const {
   auto it = cpuQueues_.find(queue);
   if (it == cpuQueues_.end()) {
      return "";
   }
   CpuQueue const& q = it->second;
   std::string const holder =
       q.row.dynamic ? q.holder : (q.row.classes.empty() ? "" : q.row.classes.front());
   return holder.empty() ? q.row.name : holder;
}

// What the switch needs, and what it lacks

void CoppResourceModel::demandIs() {
   for (auto& [unit, pools] : units_) {
      pools.coppEntries.demand = 0;
      pools.vxlanDefaultsWanted = 0;
      pools.vxlanSourcePortWanted = 0;
   }
   for (auto const& [key, info] : coppInfo_) {
      std::optional<U16> const unit = unitOf(key.modId());
      if (unit && !interfaceOf(key).empty()) {
         UnitPools& pools = units_[*unit];
         ++pools.coppEntries.demand;
         pools.vxlanSourcePortWanted += vxlanNeeded() ? 1 : 0;
      }
   }
   if (vxlanNeeded()) {
      for (auto const& [intf, rate] : portDefaultCoppPolicerRate_) {
         ++units_[portOf(intf.stringValue())->unit].vxlanDefaultsWanted;
      }
   }
   vxlanPool_.demand = 0;
   for (auto& [unit, pools] : units_) {
      pools.coppMeters.demand = pools.coppEntries.demand;
      pools.defaultEntries.demand =
          pools.portDefaultsWanted + pools.vxlanDefaultsWanted + pools.vxlanSourcePortWanted;
      pools.defaultMeters.demand = pools.defaultEntries.demand;
      vxlanPool_.demand += pools.vxlanSourcePortWanted;
   }
   std::set<std::string> dynamicClasses;
   dynamicCpuQueues_.inUse = 0;
   for (auto const& [id, p] : policed_) {
      if (p.dynamic) {
         dynamicClasses.insert(id.second);
      }
   }
   for (auto const& [id, q] : cpuQueues_) {
      dynamicCpuQueues_.inUse += q.row.dynamic && q.users > 0 ? 1 : 0;
   }
   dynamicCpuQueues_.demand = static_cast<U32>(dynamicClasses.size());
}

std::set<CoppResourceModel::Key> CoppResourceModel::keysWithoutVxlanEntry() const {
   std::set<Key> out;
   if (vxlanNeeded()) {
      for (auto const& [key, programmed] : kernelDynamicCoppData_) {
         if (!kernelDynamicCoppVxlanData_.count(key)) {
            out.insert(key);
         }
      }
   }
   return out;
}

std::set<std::string> CoppResourceModel::interfacesWithoutVxlanDefault() const {
   std::set<std::string> out;
   if (vxlanNeeded()) {
      for (auto const& [intf, rate] : portDefaultCoppPolicerRate_) {
         if (!portDefaultCoppPolicerVxlan_.count(intf.stringValue())) {
            out.insert(intf.stringValue());
         }
      }
   }
   return out;
}

std::set<std::pair<std::string, std::string>> CoppResourceModel::classesWithoutQueue() const {
   std::set<std::pair<std::string, std::string>> out;
   for (auto const& [id, p] : policed_) {
      if (!p.queue) {
         out.insert(id);
      }
   }
   return out;
}

std::optional<double> CoppResourceModel::vxlanRetryAt() const {
   return retryWake_ == never ? std::nullopt : std::optional<double>(retryWake_ - start_);
}

void CoppResourceModel::observe() {
   using What = Shortfall::What;
   // What lacks hardware now, by what and who.
   std::map<std::tuple<int, std::string, std::string>, Shortfall> now;
   auto add = [&now](Shortfall s, std::string const& id) {
      now.emplace(std::make_tuple(static_cast<int>(s.what), id, s.cmapName), std::move(s));
   };
   for (Key const& key : failed_) {
      Shortfall s;
      s.what = What::kernelKey;
      s.interface = interfaceOf(key);
      s.key = key;
      s.reason = kernelShortage_.count(key) ? kernelShortage_.at(key) : Shortage::coppEntry;
      add(s, keyId(key));
   }
   for (Key const& key : keysWithoutVxlanEntry()) {
      Shortfall s;
      s.what = What::vxlanSourcePort;
      s.interface = interfaceOf(key);
      s.key = key;
      s.reason = vxlanShortage_.count(key) ? vxlanShortage_.at(key) : Shortage::vxlanDefaultFirst;
      add(s, keyId(key));
   }
   for (std::string const& intf : interfacesWithoutVxlanDefault()) {
      Shortfall s;
      s.what = What::vxlanDefault;
      s.interface = intf;
      s.reason = vxlanDefaultShortage_.count(intf) ? vxlanDefaultShortage_.at(intf)
                                                   : Shortage::defaultMeter;
      add(s, intf);
   }
   for (std::string const& intf : withoutDefaultPolicer_) {
      Shortfall s;
      s.what = What::portDefault;
      s.interface = intf;
      s.reason = portDefaultShortage_.at(intf);
      add(s, intf);
   }
   for (auto const& [intf, cmapName] : classesWithoutQueue()) {
      Shortfall s;
      s.what = What::classQueue;
      s.interface = intf;
      s.cmapName = cmapName;
      s.reason = Shortage::dynamicCpuQueue;
      add(s, intf);
   }

   for (auto it = open_.begin(); it != open_.end();) {
      if (now.count(it->first)) {
         ++it;
         continue;
      }
      Shortfall& s = shortfalls_[it->second];
      s.toStep = step_;
      s.toTime = this->now();
      switch (s.what) {
         case What::kernelKey:
            s.programmed = programmed_.count(*s.key) != 0;
            break;
         case What::vxlanSourcePort:
            s.programmed = kernelDynamicCoppVxlanData_.count(*s.key) != 0;
            break;
         case What::vxlanDefault:
            s.programmed = portDefaultCoppPolicerVxlan_.count(s.interface) != 0;
            break;
         case What::portDefault:
            break;
         case What::classQueue: {
            auto p = policed_.find({s.interface, s.cmapName});
            s.programmed = p != policed_.end() && p->second.queue;
            break;
         }
      }
      it = open_.erase(it);
   }
   for (auto& [id, s] : now) {
      if (open_.count(id)) {
         continue;
      }
      s.fromStep = step_;
      s.fromTime = this->now();
      open_.emplace(id, shortfalls_.size());
      shortfalls_.push_back(std::move(s));
   }
}

void CoppResourceModel::stopIs(std::string const& why) {
   if (!stop_) {
      stop_ = why;
      stopStep_ = step_;
   }
}

bool CoppResourceModel::take(Pool& pool) {
   if (pool.inUse >= pool.size) {
      return false;
   }
   ++pool.inUse;
   return true;
}

void CoppResourceModel::give(Pool& pool) {
   --pool.inUse;
   changed();
}

void CoppResourceModel::log(char const* key, std::string const& text) {
   logs_.push_back({key, text, step_});
}

// Ports and interfaces

std::optional<U16> CoppResourceModel::unitOf(U32 modId) const {
   for (ScenarioModule const& m : scenario_.sw.modules) {
      if (m.modId == modId) {
         return m.unit;
      }
   }
   return std::nullopt;
}

std::optional<CoppResourceModel::Port> CoppResourceModel::portOf(std::string const& intf) const {
   for (auto const* list : {&scenario_.sw.interfaces, &scenario_.sw.fabricInterfaces}) {
      for (ScenarioInterface const& i : *list) {
         if (i.name == intf) {
            return Port{i.modId, unitOf(i.modId).value_or(0), i.port};
         }
      }
   }
   return std::nullopt;
}

std::string CoppResourceModel::interfaceOf(Port const& port) const {
   auto it = portIntf_.find(port);
   if (it != portIntf_.end()) {
      return it->second;
   }
   auto fabric = fabricPortIntf_.find(port);
   return fabric == fabricPortIntf_.end() ? "" : fabric->second;
}

std::string CoppResourceModel::interfaceOf(Key const& key) const {
   std::optional<U16> const unit = unitOf(key.modId());
   if (!unit) {
      return "";
   }
   return interfaceOf(Port{static_cast<U16>(key.modId()), *unit, static_cast<U16>(key.port())});
}

std::string CoppResourceModel::keyText(Key const& key) const {
   auto it = cpuQueues_.find(key.queue());
   return interfaceOf(key) + " queue " + std::to_string(key.queue()) +
          (it == cpuQueues_.end() ? "" : " (" + it->second.row.name + ")");
}

}  // namespace NimbalHost
