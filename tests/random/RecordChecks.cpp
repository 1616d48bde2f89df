// The record invariants: every CoPP record of the helper stands for exactly one installed entry
// with one meter at the configured rate, and the chip holds nothing that no record stands for.
#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "Nimbal/MmuConfigSm.h"
#include "random/HistoryChecks.h"

namespace NimbalHistory {

namespace {

constexpr int efpCoppGroup = static_cast<int>(NimbalHost::Switch::efpCoppGroupId);
constexpr int efpDefaultGroup = static_cast<int>(NimbalHost::Switch::efpCoppDefAndVxlanGroupId);
constexpr U32 base = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;
constexpr U32 vxlanDynFirst = base + Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset;
constexpr U32 vxlanDynEnd = base + Nimbal::QosAclHelperV1::coppVxlanDynEntryMax;
constexpr U32 vxlanDefaultOffset = Nimbal::QosAclHelperV1::coppVxlanDefaultOffset;
constexpr U32 coppPolicerFlags = 0x84;
constexpr U32 classCpuPort = 2;

std::string qualText(std::optional<Shim::Qualifier> const& q) {
   if (!q) {
      return "none";
   }
   std::ostringstream os;
   os << std::hex << "0x" << q->data << "/0x" << q->mask;
   return os.str();
}

// How one CoPP entry must stand on the chip.
struct ExpectedEntry {
   int unit = 0;
   U32 id = 0;
   int group = 0;
   int priority = 0;
   Shim::Qualifier inPort;
   Shim::Qualifier cpuQueue;
   Shim::Qualifier innerVlan;
   U32 policer = 0;
   U32 rate = 0;
   U32 burst = 0;
};

// What is wrong with an entry, or nothing.
std::string entryFault(Shim::SimChip const& chip, ExpectedEntry const& x) {
   std::string const where =
       "entry " + std::to_string(x.id) + " of unit " + std::to_string(x.unit) + ": ";
   Shim::FieldEntry const* e = chip.entry(x.unit, static_cast<int>(x.id));
   if (!e) {
      return where + "not on the chip";
   }
   if (e->group != x.group) {
      return where + "in group " + std::to_string(e->group) + ", not " + std::to_string(x.group);
   }
   if (!e->installed) {
      return where + "not installed";
   }
   struct Qual {
      Shim::QualKind kind;
      char const* name;
      Shim::Qualifier expected;
   };
   for (Qual const& q : {Qual{Shim::QualKind::InPort, "InPort", x.inPort},
                         Qual{Shim::QualKind::CpuQueue, "CpuQueue", x.cpuQueue},
                         Qual{Shim::QualKind::InnerVlanId, "InnerVlanId", x.innerVlan},
                         Qual{Shim::QualKind::InterfaceClassPort, "InterfaceClassPort",
                              Shim::Qualifier{classCpuPort, classCpuPort}}}) {
      std::optional<Shim::Qualifier> const hw = e->hw.qualifier(q.kind);
      if (hw != q.expected || e->sw.qualifier(q.kind) != hw) {
         return where + q.name + " is " + qualText(hw) + " in hardware and " +
                qualText(e->sw.qualifier(q.kind)) + " in software, not " + qualText(q.expected);
      }
   }
   std::optional<Shim::ActionParams> const drop = e->hw.action(Shim::bcmFieldActionRpDrop);
   if (!drop || *drop != Shim::ActionParams{0, 0}) {
      return where + "no red-drop action (0, 0) in hardware";
   }
   if (e->hw.priority != x.priority) {
      return where + "priority " + std::to_string(e->hw.priority) + ", not " +
             std::to_string(x.priority);
   }
   int const policer = static_cast<int>(x.policer);
   if (e->hw.policer[0] != policer || e->hw.policer[1] != 0 || e->sw.policer != e->hw.policer) {
      return where + "meter " + std::to_string(e->hw.policer[0]) + " in hardware and " +
             std::to_string(e->sw.policer[0]) + " in software, the record says " +
             std::to_string(x.policer);
   }
   if (e->metersHeld != 1) {
      return where + "holds " + std::to_string(e->metersHeld) + " meters of its group, not 1";
   }
   Shim::Policer const* p = chip.policer(x.unit, policer);
   if (!p) {
      return where + "meter " + std::to_string(x.policer) + " does not exist";
   }
   Shim::bcm_policer_config_s const& c = p->config;
   if (c.ckbits_sec() != x.rate || c.ckbits_burst() != x.burst || c.flags() != coppPolicerFlags ||
       c.mode() != Shim::bcmPolicerModeCommitted || c.pkbits_sec() != 0 || c.pkbits_burst() != 0) {
      return where + "meter " + std::to_string(x.policer) + " is " + c.text() + ", configured " +
             std::to_string(x.rate) + " pps burst " + std::to_string(x.burst);
   }
   return "";
}

}  // namespace

void HistoryChecks::kernelConfiguration() {
   auto const& actual = agent_.sw().kernelCoppConfig()->coppInfoCol();
   for (auto const& [key, info] : model_.kernel) {
      std::optional<Oskel::CoppInfo> const a = actual.value(key);
      if (!a || !(*a == info)) {
         std::ostringstream os;
         os << keyText(key) << ": the agent holds ";
         if (a) {
            os << *a;
         } else {
            os << "nothing";
         }
         os << ", expected " << info;
         fail("kernel CoPP configuration", os.str());
      }
   }
   for (auto const& [key, info] : actual) {
      if (!model_.kernel.count(key)) {
         std::ostringstream os;
         os << keyText(key) << ": the agent holds " << info << ", expected nothing";
         fail("kernel CoPP configuration", os.str());
      }
   }
}

void HistoryChecks::kernelReactor() {
   auto const& programmed = agent_.kernelCopp().programmed();
   auto const& failed = agent_.kernelCopp().failed();
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
   for (Key const& key : programmed) {
      if (!helper->kernelDynamicCoppDataHas(key)) {
         fail("kernel CoPP reactor", keyText(key) +
                                         " is programmed for the agent, the helper has "
                                         "no record");
      }
      if (failed.count(key)) {
         fail("kernel CoPP reactor", keyText(key) + " is both programmed and waiting");
      }
   }
   for (auto const& [key, record] : helper->kernelDynamicCoppDataCol()) {
      if (!programmed.count(key)) {
         fail("kernel CoPP reactor",
              keyText(key) + " has a record that the agent does not know as programmed");
      }
   }
   for (auto const& [key, info] : model_.kernel) {
      if (!programmed.count(key) && !failed.count(key)) {
         fail("kernel CoPP reactor", keyText(key) +
                                         " is configured but neither programmed nor "
                                         "waiting");
      }
   }
   for (Key const& key : failed) {
      if (!model_.kernel.count(key)) {
         fail("kernel CoPP reactor", keyText(key) + " waits but is not configured");
      }
   }
}

void HistoryChecks::kernelEntries() {
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
   int const priority = agent_.sw().efpCoppEntryMgr()->coppPriority();
   for (auto const& [key, record] : helper->kernelDynamicCoppDataCol()) {
      auto const info = model_.kernel.find(key);
      if (info == model_.kernel.end()) {
         fail("kernel entry", keyText(key) + " has a record but is not configured");
         continue;
      }
      ExpectedEntry x;
      x.unit = model_.unitOfModule(key.modId());
      x.id = record->entry();
      x.group = efpCoppGroup;
      x.priority = priority;
      x.inPort = {key.port(), 0xFFFFFFFF};
      x.cpuQueue = {key.queue(), 0x3F};
      x.innerVlan = {0, 0};
      x.policer = record->policerId();
      x.rate = info->second.rateInPps();
      x.burst = info->second.burstPkts();
      auto const t = model_.tampered.find(key);
      if (t != model_.tampered.end()) {
         x.rate = t->second.cir;
         x.burst = t->second.bc;
      }
      if (std::string const f = entryFault(agent_.sw().chip(), x); !f.empty()) {
         fail("kernel entry", keyText(key) + ": " + f);
      }
   }
}

void HistoryChecks::vxlanEntries() {
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
   int const priority = agent_.sw().efpCoppDefAndVxlanEntryMgr()->entryPriority();
   bool const wanted = model_.sw().vxlanWorkaround && model_.vxlanEnabled;
   if (!wanted &&
       (helper->kernelDynamicCoppVxlanData() || helper->portDefaultCoppPolicerVxlanHwData())) {
      fail("VXLAN entries follow VXLAN state",
           std::to_string(helper->kernelDynamicCoppVxlanData()) + " source-port and " +
               std::to_string(helper->portDefaultCoppPolicerVxlanHwData()) +
               " default VXLAN records while VXLAN entries are not wanted");
   }
   for (auto const& [key, record] : helper->kernelDynamicCoppVxlanDataCol()) {
      if (!helper->kernelDynamicCoppDataHas(key)) {
         fail("VXLAN records have kernel records", keyText(key) + " has a VXLAN record only");
      }
      auto const info = model_.kernel.find(key);
      if (info == model_.kernel.end()) {
         fail("VXLAN source-port entry", keyText(key) + " has a record but is not configured");
         continue;
      }
      ExpectedEntry x;
      x.unit = model_.unitOfModule(key.modId());
      x.id = record->entry();
      x.group = efpDefaultGroup;
      x.priority = priority;
      x.inPort = {0, 0};
      x.cpuQueue = {key.queue(), 0x3F};
      x.innerVlan = {key.port(), 0xFFF};
      x.policer = record->policerId();
      x.rate = info->second.rateInPps();
      x.burst = info->second.burstPkts();
      if (std::string const f = entryFault(agent_.sw().chip(), x); !f.empty()) {
         fail("VXLAN source-port entry", keyText(key) + ": " + f);
      }
   }
}

void HistoryChecks::vxlanPool() {
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
   std::set<U32> recorded;
   for (auto const& [key, record] : helper->kernelDynamicCoppVxlanDataCol()) {
      if (!recorded.insert(record->entry()).second) {
         fail("VXLAN entry pool",
              "entry " + std::to_string(record->entry()) + " is recorded for two keys");
      }
   }
   std::set<U32> inUse;
   for (auto const& [entry, used] : helper->coppVxlanDynEntryInUseCol()) {
      if (entry < vxlanDynFirst || entry >= vxlanDynEnd || !used) {
         fail("VXLAN entry pool", "entry " + std::to_string(entry) + " = " +
                                      (used ? "true" : "false") + " outside [" +
                                      std::to_string(vxlanDynFirst) + ", " +
                                      std::to_string(vxlanDynEnd) + ") or not in use");
      }
      inUse.insert(entry);
   }
   if (inUse != recorded) {
      fail("VXLAN entry pool", std::to_string(inUse.size()) + " entries in use, " +
                                   std::to_string(recorded.size()) +
                                   " held by source-port records, and they differ");
   }
}

void HistoryChecks::defaultPolicers() {
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
   int const priority = agent_.sw().efpCoppDefAndVxlanEntryMgr()->entryPriority();
   for (ModelInterface const& intf : model_.interfaces()) {
      Orvik::IntfId const id(intf.name);
      std::optional<Nimbal::NimbalQosPolicerHwData> const hw =
          helper->portDefaultCoppPolicerHwDataCol().value(id);
      std::optional<Nimbal::NimbalQosPolicerHwData> const vxlanHw =
          helper->portDefaultCoppPolicerVxlanHwDataCol().value(id);
      if (!HistoryModel::hasDefaultEntry(intf)) {
         if (hw || vxlanHw) {
            fail("per-port default policer",
                 intf.name + " on port " + std::to_string(intf.port) + " has a default record");
         }
         continue;
      }
      U32 const rate = model_.expectedDefaultRate(intf);
      U32 const burst = rate * 100 / 1000;
      ExpectedEntry x;
      x.unit = intf.unit;
      x.id = base + intf.port;
      x.group = efpDefaultGroup;
      x.priority = priority;
      x.inPort = {intf.port, 0xFFFFFFFF};
      x.cpuQueue = {0, model_.recirc.count(intf.name) ? 0x3Fu : 0u};
      x.innerVlan = {0, 0};
      x.rate = rate;
      x.burst = burst;
      if (!hw) {
         fail("per-port default policer", intf.name + " has no default record");
      } else {
         x.policer = hw->policerId();
         if (hw->policerRate() != rate || hw->policerBurst() != burst || hw->entryId() != x.id) {
            fail("per-port default policer",
                 intf.name + ": record " + std::to_string(hw->policerRate()) + " pps burst " +
                     std::to_string(hw->policerBurst()) + " entry " +
                     std::to_string(hw->entryId()) + ", expected " + std::to_string(rate) +
                     " pps burst " + std::to_string(burst) + " entry " + std::to_string(x.id));
         }
         if (std::string const f = entryFault(agent_.sw().chip(), x); !f.empty()) {
            fail("per-port default policer", intf.name + ": " + f);
         }
      }
      if (vxlanHw) {
         x.id = base + vxlanDefaultOffset + intf.port;
         x.inPort = {0, 0};
         x.cpuQueue = {0, 0};
         x.innerVlan = {intf.port, 0xFFF};
         x.policer = vxlanHw->policerId();
         if (vxlanHw->policerRate() != rate || vxlanHw->policerBurst() != burst ||
             vxlanHw->entryId() != x.id) {
            fail("VXLAN default policer",
                 intf.name + ": record " + std::to_string(vxlanHw->policerRate()) + " pps burst " +
                     std::to_string(vxlanHw->policerBurst()) + " entry " +
                     std::to_string(vxlanHw->entryId()) + ", expected " + std::to_string(rate) +
                     " pps burst " + std::to_string(burst) + " entry " + std::to_string(x.id));
         }
         if (std::string const f = entryFault(agent_.sw().chip(), x); !f.empty()) {
            fail("VXLAN default policer", intf.name + ": " + f);
         }
      }
   }
}

void HistoryChecks::vxlanRetry(Observation const& pre, Observation const& post) {
   if (!model_.sw().vxlanWorkaround || !model_.vxlanEnabled) {
      return;
   }
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = agent_.sw().helper();
   std::vector<std::string> missingDefaults;
   for (auto const& [intf, hw] : helper->portDefaultCoppPolicerHwDataCol()) {
      if (!helper->portDefaultCoppPolicerVxlanHwDataHas(intf)) {
         missingDefaults.push_back(intf.stringValue());
      }
   }
   std::vector<Key> missingKeys;
   for (auto const& [key, record] : helper->kernelDynamicCoppDataCol()) {
      if (!helper->kernelDynamicCoppVxlanDataHas(key)) {
         missingKeys.push_back(key);
      }
   }
   if (missingDefaults.empty() && missingKeys.empty()) {
      return;
   }
   ++coverage().missingVxlanSteps;
   std::string const missing = std::to_string(missingDefaults.size()) + " VXLAN default and " +
                               std::to_string(missingKeys.size()) + " source-port entries missing";
   Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = helper->qosIntfCoppSm();
   if (!sm || !sm->vxlanEntryExhausted() || !std::isfinite(post.vxlanRetryAt)) {
      fail("missing VXLAN entries are retried",
           missing + " but the state machine waits for no retry");
      return;
   }
   // Right after a retry, whatever is still missing found its pool full.
   if (!(std::isfinite(pre.vxlanRetryAt) && pre.vxlanRetryAt <= post.now)) {
      return;
   }
   Shim::SimChip const& chip = agent_.sw().chip();
   auto metersFull = [&chip](int unit) {
      Shim::FieldGroup const* g = chip.group(unit, efpDefaultGroup);
      return g && g->metersInUse >= g->meterPoolSize;
   };
   bool anyFull = false;
   for (U16 unit : model_.units()) {
      anyFull = anyFull || metersFull(unit);
   }
   bool const poolFull =
       helper->coppVxlanDynEntryInUse() >= Nimbal::QosAclHelperV1::coppVxlanDynEntryMax -
                                               Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset;
   if (!missingDefaults.empty()) {
      if (!anyFull) {
         fail("missing VXLAN entries are retried", missing + " after a retry, the first " +
                                                       missingDefaults.front() +
                                                       ", with meters left in every unit");
      }
      return;
   }
   for (Key const& key : missingKeys) {
      if (!poolFull && !metersFull(model_.unitOfModule(key.modId()))) {
         fail("missing VXLAN entries are retried",
              missing + " after a retry, " + keyText(key) + " with pool entries and meters left");
         return;
      }
   }
}

void HistoryChecks::nothingWithoutRecord() {
   NimbalHost::Switch& sw = agent_.sw();
   Shim::SimChip const& chip = sw.chip();
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw.helper();
   struct UnitRecords {
      std::set<int> copp;      // entries of the egress CoPP group
      std::set<int> defaults;  // entries of the default-and-VXLAN group
      std::set<int> policers;
      std::size_t records = 0;
   };
   std::map<int, UnitRecords> units;
   for (U16 unit : model_.units()) {
      units[unit];
   }
   auto note = [&](int unit, std::set<int> UnitRecords::*entries, U32 entry, U32 policer,
                   std::string const& what) {
      UnitRecords& u = units[unit];
      if (!(u.*entries).insert(static_cast<int>(entry)).second) {
         fail("no entry or meter without a record",
              what + ": entry " + std::to_string(entry) + " is recorded twice");
      }
      if (!u.policers.insert(static_cast<int>(policer)).second) {
         fail("no entry or meter without a record",
              what + ": meter " + std::to_string(policer) + " is recorded twice");
      }
      ++u.records;
   };
   for (auto const& [key, r] : helper->kernelDynamicCoppDataCol()) {
      note(model_.unitOfModule(key.modId()), &UnitRecords::copp, r->entry(), r->policerId(),
           keyText(key));
   }
   for (auto const& [key, r] : helper->kernelDynamicCoppVxlanDataCol()) {
      note(model_.unitOfModule(key.modId()), &UnitRecords::defaults, r->entry(), r->policerId(),
           keyText(key) + " (VXLAN)");
   }
   for (auto const* col : {&helper->portDefaultCoppPolicerHwDataCol(),
                           &helper->portDefaultCoppPolicerVxlanHwDataCol()}) {
      for (auto const& [intf, hw] : *col) {
         ModelInterface const* i = model_.interface(intf.stringValue());
         if (!i) {
            fail("no entry or meter without a record",
                 "a default record of unknown interface " + intf.stringValue());
            continue;
         }
         note(i->unit, &UnitRecords::defaults, hw.entryId(), hw.policerId(), intf.stringValue());
      }
   }
   std::size_t coppEntries = 0;
   std::size_t defaultEntries = 0;
   for (auto const& [unit, r] : units) {
      std::string const u = "unit " + std::to_string(unit) + ": ";
      std::vector<int> const copp = chip.entries(unit, efpCoppGroup);
      std::vector<int> const defaults = chip.entries(unit, efpDefaultGroup);
      coppEntries += copp.size();
      defaultEntries += defaults.size();
      auto compare = [&](std::vector<int> const& onChip, std::set<int> const& recorded,
                         char const* group) {
         std::set<int> const chipSet(onChip.begin(), onChip.end());
         for (int e : chipSet) {
            if (!recorded.count(e)) {
               fail("no entry or meter without a record",
                    u + group + " entry " + std::to_string(e) + " has no record");
            }
         }
         for (int e : recorded) {
            if (!chipSet.count(e)) {
               fail("no entry or meter without a record",
                    u + group + " entry " + std::to_string(e) + " is recorded but not on the chip");
            }
         }
      };
      compare(copp, r.copp, "egress CoPP");
      compare(defaults, r.defaults, "default-and-VXLAN");
      std::size_t const all = chip.entries(unit).size();
      if (all != copp.size() + defaults.size()) {
         fail("no entry or meter without a record",
              u + std::to_string(all - copp.size() - defaults.size()) +
                  " entries outside the two egress CoPP groups");
      }
      if (chip.policers(unit) != r.policers.size()) {
         fail("no entry or meter without a record",
              u + std::to_string(chip.policers(unit)) + " meters on the chip, " +
                  std::to_string(r.policers.size()) + " recorded");
      }
      for (auto [group, count] :
           {std::pair<int, std::size_t>{efpCoppGroup, r.copp.size()},
            std::pair<int, std::size_t>{efpDefaultGroup, r.defaults.size()}}) {
         Shim::FieldGroup const* g = chip.group(unit, group);
         U32 const entries = g ? g->entriesInUse : 0;
         U32 const meters = g ? g->metersInUse : 0;
         if (entries != count || meters != count) {
            fail("no entry or meter without a record",
                 u + "group " + std::to_string(group) + " counts " + std::to_string(entries) +
                     " entries and " + std::to_string(meters) + " meters in use, " +
                     std::to_string(count) + " recorded");
         }
      }
   }
   if (sw.efpCoppEntryMgr()->entryCount() != coppEntries ||
       sw.efpCoppDefAndVxlanEntryMgr()->entryCount() != defaultEntries) {
      fail("no entry or meter without a record",
           "the entry managers hold " + std::to_string(sw.efpCoppEntryMgr()->entryCount()) +
               " and " + std::to_string(sw.efpCoppDefAndVxlanEntryMgr()->entryCount()) +
               " entries, the chip " + std::to_string(coppEntries) + " and " +
               std::to_string(defaultEntries));
   }
   if (sw.tcamGroupManager()->returnErrorOnInstall()) {
      fail("no entry or meter without a record", "returnErrorOnInstall is left set");
   }
}

void HistoryChecks::waitingKeys(StepFacts const& facts) {
   if (!facts.clockMoved || model_.alwaysFalse) {
      return;
   }
   Shim::SimChip const& chip = agent_.sw().chip();
   for (Key const& key : agent_.kernelCopp().failed()) {
      int const unit = model_.unitOfModule(key.modId());
      Shim::FieldGroup const* g = chip.group(unit, efpCoppGroup);
      if (g && g->entriesInUse < g->entryPoolSize && g->metersInUse < g->meterPoolSize) {
         fail("waiting kernel keys", keyText(key) + " still waits after a retry with " +
                                         std::to_string(g->entryPoolSize - g->entriesInUse) +
                                         " entries and " +
                                         std::to_string(g->meterPoolSize - g->metersInUse) +
                                         " meters left in unit " + std::to_string(unit));
         return;
      }
   }
}

void HistoryChecks::cpuQueues() {
   Kiv::Ptr<Nimbal::MmuCpuQColl> const coll = agent_.sw().mmuSm()->cpuQColl();
   for (auto const& row : model_.sw().cpuQueues) {
      Kiv::Ptr<Nimbal::MmuCpuQ> const q = coll->cpuQ(row.id);
      if (!row.dynamic) {
         continue;
      }
      auto const hold = model_.dynamicHolds.find(row.id);
      U32 const users = hold == model_.dynamicHolds.end() ? 0 : hold->second.users;
      if (q->users() != users || (users && q->cmapName() != Kiv::Name(hold->second.cmapName))) {
         fail("CPU queues", "dynamic queue " + std::to_string(row.id) + " has " +
                                std::to_string(q->users()) + " users (" + q->cmapName() +
                                "), expected " + std::to_string(users) +
                                (users ? " (" + hold->second.cmapName + ")" : ""));
      }
   }
}

std::vector<Violation> HistoryChecks::afterTeardown() {
   violations_.clear();
   NimbalHost::Switch& sw = agent_.sw();
   Kiv::Ptr<Nimbal::QosAclHelperV1> const helper = sw.helper();
   std::size_t defaults = 0;
   for (ModelInterface const& intf : model_.interfaces()) {
      defaults += HistoryModel::hasDefaultEntry(intf) ? 1 : 0;
   }
   std::size_t coppEntries = 0;
   std::size_t defaultEntries = 0;
   std::size_t meters = 0;
   for (U16 unit : model_.units()) {
      coppEntries += sw.chip().entries(unit, efpCoppGroup).size();
      defaultEntries += sw.chip().entries(unit, efpDefaultGroup).size();
      meters += sw.chip().policers(unit);
   }
   if (coppEntries || defaultEntries != defaults || meters != defaults) {
      fail("teardown", std::to_string(coppEntries) + " egress CoPP entries, " +
                           std::to_string(defaultEntries) + " default-and-VXLAN entries and " +
                           std::to_string(meters) + " meters left, expected 0, " +
                           std::to_string(defaults) + " and " + std::to_string(defaults));
   }
   if (helper->kernelDynamicCoppData() || helper->kernelDynamicCoppVxlanData() ||
       helper->portDefaultCoppPolicerVxlanHwData() || helper->coppVxlanDynEntryInUse() ||
       helper->coppIntfPolicerData()) {
      fail("teardown",
           "records left: " + std::to_string(helper->kernelDynamicCoppData()) + " kernel, " +
               std::to_string(helper->kernelDynamicCoppVxlanData()) + " VXLAN, " +
               std::to_string(helper->portDefaultCoppPolicerVxlanHwData()) + " VXLAN default, " +
               std::to_string(helper->coppVxlanDynEntryInUse()) + " pool entries, " +
               std::to_string(helper->coppIntfPolicerData()) + " class policer interfaces");
   }
   for (auto const& [id, q] : sw.mmuSm()->cpuQColl()->cpuQCol()) {
      if (q->dynamic() && q->users() != 0) {
         fail("teardown",
              "dynamic CPU queue " + std::to_string(id) + " is still held by " + q->cmapName());
      }
   }
   Kiv::Ptr<Nimbal::QosIntfCoppSm> const sm = helper->qosIntfCoppSm();
   if (sm && sm->vxlanEntryExhausted()) {
      fail("teardown", "the state machine still waits for VXLAN entries");
   }
   defaultPolicers();
   nothingWithoutRecord();
   return violations_;
}

}  // namespace NimbalHistory
