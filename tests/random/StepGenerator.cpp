#include "random/StepGenerator.h"

#include <algorithm>
#include <map>
#include <set>

namespace NimbalHistory {

namespace step = NimbalHost::step;

namespace {

constexpr int efpCoppGroup = static_cast<int>(NimbalHost::Switch::efpCoppGroupId);
constexpr int efpDefaultGroup = static_cast<int>(NimbalHost::Switch::efpCoppDefAndVxlanGroupId);
// Pools grown back: more than any random switch uses.
constexpr U32 largePool = 4096;

template <class Action>
HistoryStep scenarioStep(int number, char const* name, Action action) {
   NimbalHost::ScenarioStep s;
   s.number = number;
   s.name = name;
   s.action = std::move(action);
   return HistoryStep{number, s};
}

std::vector<Nimbal::MmuCpuQRow> randomCpuQueues(Rng& rng,
                                                std::vector<std::string>& dynamicClasses) {
   std::vector<U32> ids;
   for (U32 id = 1; id < Nimbal::mmuCpuQueues; ++id) {
      ids.push_back(id);
   }
   // A random few queues are static, a few dynamic, the rest spare.
   for (std::size_t i = ids.size(); i > 1; --i) {
      std::swap(ids[i - 1], ids[rng.below(static_cast<U32>(i))]);
   }
   U32 const statics = rng.between(2, 12);
   U32 const dynamics = rng.between(1, 6);
   std::map<U32, Nimbal::MmuCpuQRow> rows;
   rows[0] = Nimbal::MmuCpuQRow{0, "CoppSystemDrop", 0, 0, {}, false};
   for (std::size_t i = 0; i < ids.size(); ++i) {
      U32 const id = ids[i];
      U32 const rate = rng.between(20, 5000);
      U32 const burst = rng.percent(80) ? rate / 10 : rng.between(0, 300);
      Nimbal::MmuCpuQRow row{id, "Queue" + std::to_string(id), rate, burst, {}, false};
      if (i < statics) {
         row.classes = {"copp-system-q" + std::to_string(id)};
      } else if (i < statics + dynamics) {
         row.name = "UserQueue" + std::to_string(id);
         row.dynamic = true;
      } else {
         row.name = "Spare" + std::to_string(id);
      }
      rows[id] = row;
   }
   std::vector<Nimbal::MmuCpuQRow> table;
   for (auto const& [id, row] : rows) {
      table.push_back(row);
   }
   // More classes than queues, so that the pool runs dry now and then.
   for (U32 k = 1; k <= dynamics + 2; ++k) {
      dynamicClasses.push_back("copp-user-" + std::to_string(k));
   }
   return table;
}

}  // namespace

RandomSwitch randomSwitch(Rng& rng) {
   RandomSwitch out;
   NimbalHost::ScenarioSwitch& sw = out.sw;
   U16 const mod0 = static_cast<U16>(rng.below(64));
   U16 const unit0 = static_cast<U16>(rng.below(4));
   sw.modules.push_back({mod0, unit0});
   if (rng.percent(30)) {
      U16 mod1 = static_cast<U16>(rng.below(64));
      while (mod1 == mod0) {
         mod1 = static_cast<U16>(rng.below(64));
      }
      // Now and then two modules share a unit.
      U16 const unit1 = rng.percent(25) ? unit0 : static_cast<U16>(unit0 + rng.between(1, 3));
      sw.modules.push_back({mod1, unit1});
   }

   // A big switch has more kernel keys than the VXLAN pool has entries.
   bool const big = rng.percent(5);
   U32 const count = big ? rng.between(13, 16) : rng.between(2, 10);
   std::set<std::pair<U16, U16>> taken;  // (unit, port)
   bool const withFabric = rng.percent(15);
   for (U32 i = 0; i < count; ++i) {
      NimbalHost::ScenarioModule const& m = rng.pick(sw.modules);
      U16 port = 0;
      do {
         // Ports from 256 up have no per-port default entry.
         port = rng.percent(8) ? static_cast<U16>(rng.between(256, 1023))
                               : static_cast<U16>(rng.between(1, big ? 64 : 40));
      } while (!taken.insert({m.unit, port}).second);
      bool const fabric = withFabric && i + 1 == count;
      NimbalHost::ScenarioInterface const intf{
          fabric ? "Fabric1" : "Ethernet" + std::to_string(i + 1), m.modId, port};
      (fabric ? sw.fabricInterfaces : sw.interfaces).push_back(intf);
   }
   if (big || rng.percent(40)) {
      sw.cpuQueues = Nimbal::builtInCpuQTable();
      for (U32 k = 1; k <= 10; ++k) {
         out.dynamicClasses.push_back("copp-user-" + std::to_string(k));
      }
   } else {
      sw.cpuQueues = randomCpuQueues(rng, out.dynamicClasses);
   }
   std::vector<U32> const rates = {100, 300, 1000, 2000, 10000};
   sw.portDefaultCoppRate = rng.pick(rates);
   sw.vxlanWorkaround = rng.percent(65);
   if (rng.percent(15)) {
      // Small pools from the start.
      sw.resources.efpCoppEntries = rng.between(0, 60);
      sw.resources.efpCoppMeters = rng.between(0, 60);
   }
   return out;
}

HistoryStep StepGenerator::next(int number) {
   using Make = std::optional<HistoryStep> (StepGenerator::*)(int);
   struct Kind {
      Make make;
      U32 weight;
   };
   std::vector<Kind> const kinds = {
       {&StepGenerator::police, 16},
       {&StepGenerator::unpolice, 8},
       {&StepGenerator::vxlan, 3},
       {&StepGenerator::recirc, 3},
       {&StepGenerator::resources, 4},
       {&StepGenerator::advance, 8},
       {&StepGenerator::traffic, 10},
       {&StepGenerator::show, 3},
       {&StepGenerator::clear, 3},
       {&StepGenerator::poll, 4},
       {&StepGenerator::verify, 5},
       {&StepGenerator::tamper, 3},
       {&StepGenerator::set, model_.alwaysFalse ? 12u : 1u},
       {&StepGenerator::withdrawKey, 3},
       {&StepGenerator::publishKey, 2},
   };
   std::vector<U32> weights;
   for (Kind const& k : kinds) {
      weights.push_back(k.weight);
   }
   // A kind that has nothing to work on gives way to another draw.
   for (;;) {
      if (std::optional<HistoryStep> s = (this->*kinds[rng_.weighted(weights)].make)(number)) {
         return *s;
      }
   }
}

std::vector<ModelInterface const*> StepGenerator::defaultEntryInterfaces() const {
   std::vector<ModelInterface const*> out;
   for (ModelInterface const& i : model_.interfaces()) {
      if (HistoryModel::hasDefaultEntry(i)) {
         out.push_back(&i);
      }
   }
   return out;
}

U32 StepGenerator::rate() {
   switch (rng_.below(5)) {
      case 0:
         return rng_.between(1, 100);
      case 1:
         return rng_.between(5000, 200000);
      default:
         return rng_.between(100, 5000);
   }
}

std::optional<HistoryStep> StepGenerator::police(int number) {
   std::vector<ModelInterface const*> const intfs = defaultEntryInterfaces();
   if (intfs.empty()) {
      return std::nullopt;
   }
   step::Police p;
   if (!model_.policed.empty() && rng_.percent(35)) {
      // A rate change.
      auto it = model_.policed.begin();
      std::advance(it, rng_.below(static_cast<U32>(model_.policed.size())));
      p.interface = it->first.first;
      p.cmapName = it->first.second;
   } else {
      ModelInterface const* intf = rng_.pick(intfs);
      bool const isStatic = rng_.percent(55) || model_.dynamicClasses().empty();
      p.interface = intf->name;
      p.cmapName =
          isStatic ? rng_.pick(model_.staticClasses()) : rng_.pick(model_.dynamicClasses());
   }
   p.cir = rate();
   p.bc = rng_.percent(15) ? rng_.between(0, 3) : rng_.between(1, std::max<U32>(1, p.cir / 5));
   return scenarioStep(number, "police", p);
}

std::optional<HistoryStep> StepGenerator::unpolice(int number) {
   if (model_.policed.empty()) {
      return std::nullopt;
   }
   auto it = model_.policed.begin();
   std::advance(it, rng_.below(static_cast<U32>(model_.policed.size())));
   return scenarioStep(number, "unpolice", step::Unpolice{it->first.first, it->first.second});
}

std::optional<HistoryStep> StepGenerator::vxlan(int number) {
   return scenarioStep(number, "vxlan",
                       step::Vxlan{rng_.percent(85) ? !model_.vxlanEnabled : model_.vxlanEnabled});
}

std::optional<HistoryStep> StepGenerator::recirc(int number) {
   std::vector<ModelInterface const*> const intfs = defaultEntryInterfaces();
   if (intfs.empty()) {
      return std::nullopt;
   }
   ModelInterface const* intf = rng_.pick(intfs);
   bool const on = model_.recirc.count(intf->name) != 0;
   return scenarioStep(number, "recirc", step::Recirc{intf->name, rng_.percent(80) ? !on : on});
}

std::optional<HistoryStep> StepGenerator::resources(int number) {
   Shim::SimChip const& chip = agent_.sw().chip();
   U32 entries = 0;
   U32 meters = 0;
   U32 defaultMeters = 0;
   for (U16 unit : model_.units()) {
      entries = std::max(entries, chip.entriesInUse(unit, efpCoppGroup));
      meters = std::max(meters, chip.metersInUse(unit, efpCoppGroup));
      defaultMeters = std::max(defaultMeters, chip.metersInUse(unit, efpDefaultGroup));
   }
   auto size = [this](U32 inUse) {
      switch (rng_.below(4)) {
         case 0:
            return largePool;
         case 1:
            return inUse + rng_.between(0, 20);
         default:
            return inUse > 3 ? rng_.between(inUse - 3, inUse + 2) : rng_.between(0, inUse + 2);
      }
   };
   step::Resources r;
   switch (rng_.below(4)) {
      case 0:
         r.sizes.efpCoppEntries = size(entries);
         break;
      case 1:
         r.sizes.efpCoppMeters = size(meters);
         break;
      case 2:
         // Never below what the group holds: a default meter swap must find its meter.
         r.sizes.efpDefaultMeters =
             rng_.percent(40) ? largePool : defaultMeters + rng_.between(0, 3);
         break;
      default:
         r.sizes.efpCoppEntries = largePool;
         r.sizes.efpCoppMeters = largePool;
         r.sizes.efpDefaultMeters = largePool;
         break;
   }
   return scenarioStep(number, "resources", r);
}

std::optional<HistoryStep> StepGenerator::advance(int number) {
   double const seconds = rng_.percent(70) ? rng_.between(1, 30) / 10.0 : rng_.between(60, 130);
   return scenarioStep(number, "advance", step::Advance{seconds});
}

std::optional<HistoryStep> StepGenerator::traffic(int number) {
   step::Traffic t;
   t.interface = rng_.pick(model_.interfaces()).name;
   if (rng_.percent(30)) {
      std::vector<std::string> classes;
      for (std::string const& c : model_.staticClasses()) {
         classes.push_back(c);
      }
      for (auto const& [id, c] : model_.policed) {
         if (c.queue) {
            classes.push_back(id.second);
         }
      }
      t.cmapName = rng_.pick(classes);
   } else if (rng_.percent(85)) {
      std::vector<U32> queues;
      for (U32 q = 1; q < Nimbal::mmuCpuQueues; ++q) {
         if (model_.queueAllocated(q)) {
            queues.push_back(q);
         }
      }
      t.queue = queues.empty() ? 1 : rng_.pick(queues);
   } else {
      t.queue = rng_.below(Nimbal::mmuCpuQueues);
   }
   std::vector<double> const seconds = {0.5, 1, 2};
   t.seconds = rng_.pick(seconds);
   t.pps = rng_.between(1, 20) * (t.seconds == 0.5 ? 2 : 1);
   if (rng_.percent(20)) {
      // A flood, in a short burst, so that meters run dry.
      t.seconds = 0.5;
      t.pps = rng_.between(50, 200) * 2;
   }
   t.vxlan = (!model_.sw().vxlanWorkaround || !model_.recirc.empty()) && rng_.percent(30);
   return scenarioStep(number, "traffic", t);
}

std::optional<HistoryStep> StepGenerator::show(int number) {
   return scenarioStep(number, "show", step::Show{rng_.percent(50)});
}

std::optional<HistoryStep> StepGenerator::clear(int number) {
   step::Clear c;
   U32 const kind = rng_.below(10);
   if (kind >= 3 && kind < 6) {
      c.interface = rng_.pick(model_.interfaces()).name;
   } else if (kind >= 6 && kind < 8) {
      c.queue = rng_.below(Nimbal::mmuCpuQueues);
   } else if (kind >= 8) {
      c.interface = rng_.pick(model_.interfaces()).name;
      c.queue = rng_.below(Nimbal::mmuCpuQueues);
   }
   return scenarioStep(number, "clear", c);
}

std::optional<HistoryStep> StepGenerator::poll(int number) {
   if (model_.policed.empty()) {
      return std::nullopt;
   }
   auto it = model_.policed.begin();
   std::advance(it, rng_.below(static_cast<U32>(model_.policed.size())));
   return scenarioStep(number, "poll", step::Poll{it->first.first, it->first.second});
}

std::optional<HistoryStep> StepGenerator::verify(int number) {
   for (ModelInterface const& i : model_.interfaces()) {
      if (i.fabric && HistoryModel::hasDefaultEntry(i)) {
         return std::nullopt;
      }
   }
   return scenarioStep(number, "verify", step::Verify{});
}

std::optional<HistoryStep> StepGenerator::tamper(int number) {
   step::Tamper t;
   std::vector<Key> const keys = agent_.sw().helper()->kernelDynamicCoppDataCol().keys();
   if (!keys.empty() && rng_.percent(80)) {
      // The key order of a hash collection is not the generator's to rely on.
      std::vector<Key> sorted = keys;
      std::sort(sorted.begin(), sorted.end());
      Key const key = rng_.pick(sorted);
      t.interface = model_.interfaceOf(key)->name;
      t.queue = key.queue();
   } else {
      t.interface = rng_.pick(model_.interfaces()).name;
      t.queue = rng_.below(Nimbal::mmuCpuQueues);
   }
   t.cir = rate();
   t.bc = rng_.between(0, 500);
   return scenarioStep(number, "tamper", t);
}

std::optional<HistoryStep> StepGenerator::set(int number) {
   step::Set s;
   s.attributes.emplace_back("createCoppPolicerAlwaysFalse", model_.alwaysFalse ? "false" : "true");
   return scenarioStep(number, "set", s);
}

std::optional<HistoryStep> StepGenerator::withdrawKey(int number) {
   // A key that a class polices stays: the class's policer is verified against it.
   std::set<Key> policedKeys;
   for (auto const& [id, c] : model_.policed) {
      if (c.queue) {
         policedKeys.insert(model_.keyOf(*model_.interface(id.first), *c.queue));
      }
   }
   std::vector<Key> keys;
   for (auto const& [key, info] : model_.kernel) {
      if (!policedKeys.count(key)) {
         keys.push_back(key);
      }
   }
   if (keys.empty()) {
      return std::nullopt;
   }
   return HistoryStep{number, KernelKeyStep{rng_.pick(keys), std::nullopt}};
}

std::optional<HistoryStep> StepGenerator::publishKey(int number) {
   std::vector<Key> keys;
   for (ModelInterface const& intf : model_.interfaces()) {
      for (U32 q = 1; q < Nimbal::mmuCpuQueues; ++q) {
         Key const key = model_.keyOf(intf, q);
         if (model_.queueAllocated(q) && !model_.kernel.count(key)) {
            keys.push_back(key);
         }
      }
   }
   if (keys.empty()) {
      return std::nullopt;
   }
   Key const key = rng_.pick(keys);
   return HistoryStep{number, KernelKeyStep{key, model_.queueDefault(key.queue())}};
}

std::vector<HistoryStep> StepGenerator::teardown(int firstNumber) const {
   std::vector<HistoryStep> out;
   int number = firstNumber;
   if (model_.alwaysFalse) {
      step::Set s;
      s.attributes.emplace_back("createCoppPolicerAlwaysFalse", "false");
      out.push_back(scenarioStep(number++, "set", s));
   }
   for (auto const& [id, c] : model_.policed) {
      out.push_back(scenarioStep(number++, "unpolice", step::Unpolice{id.first, id.second}));
   }
   // Keys published by this point: the unpolice steps publish nothing new.
   for (auto const& [key, info] : model_.kernel) {
      out.push_back(HistoryStep{number++, KernelKeyStep{key, std::nullopt}});
   }
   if (model_.vxlanEnabled) {
      out.push_back(scenarioStep(number++, "vxlan", step::Vxlan{false}));
   }
   for (std::string const& intf : model_.recirc) {
      out.push_back(scenarioStep(number++, "recirc", step::Recirc{intf, false}));
   }
   out.push_back(scenarioStep(number++, "advance", step::Advance{61}));
   return out;
}

}  // namespace NimbalHistory
