#include "host/transcript/KeyRanges.h"

#include <algorithm>
#include <limits>
#include <map>
#include <unordered_map>

namespace NimbalHost {

namespace {

// "queue 38 (CoppSystemMlag)", "queues 1-16 (CpuQ1-CpuQ16)", "queues 1-3, 7 (A-C, G)".
std::string queuesText(std::map<U32, std::string> const& queues) {
   std::string ids;
   std::string names;
   bool allNamed = true;
   for (auto it = queues.begin(); it != queues.end();) {
      auto last = it;
      while (std::next(last) != queues.end() && std::next(last)->first == last->first + 1) {
         ++last;
      }
      std::string id = std::to_string(it->first);
      std::string name = it->second;
      if (last != it) {
         id += "-" + std::to_string(last->first);
         name += "-" + last->second;
      }
      for (auto q = it; q != std::next(last); ++q) {
         allNamed = allNamed && !q->second.empty();
      }
      ids += (ids.empty() ? "" : ", ") + id;
      names += (names.empty() ? "" : ", ") + name;
      it = std::next(last);
   }
   std::string out = (queues.size() == 1 ? "queue " : "queues ") + ids;
   if (allNamed && !queues.empty()) {
      out += " (" + names + ")";
   }
   return out;
}

}  // namespace

std::vector<std::string> keyRanges(std::vector<KeyName> const& keys,
                                   std::vector<std::string> const& interfaceOrder) {
   std::unordered_map<std::string, std::size_t> position;
   for (std::size_t i = 0; i < interfaceOrder.size(); ++i) {
      position.emplace(interfaceOrder[i], i);
   }
   constexpr std::size_t unlisted = std::numeric_limits<std::size_t>::max();
   auto positionOf = [&](std::string const& intf) {
      auto it = position.find(intf);
      return it == position.end() ? unlisted : it->second;
   };
   // The queues of each interface, interfaces in the switch's order.
   std::map<std::pair<std::size_t, std::string>, std::map<U32, std::string>> byInterface;
   for (KeyName const& k : keys) {
      byInterface[{positionOf(k.interface), k.interface}][k.queue] = k.queueName;
   }
   // Interfaces with the same queues form a group; a group is written where its first
   // interface stands.
   std::vector<
       std::pair<std::map<U32, std::string>, std::vector<std::pair<std::size_t, std::string>>>>
       groups;
   for (auto const& entry : byInterface) {
      auto const& [intf, queues] = entry;
      auto g = std::find_if(groups.begin(), groups.end(),
                            [&entry](auto const& group) { return group.first == entry.second; });
      if (g == groups.end()) {
         groups.push_back({queues, {}});
         g = std::prev(groups.end());
      }
      g->second.push_back(intf);
   }
   std::vector<std::string> out;
   for (auto const& [queues, interfaces] : groups) {
      std::string names;
      for (std::size_t i = 0; i < interfaces.size();) {
         std::size_t j = i;
         while (j + 1 < interfaces.size() && interfaces[i].first != unlisted &&
                interfaces[j + 1].first == interfaces[j].first + 1) {
            ++j;
         }
         std::string run = interfaces[i].second;
         if (j > i) {
            run += "-" + interfaces[j].second;
         }
         names += (names.empty() ? "" : ", ") + run;
         i = j + 1;
      }
      out.push_back(names + " " + queuesText(queues));
   }
   return out;
}

std::string keyRangesText(std::vector<KeyName> const& keys,
                          std::vector<std::string> const& interfaceOrder) {
   std::string out;
   for (std::string const& item : keyRanges(keys, interfaceOrder)) {
      out += (out.empty() ? "" : ", ") + item;
   }
   return out;
}

}  // namespace NimbalHost
