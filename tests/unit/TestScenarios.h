#pragma once

// Scenarios for the tests of the resource model and the preflight: the built hidden-resource
// cases of tests/scenarios/preflight, and scenarios made at random from a seed.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "SourceTree.h"

namespace NimbalTestScenarios {

// The files of tests/scenarios/preflight, in name order.
inline std::vector<std::string> preflightCases() {
   std::vector<std::string> files;
   for (auto const& entry :
        std::filesystem::directory_iterator(SourceTree::path("tests/scenarios/preflight"))) {
      if (entry.path().extension() == ".json") {
         files.push_back(entry.path().string());
      }
   }
   std::sort(files.begin(), files.end());
   return files;
}

// Small switches, pools that may be short, and steps that police, resize, switch VXLAN,
// recirculate and move the clock: a valid scenario for every seed, always the same one.
class RandomScenario {
  public:
   explicit RandomScenario(unsigned seed) : random_(seed) {}

   std::string text() {
      int const ports = pick(2, 10);
      bool const twoUnits = pick(0, 3) == 0;
      std::string sw = R"("vxlanWorkaround": )" + std::string(pick(0, 2) ? "true" : "false");
      sw += R"(, "portDefaultCoppRate": )" + std::to_string(pick(1, 3) * 500);
      sw += twoUnits ? R"(, "modules": [{"modId": 0, "unit": 0}, {"modId": 1, "unit": 1}])" : "";
      sw += R"(, "interfaces": [)";
      for (int i = 1; i <= ports; ++i) {
         interfaces_.push_back("Ethernet" + std::to_string(i));
         int const mod = twoUnits && i % 2 == 0 ? 1 : 0;
         sw += (i > 1 ? ", " : "") + std::string(R"({"name": "Ethernet)") + std::to_string(i) +
               R"(", "modId": )" + std::to_string(mod) + R"(, "port": )" + std::to_string(i) + "}";
      }
      sw += "]";
      int const keys = ports * 39;
      sw += R"(, "resources": {"efpCoppEntries": )" + std::to_string(keys + pick(-20, 20)) +
            R"(, "efpCoppMeters": )" + std::to_string(keys + pick(-20, 20)) +
            R"(, "efpDefaultMeters": )" + std::to_string(ports + pick(-2, 2 * keys)) + "}";
      std::string steps;
      int const count = pick(5, 25);
      for (int i = 0; i < count; ++i) {
         steps += (i ? ",\n" : "") + step();
      }
      return "{\"switch\": {" + sw + "}, \"steps\": [" + steps + "]}";
   }

  private:
   int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random_); }
   std::string const& anyInterface() {
      return interfaces_[static_cast<std::size_t>(
          pick(0, static_cast<int>(interfaces_.size()) - 1))];
   }

   std::string step() {
      static std::vector<std::string> const classes = {
          "copp-system-bgp", "copp-system-lacp", "copp-user-a", "copp-user-b", "copp-user-c",
          "copp-user-d",     "copp-user-e",      "copp-user-f", "copp-user-g", "copp-user-h",
          "copp-user-i",     "copp-user-j",      "copp-user-k"};
      switch (pick(0, 10)) {
         case 0:
         case 1:
         case 10: {
            std::string const intf = anyInterface();
            std::string const cls = classes[static_cast<std::size_t>(pick(0, 12))];
            policed_.insert({intf, cls});
            return R"({"police": {"interface": ")" + intf + R"(", "class": ")" + cls +
                   R"(", "cir": )" + std::to_string(pick(1, 40) * 50) + R"(, "bc": )" +
                   std::to_string(pick(0, 100)) + "}}";
         }
         case 2:
            if (!policed_.empty()) {
               auto it = policed_.begin();
               std::advance(it, pick(0, static_cast<int>(policed_.size()) - 1));
               std::string const s = R"({"unpolice": {"interface": ")" + it->first +
                                     R"(", "class": ")" + it->second + R"("}})";
               policed_.erase(it);
               return s;
            }
            return R"({"advance": 1})";
         case 3:
            return R"({"vxlan": )" + std::string(pick(0, 1) ? "true" : "false") + "}";
         case 4:
            return R"({"advance": )" + std::to_string(pick(0, 90)) + "}";
         case 5: {
            std::string const which =
                std::vector<std::string>{"efpCoppEntries", "efpCoppMeters",
                                         "efpDefaultMeters"}[static_cast<std::size_t>(pick(0, 2))];
            return R"({"resources": {")" + which + R"(": )" + std::to_string(pick(0, 800)) + "}}";
         }
         case 6:
            return R"({"traffic": {"interface": ")" + anyInterface() + R"(", "queue": )" +
                   std::to_string(pick(1, 47)) + R"(, "pps": 20, "seconds": )" +
                   std::to_string(pick(1, 70)) + "}}";
         case 7:
            return R"({"set": {"createCoppPolicerAlwaysFalse": )" +
                   std::string(pick(0, 3) == 0 ? "true" : "false") + "}}";
         case 8:
            return R"({"show": "hw"})";
         default:
            return R"({"recirc": {"interface": ")" + anyInterface() + R"(", "enabled": )" +
                   (pick(0, 1) ? "true" : "false") + "}}";
      }
   }

   std::mt19937 random_;
   std::vector<std::string> interfaces_;
   std::set<std::pair<std::string, std::string>> policed_;
};

inline std::string randomScenario(unsigned seed) {
   return RandomScenario(seed).text();
}

}  // namespace NimbalTestScenarios
