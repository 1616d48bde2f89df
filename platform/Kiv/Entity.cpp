#include "Kiv/Entity.h"

#include <algorithm>

#include "Kiv/Type.h"

namespace Kiv {

TypeDesc const* Entity::fwkType() const {
   return entityTypeDesc();
}

Entity::~Entity() {
   // Reactors outlive their notifier only when they hold no handle on it; unbind them. Most
   // records never had one.
   if (!notifiees_) {
      return;
   }
   for (NotifieeBase* n : *notifiees_) {
      n->notifierBase_ = nullptr;
   }
}

std::vector<NotifieeBase*> const& Entity::notifieeList() const {
   static std::vector<NotifieeBase*> const none;
   return notifiees_ ? *notifiees_ : none;
}

void Entity::notifieeAdd(NotifieeBase* n) const {
   if (!notifiees_) {
      notifiees_ = std::make_unique<std::vector<NotifieeBase*>>();
   }
   notifiees_->push_back(n);
}

void Entity::notifieeDel(NotifieeBase* n) const {
   if (!notifiees_) {
      return;
   }
   auto it = std::find(notifiees_->begin(), notifiees_->end(), n);
   if (it != notifiees_->end()) {
      notifiees_->erase(it);
   }
}

template <class F>
void Entity::forEachNotifiee(F&& f) const {
   // Only told with reactors present (notify tests it).
   std::vector<NotifieeBase*> const& notifiees = *notifiees_;
   // One reactor, the usual case: nothing is walked after it reacts.
   if (notifiees.size() == 1) {
      if (notifiees.front()->isActive()) {
         f(notifiees.front());
      }
      return;
   }
   // A reactor may detach itself or others while it reacts: walk a copy and skip the gone.
   std::vector<NotifieeBase*> snapshot = notifiees;
   for (NotifieeBase* n : snapshot) {
      if (std::find(notifiees.begin(), notifiees.end(), n) == notifiees.end()) {
         continue;
      }
      if (n->isActive()) {
         f(n);
      }
   }
}

void Entity::tell(AttrId attr) const {
   forEachNotifiee([&](NotifieeBase* n) { n->onAttribute(attr); });
}

void Entity::tell(AttrId attr, KeyRef const& key) const {
   forEachNotifiee([&](NotifieeBase* n) { n->onAttribute(attr, key); });
}

NotifieeBase::~NotifieeBase() {
   notifierBaseIs(nullptr);
}

void NotifieeBase::notifierBaseIs(Entity const* e) {
   if (e == notifierBase_) {
      return;
   }
   if (notifierBase_) {
      notifierBase_->notifieeDel(this);
   }
   notifierBase_ = e;
   if (notifierBase_) {
      notifierBase_->notifieeAdd(this);
   }
}

}  // namespace Kiv
