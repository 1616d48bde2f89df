#include "bench/BenchSwitch.h"

#include <malloc.h>
#include <time.h>

#include <string>

#include "Nimbal/TcamGroupManager.h"
#include "Shim/Sdk.h"

namespace NimbalBench {

namespace {

Nimbal::StatTypes coppStatTypes() {
   Nimbal::StatTypes statTypes;
   statTypes.typeIs(0, ::Shim::sdk_->coppStatType(0));
   statTypes.typeIs(1, ::Shim::sdk_->coppStatType(1));
   return statTypes;
}

}  // namespace

Agent::Agent(NimbalHost::SwitchConfig const& config) : sw(NimbalHost::buildSwitch(config)) {
   // Neither the agent nor its benchmarks read the journal of SDK calls.
   sw->sdk().journalLimitIs(0);
   reactor = std::make_unique<NimbalHost::KernelCoppReactor>(sw->helper().ptr());
   reactor->notifierIs(sw->kernelCoppConfig());
}

Agent::~Agent() {
   reactor.reset();
   sw.reset();
}

void warmHeap() {
   static bool const warm = [] {
      ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
      ::mallopt(M_MMAP_THRESHOLD, 32 << 20);  // the largest glibc takes
      Agent a(scaleSwitch(modulesAtFullScale));
      a.boot();
      return true;
   }();
   (void)warm;
}

double threadSeconds() {
   timespec t{};
   ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
   return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

NimbalHost::SwitchConfig scaleSwitch(int modules, int ports, int queues) {
   NimbalHost::SwitchConfig config;
   config.modules.clear();
   config.interfaces.clear();
   for (int m = 0; m < modules; ++m) {
      config.modules.push_back({static_cast<U16>(m), static_cast<U16>(m)});
      for (int p = 0; p < ports; ++p) {
         config.interfaces.push_back({"Ethernet" + std::to_string(m * ports + p + 1),
                                      static_cast<U16>(m), static_cast<U16>(p)});
      }
   }
   config.cpuQueues = Nimbal::builtInCpuQTable();
   for (Nimbal::MmuCpuQRow& row : config.cpuQueues) {
      row.dynamic = false;
      row.classes.clear();
      if (row.id != 0 && row.id <= static_cast<U32>(queues)) {
         row.classes.push_back("copp-bench-" + std::to_string(row.id));
      }
   }
   config.publishDefaultCoppRates = false;
   return config;
}

std::vector<KeyRate> startUpKeys(NimbalHost::Switch const& sw) {
   std::vector<KeyRate> keys;
   Kiv::Ptr<Nimbal::MmuCpuQColl> const cpuQColl = sw.mmuSm()->cpuQColl();
   for (auto const& [port, intf] : sw.scsd()->nimbalPortToIntfCol()) {
      for (auto const& [id, cpuQ] : cpuQColl->cpuQCol()) {
         if (cpuQ->allocated() == 0 || cpuQ->cpuQId() == 0) {
            continue;
         }
         keys.push_back(
             {Oskel::ModIdPortQueueKey(port.modId(), port.logicalPort(), cpuQ->cpuQId()),
              cpuQ->defaultCoppRate(), cpuQ->defaultCoppBurst(),
              "Dynamic Kernel Copp for " + intf.stringValue() + ", " + cpuQ->cmapName()});
      }
   }
   return keys;
}

void publish(NimbalHost::Switch& sw, std::vector<KeyRate> const& keys) {
   for (KeyRate const& k : keys) {
      sw.kernelCoppConfig()->coppInfoIs(k.key,
                                        Oskel::CoppInfo(k.rate, k.burst * 2 / 3, k.burst, true));
   }
}

std::vector<BareEntry> bareBoot(NimbalHost::Switch& sw, std::vector<KeyRate> const& keys) {
   Shim::Sdk& sdk = sw.sdk();
   auto const entryMgr = sw.efpCoppEntryMgr();
   auto const groupMgr = sw.tcamGroupManager();
   Nimbal::StatTypes const statTypes = coppStatTypes();
   std::vector<BareEntry> made;
   made.reserve(keys.size());
   for (KeyRate const& k : keys) {
      U32 const unit = sw.unitOfModule(static_cast<U16>(k.key.modId()));
      int const u = static_cast<int>(unit);
      U32 const entry =
          entryMgr->getEntryWithStats(unit, k.description, Nimbal::RequestKey(), statTypes);
      int const e = static_cast<int>(entry);
      entryMgr->setPriorityForEntry(unit, entry, entryMgr->coppPriority());
      sdk.bcm_field_qualify_InPort(u, e, static_cast<int>(k.key.port()), -1);
      sdk.bcm_field_qualify_CpuQueue(u, e, static_cast<U8>(k.key.queue()), 0x3F);
      sdk.bcm_field_qualify_InnerVlanId(u, e, 0, 0);
      sdk.bcm_field_qualify_InterfaceClassPort(u, e, 2, 2);
      Shim::bcm_policer_config_s config;
      sdk.bcm_policer_config_t_init(&config);
      config.mode_is(sdk.coppPolicerMode());
      config.flags_or(0x84);
      config.ckbits_sec_is(k.rate);
      config.ckbits_burst_is(k.burst);
      config.pkbits_sec_is(0);
      config.pkbits_burst_is(0);
      U32 const policer = groupMgr->createPolicer(unit, config);
      entryMgr->attachPolicer(unit, entry, policer, true);
      sdk.bcm_field_action_add(u, e, Shim::bcmFieldActionRpDrop, 0, 0);
      groupMgr->returnErrorOnInstallIs(true);
      entryMgr->installEntry(unit, entry);
      groupMgr->returnErrorOnInstallIs(false);
      made.push_back({unit, entry, policer});
   }
   return made;
}

void bareTeardown(NimbalHost::Switch& sw, std::vector<BareEntry> const& entries) {
   Shim::Sdk& sdk = sw.sdk();
   auto const entryMgr = sw.efpCoppEntryMgr();
   auto const groupMgr = sw.tcamGroupManager();
   for (BareEntry const& b : entries) {
      entryMgr->hitsForEntry(b.unit, b.entry);
      entryMgr->attachPolicer(b.unit, b.entry, 0, false);
      groupMgr->returnErrorOnInstallIs(true);
      entryMgr->installEntry(b.unit, b.entry);
      groupMgr->returnErrorOnInstallIs(false);
      groupMgr->removePolicer(b.unit, b.policer);
      sdk.bcm_field_entry_remove(static_cast<int>(b.unit), static_cast<int>(b.entry));
      entryMgr->destroyEntry(b.unit, b.entry);
   }
}

}  // namespace NimbalBench
