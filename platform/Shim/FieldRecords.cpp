// What a field entry says and what a statistic counts: the chip's records, kept small because
// a chip holds one of each per entry.

#include <algorithm>

#include "Shim/SimChip.h"

namespace Shim {

void EntryProgram::qualifierIs(QualKind k, Qualifier q) {
   auto const i = static_cast<std::size_t>(k);
   quals_[i] = q;
   qualsSet_ = static_cast<U8>(qualsSet_ | (1u << i));
}

std::optional<ActionParams> EntryProgram::action(int action) const {
   auto it = std::lower_bound(actions_.begin(), actions_.end(), action,
                              [](auto const& a, int id) { return a.first < id; });
   if (it == actions_.end() || it->first != action) {
      return std::nullopt;
   }
   return it->second;
}

void EntryProgram::actionIs(int action, ActionParams params) {
   auto it = std::lower_bound(actions_.begin(), actions_.end(), action,
                              [](auto const& a, int id) { return a.first < id; });
   if (it != actions_.end() && it->first == action) {
      it->second = params;
   } else {
      actions_.insert(it, {action, params});
   }
}

bool EntryProgram::matches(PacketFields const& p) const {
   for (std::size_t i = 0; i < qualKinds; ++i) {
      if (!(qualsSet_ & (1u << i))) {
         continue;
      }
      U32 value = 0;
      switch (static_cast<QualKind>(i)) {
         case QualKind::InPort:
            value = p.port;
            break;
         case QualKind::CpuQueue:
            value = p.cpuQueue;
            break;
         case QualKind::InnerVlanId:
            value = p.innerVlan;
            break;
         case QualKind::InterfaceClassPort:
            // Every packet to the CPU carries the CPU port's class bit.
            value = 2;
            break;
      }
      Qualifier const& q = quals_[i];
      if ((value & q.mask) != (q.data & q.mask)) {
         return false;
      }
   }
   int const port = static_cast<int>(p.port);
   if (inPorts && inPorts->mask.portMember(port) && !inPorts->data.portMember(port)) {
      return false;
   }
   return true;
}

void FieldStat::typesIs(int n, int const* types) {
   more_.reset(n > inlineCounters ? new Counter[static_cast<std::size_t>(n - inlineCounters)]
                                  : nullptr);
   types_ = n;
   inlineTypes_ = {};
   inlineCounts_ = {};
   for (int i = 0; i < n; ++i) {
      if (i < inlineCounters) {
         inlineTypes_[static_cast<std::size_t>(i)] = types[i];
      } else {
         more_[static_cast<std::size_t>(i - inlineCounters)] = {types[i], 0};
      }
   }
}

std::vector<int> FieldStat::types() const {
   std::vector<int> out;
   for (int i = 0; i < types_; ++i) {
      out.push_back(i < inlineCounters ? inlineTypes_[static_cast<std::size_t>(i)]
                                       : more_[static_cast<std::size_t>(i - inlineCounters)].type);
   }
   return out;
}

U64* FieldStat::count(int type) {
   for (int i = 0; i < types_ && i < inlineCounters; ++i) {
      if (inlineTypes_[static_cast<std::size_t>(i)] == type) {
         return &inlineCounts_[static_cast<std::size_t>(i)];
      }
   }
   for (int i = inlineCounters; i < types_; ++i) {
      Counter& c = more_[static_cast<std::size_t>(i - inlineCounters)];
      if (c.type == type) {
         return &c.count;
      }
   }
   return nullptr;
}

U64 const* FieldStat::count(int type) const {
   return const_cast<FieldStat*>(this)->count(type);
}

}  // namespace Shim
