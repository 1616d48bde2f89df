// What a field entry says and what a statistic counts: the chip's records, kept small because
// a chip holds one of each per entry.

#include <algorithm>
#include <memory>

#include "Shim/SimChip.h"

namespace Shim {

void EntryProgram::qualifierIs(QualKind k, Qualifier q) {
   auto const i = static_cast<std::size_t>(k);
   quals_[i] = q;
   qualsSet_ = static_cast<U8>(qualsSet_ | (1u << i));
}

namespace {

using Action = std::pair<int, ActionParams>;

Action* actionsCopy(Action const* from, std::size_t n) {
   if (n == 0) {
      return nullptr;
   }
   auto* to = static_cast<Action*>(Kiv::blockAllocate(n * sizeof(Action)));
   std::uninitialized_copy(from, from + n, to);
   return to;
}

}  // namespace

EntryProgram::EntryProgram(EntryProgram const& o)
    : policer(o.policer),
      priority(o.priority),
      qualsSet_(o.qualsSet_),
      actionCount_(o.actionCount_),
      inPorts(o.inPorts),
      quals_(o.quals_),
      actions_(actionsCopy(o.actions_, o.actionCount_)) {}

EntryProgram& EntryProgram::operator=(EntryProgram const& o) {
   if (this != &o) {
      EntryProgram copy(o);
      std::swap(policer, copy.policer);
      std::swap(priority, copy.priority);
      std::swap(qualsSet_, copy.qualsSet_);
      std::swap(actionCount_, copy.actionCount_);
      std::swap(inPorts, copy.inPorts);
      std::swap(quals_, copy.quals_);
      std::swap(actions_, copy.actions_);
   }
   return *this;
}

EntryProgram::~EntryProgram() {
   if (actions_) {
      Kiv::blockFree(actions_, actionCount_ * sizeof(Action));
   }
}

std::optional<ActionParams> EntryProgram::action(int action) const {
   Action const* it = std::lower_bound(static_cast<Action const*>(actions_), actionsEnd(), action,
                                       [](auto const& a, int id) { return a.first < id; });
   if (it == actionsEnd() || it->first != action) {
      return std::nullopt;
   }
   return it->second;
}

void EntryProgram::actionIs(int action, ActionParams params) {
   Action* it = std::lower_bound(actions_, actions_ + actionCount_, action,
                                 [](auto const& a, int id) { return a.first < id; });
   if (it != actionsEnd() && it->first == action) {
      it->second = params;
      return;
   }
   // Actions are few and set once: the block is made again one larger.
   std::size_t const at = static_cast<std::size_t>(it - actions_);
   std::size_t const n = actionCount_;
   auto* grown = static_cast<Action*>(Kiv::blockAllocate((n + 1) * sizeof(Action)));
   std::uninitialized_copy(actions_, actions_ + at, grown);
   grown[at] = {action, params};
   std::uninitialized_copy(actions_ + at, actions_ + n, grown + at + 1);
   if (actions_) {
      Kiv::blockFree(actions_, n * sizeof(Action));
   }
   actions_ = grown;
   actionCount_ = static_cast<U16>(n + 1);
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
   for (int i = 0; i < n; ++i) {
      *counter(i) = {types[i], 0};
   }
}

std::vector<int> FieldStat::types() const {
   std::vector<int> out;
   for (int i = 0; i < types_; ++i) {
      out.push_back(const_cast<FieldStat*>(this)->counter(i)->type);
   }
   return out;
}

U64* FieldStat::count(int type) {
   for (int i = 0; i < types_; ++i) {
      Counter* c = counter(i);
      if (c->type == type) {
         return &c->count;
      }
   }
   return nullptr;
}

U64 const* FieldStat::count(int type) const {
   return const_cast<FieldStat*>(this)->count(type);
}

}  // namespace Shim
