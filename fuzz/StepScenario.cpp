#include "fuzz/StepScenario.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Nimbal/MmuCpuQ.h"
#include "fuzz/ByteReader.h"
#include "fuzz/CoppResourceModel.h"
#include "host/scenario/Scenario.h"

namespace NimbalFuzz {

namespace {

using Json = nlohmann::ordered_json;

// Ports below 256 only: a class policer on a port without a per-port default entry ends the
// agent by design.
std::vector<int> const ports = {1, 2, 3, 4, 5, 8, 31, 32, 63, 64, 100, 127, 128, 200, 254, 255};
// Interface and class names, some with printf directives that must come out literally.
std::vector<std::string> const interfaceNames = {"Ethernet", "Et%s", "Port%n%d-", "Ethernet1/"};
std::vector<std::string> const dynamicClasses = {
    "copp-user-a", "copp-user-b", "copp-user-c", "copp-user-d", "copp-user-e",
    "copp-user-f", "copp-user-g", "copp-user-h", "copp-user-i", "copp-user-%s%n%%"};
// Rates and bursts, with the edges of U32.
std::vector<long long> const rates = {0,    1,    2,      10,         100,        300,
                                      1000, 5000, 100000, 2147483647, 4294967295, 42949673};
// Class rates stop at the highest one a scenario may police: twice it must fit in 32 bits.
std::vector<long long> const classRates = {0,    1,    2,      10,         100,        300,
                                           1000, 5000, 100000, 2147483646, 2147483647, 42949673};
std::vector<int> const pool = {0, 1, 2, 3, 5, 10, 20, 50, 100, 1000};
std::vector<double> const advances = {0, 0.001, 0.25, 1, 30, 59.999, 60, 61, 120, 3600};
std::vector<int> const pps = {1, 10, 100, 500, 1000, 5000, 100000};
std::vector<double> const seconds = {0.001, 0.01, 0.1, 0.5, 1, 2, 10};
std::vector<int> const burstSizes = {1, 2, 5, 50, 1000};

struct Interface {
   std::string name;
   int modId = 0;
   int port = 0;
};

class Decoder {
  public:
   Decoder(std::uint8_t const* data, std::size_t size) : in_(data, size) {}

   std::string text() {
      Json doc;
      doc["description"] = "decoded from fuzzer input";
      doc["switch"] = switchConfig();
      Json steps = Json::array();
      while (!in_.done() && steps.size() < maxSteps) {
         steps.push_back(step());
      }
      doc["steps"] = steps;
      withoutStops(doc);
      return doc.dump();
   }

  private:
   // A step that ends the agent by design, such as a per-port default policer change that finds
   // no meter after a pool was shrunk below what is in use, ends the scenario before it where
   // the hardware model foresees it (later steps may name what it made). What the model does
   // not foresee still ends the run: then the model or the library is wrong.
   static void withoutStops(Json& doc) {
      NimbalHost::Scenario const scenario = NimbalHost::scenarioFromText(doc.dump(), "fuzz input");
      NimbalHost::CoppResourceModel model(scenario);
      for (NimbalHost::ScenarioStep const& s : scenario.steps) {
         model.play(s);
         if (model.stop()) {
            break;
         }
      }
      Json& steps = doc["steps"];
      if (model.stop() && model.stopStep() >= 1 &&
          model.stopStep() <= static_cast<int>(steps.size())) {
         steps.erase(steps.begin() + (model.stopStep() - 1), steps.end());
      }
   }

   Json switchConfig() {
      Json sw;
      std::uint8_t const flags = in_.byte();
      bool const twoModules = flags & 1;
      // A second module on its own unit or sharing the first one's.
      int const units[2] = {0, (flags & 2) ? 1 : 0};
      sw["modules"] = Json::array({{{"modId", 0}, {"unit", units[0]}}});
      if (twoModules) {
         sw["modules"].push_back({{"modId", 1}, {"unit", units[1]}});
      }
      vxlanWorkaround_ = flags & 4;
      sw["vxlanWorkaround"] = vxlanWorkaround_;

      std::string const& prefix = in_.pick(interfaceNames);
      std::size_t const count = 1 + in_.below(maxInterfaces);
      std::set<std::pair<int, int>> taken;
      for (std::size_t i = 0; i < count; ++i) {
         std::uint8_t const b = in_.byte();
         Interface intf;
         intf.name = prefix + std::to_string(i + 1);
         intf.modId = twoModules && (b & 0x80) ? 1 : 0;
         std::size_t p = b % ports.size();
         // Each port of a unit carries one interface.
         int const unit = units[intf.modId];
         while (taken.count({unit, ports[p]})) {
            p = (p + 1) % ports.size();
         }
         intf.port = ports[p];
         taken.insert({unit, intf.port});
         interfaces_.push_back(intf);
      }
      Json list = Json::array();
      for (Interface const& intf : interfaces_) {
         list.push_back({{"name", intf.name}, {"modId", intf.modId}, {"port", intf.port}});
      }
      sw["interfaces"] = list;

      if (flags & 8) {
         sw["cpuQueues"] = cpuQueues();
      } else {
         for (auto const& row : Nimbal::builtInCpuQTable()) {
            staticClasses_.insert(staticClasses_.end(), row.classes.begin(), row.classes.end());
         }
      }
      sw["portDefaultCoppRate"] = in_.pick(rates);
      if (flags & 16) {
         Json res = Json::object();
         if (in_.flag()) {
            res["efpCoppEntries"] = in_.pick(pool);
         }
         if (in_.flag()) {
            res["efpCoppMeters"] = in_.pick(pool);
         }
         // Every port keeps its per-port default entry; VXLAN entries may run short.
         if (in_.flag()) {
            res["efpDefaultMeters"] = static_cast<int>(interfaces_.size()) + in_.pick(pool);
         }
         sw["resources"] = res;
      }
      return sw;
   }

   // The built-in table cut down: the first static queues keep their classes, a few dynamic
   // queues follow, the rest are spare; the classes cut off have no static queue any more.
   Json cpuQueues() {
      auto const& builtIn = Nimbal::builtInCpuQTable();
      std::size_t const statics = 1 + in_.below(39);
      std::size_t const dynamics = 1 + in_.below(8);
      Json rows = Json::array();
      for (std::size_t id = 0; id < builtIn.size(); ++id) {
         auto const& row = builtIn[id];
         Json r = {{"id", row.id}, {"name", row.name}, {"rate", row.rate}, {"burst", row.burst}};
         if (id >= 1 && id <= statics) {
            r["classes"] = row.classes;
            staticClasses_.insert(staticClasses_.end(), row.classes.begin(), row.classes.end());
         } else if (id > statics && id <= statics + dynamics) {
            r["name"] = "CoppUserDefined" + std::to_string(id - statics);
            r["dynamic"] = true;
         } else if (id > 0) {
            r["name"] = "CoppSpare" + std::to_string(id);
            r["rate"] = in_.pick(rates);
         }
         rows.push_back(r);
      }
      return rows;
   }

   Interface const& interface() { return in_.pick(interfaces_); }

   std::string cmapName() {
      if (!staticClasses_.empty() && in_.flag()) {
         return in_.pick(staticClasses_);
      }
      // The classes cut off the CPU queue table have no static queue any more.
      std::vector<std::string> const& all = in_.flag() ? allStaticClasses() : dynamicClasses;
      return in_.pick(all);
   }

   static std::vector<std::string> const& allStaticClasses() {
      static std::vector<std::string> const names = [] {
         std::vector<std::string> out;
         for (auto const& row : Nimbal::builtInCpuQTable()) {
            out.insert(out.end(), row.classes.begin(), row.classes.end());
         }
         return out;
      }();
      return names;
   }

   bool isStatic(std::string const& cmapName) const {
      return std::find(staticClasses_.begin(), staticClasses_.end(), cmapName) !=
             staticClasses_.end();
   }

   // The (interface, class) pairs policed so far, in the order they were policed.
   std::pair<std::string, std::string> const* policedPair() {
      if (policed_.empty()) {
         return nullptr;
      }
      return &policed_[in_.below(policed_.size())];
   }

   Json step() {
      switch (in_.below(13)) {
         case 0:
         case 1: {
            Interface const& intf = interface();
            std::string const cls = cmapName();
            std::pair<std::string, std::string> const key(intf.name, cls);
            if (std::find(policed_.begin(), policed_.end(), key) == policed_.end()) {
               policed_.push_back(key);
            }
            return {{"police",
                     {{"interface", intf.name},
                      {"class", cls},
                      {"cir", in_.pick(classRates)},
                      {"bc", in_.pick(rates)}}}};
         }
         case 2: {
            auto const* p = policedPair();
            if (!p) {
               return {{"verify", Json::object()}};
            }
            Json const s = {{"unpolice", {{"interface", p->first}, {"class", p->second}}}};
            policed_.erase(policed_.begin() + (p - policed_.data()));
            return s;
         }
         case 3:
            return {{"vxlan", in_.flag()}};
         case 4: {
            Interface const& intf = interface();
            bool const on = in_.byte() % 4 != 0;
            if (on) {
               recirc_.insert(intf.name);
            } else {
               recirc_.erase(intf.name);
            }
            return {{"recirc", {{"interface", intf.name}, {"enabled", on}}}};
         }
         case 5:
            return {{"advance", in_.pick(advances)}};
         case 6:
            return traffic();
         case 7:
            return {{"show", in_.flag() ? "hw" : "sw"}};
         case 8: {
            Json c = Json::object();
            std::uint8_t const b = in_.byte();
            if (b & 1) {
               c["interface"] = interface().name;
            }
            if (b & 2) {
               c["queue"] = in_.below(48);
            }
            return {{"clear", c}};
         }
         case 9: {
            auto const* p = policedPair();
            if (!p) {
               return {{"show", "hw"}};
            }
            return {{"poll", {{"interface", p->first}, {"class", p->second}}}};
         }
         case 10:
            return {{"set", {{"createCoppPolicerAlwaysFalse", in_.byte() % 4 == 0}}}};
         case 11: {
            Json res = Json::object();
            std::uint8_t const b = in_.byte();
            if (b & 1) {
               res["efpCoppEntries"] = in_.pick(pool);
            }
            if (b & 2) {
               res["efpCoppMeters"] = in_.pick(pool);
            }
            if ((b & 4) || res.empty()) {
               res["efpDefaultMeters"] = in_.pick(pool);
            }
            return {{"resources", res}};
         }
         default: {
            std::uint8_t const b = in_.byte();
            if (b & 1) {
               return {{"verify", Json::object()}};
            }
            return {{"tamper",
                     {{"interface", interface().name},
                      {"queue", in_.below(48)},
                      {"cir", in_.pick(rates)},
                      {"bc", in_.pick(rates)}}}};
         }
      }
   }

   // The one-flow form, or (bit 8) up to three flows at once with their arrival patterns, so
   // that flows meet in the meters of a port. Either way at most maxTrafficPackets packets.
   Json traffic() {
      std::uint8_t const b = in_.byte();
      if (!(b & 8)) {
         Json t = flow(b);
         int const rate = in_.pick(pps);
         t["pps"] = rate;
         t["seconds"] = std::min(in_.pick(seconds), maxTrafficPackets / rate);
         return {{"traffic", t}};
      }
      std::size_t const count = 1 + in_.below(3);
      Json list = Json::array();
      double total = 0;
      for (std::size_t i = 0; i < count; ++i) {
         Json f = flow(in_.byte());
         int const rate = in_.pick(pps);
         f["pps"] = rate;
         total += rate;
         switch (in_.below(5)) {
            case 0:
               break;
            case 1:
               f["pattern"] = "constant";
               break;
            case 2:
               f["exact"] = true;
               break;
            case 3:
               f["pattern"] = {{"bursts", {{"size", in_.pick(burstSizes)}}}};
               break;
            default:
               f["pattern"] = {{"poisson", {{"seed", in_.byte()}}}};
               break;
         }
         list.push_back(f);
      }
      Json t;
      t["seconds"] = std::min(in_.pick(seconds), maxTrafficPackets / total);
      t["flows"] = list;
      return {{"traffic", t}};
   }

   // Where a flow goes: an interface, and a policed class, a static class or a queue.
   Json flow(std::uint8_t b) {
      Json t;
      t["interface"] = interface().name;
      auto const* p = policedPair();
      if ((b & 1) && p) {
         t["class"] = p->second;
      } else if ((b & 2) && !staticClasses_.empty()) {
         t["class"] = in_.pick(staticClasses_);
      } else {
         t["queue"] = in_.below(48);
      }
      // Tunnel traffic on a chip with the workaround needs a recirculation interface.
      t["vxlan"] = (b & 4) && (!vxlanWorkaround_ || !recirc_.empty());
      return t;
   }

   ByteReader in_;
   bool vxlanWorkaround_ = false;
   std::vector<Interface> interfaces_;
   std::vector<std::string> staticClasses_;
   std::vector<std::pair<std::string, std::string>> policed_;
   std::set<std::string> recirc_;
};

}  // namespace

std::string stepScenarioText(std::uint8_t const* data, std::size_t size) {
   return Decoder(data, size).text();
}

}  // namespace NimbalFuzz
