#include "random/HistoryModel.h"

#include <algorithm>
#include <stdexcept>

namespace NimbalHistory {

HistoryModel::HistoryModel(NimbalHost::ScenarioSwitch const& sw,
                           std::vector<std::string> dynamicClasses)
    : sw_(sw), dynamicClasses_(std::move(dynamicClasses)) {
   auto add = [this](NimbalHost::ScenarioInterface const& i, bool fabric) {
      interfaces_.push_back(ModelInterface{i.name, i.modId, unitOfModule(i.modId), i.port, fabric});
   };
   for (auto const& i : sw_.interfaces) {
      add(i, false);
   }
   for (auto const& i : sw_.fabricInterfaces) {
      add(i, true);
   }
   for (auto const& row : sw_.cpuQueues) {
      for (auto const& c : row.classes) {
         staticClasses_.push_back(c);
      }
   }
   // The agent's start-up publishes every allocated queue of every port at its default rate.
   for (ModelInterface const& intf : interfaces_) {
      for (auto const& row : sw_.cpuQueues) {
         if (row.id != Nimbal::cpuCosqDrop_ && queueAllocated(row.id)) {
            kernel[keyOf(intf, row.id)] = queueDefault(row.id);
         }
      }
   }
}

ModelInterface const* HistoryModel::interface(std::string const& name) const {
   for (ModelInterface const& i : interfaces_) {
      if (i.name == name) {
         return &i;
      }
   }
   return nullptr;
}

ModelInterface const* HistoryModel::interfaceOf(Key const& key) const {
   for (ModelInterface const& i : interfaces_) {
      if (i.modId == key.modId() && i.port == key.port()) {
         return &i;
      }
   }
   return nullptr;
}

U16 HistoryModel::unitOfModule(U32 modId) const {
   for (auto const& m : sw_.modules) {
      if (m.modId == modId) {
         return m.unit;
      }
   }
   return 0;
}

std::vector<U16> HistoryModel::units() const {
   std::set<U16> units;
   for (auto const& m : sw_.modules) {
      units.insert(m.unit);
   }
   return std::vector<U16>(units.begin(), units.end());
}

Nimbal::MmuCpuQRow const& HistoryModel::queue(U32 id) const {
   for (auto const& row : sw_.cpuQueues) {
      if (row.id == id) {
         return row;
      }
   }
   throw std::out_of_range("no CPU queue " + std::to_string(id));
}

int HistoryModel::staticQueue(std::string const& cmapName) const {
   return sw_.staticQueue(cmapName);
}

bool HistoryModel::queueAllocated(U32 id) const {
   return !queue(id).classes.empty() || dynamicHolds.count(id) != 0;
}

std::optional<U32> HistoryModel::queueOfClass(std::string const& cmapName) const {
   int const q = staticQueue(cmapName);
   if (q >= 0) {
      return static_cast<U32>(q);
   }
   for (auto const& [id, c] : policed) {
      if (id.second == cmapName && c.queue) {
         return c.queue;
      }
   }
   return std::nullopt;
}

U32 HistoryModel::expectedDefaultRate(ModelInterface const& intf) const {
   U32 largest = 0;
   for (auto const& [id, c] : policed) {
      if (id.first == intf.name && c.queue) {
         largest = std::max(largest, c.cir);
      }
   }
   return std::max(sw_.portDefaultCoppRate, 2 * largest);
}

std::optional<U32> HistoryModel::allocateDynamic(std::string const& cmapName) {
   // The queue the class already holds, else the lowest free one of the pool.
   for (auto& [id, hold] : dynamicHolds) {
      if (hold.cmapName == cmapName) {
         ++hold.users;
         return id;
      }
   }
   for (auto const& row : sw_.cpuQueues) {
      if (row.dynamic && !dynamicHolds.count(row.id)) {
         dynamicHolds[row.id] = DynamicHold{cmapName, 1};
         return row.id;
      }
   }
   return std::nullopt;
}

}  // namespace NimbalHistory
