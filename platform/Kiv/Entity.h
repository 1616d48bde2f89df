#pragma once

#include <memory>
#include <vector>

#include "Kiv/KeyRef.h"
#include "Kiv/Ptr.h"
#include "Kiv/Types.h"

namespace Kiv {

class TypeDesc;
class NotifieeBase;

// An object of the framework: reference counted, typed, observable attribute by attribute.
class Entity : public PtrInterface {
  public:
   Entity() = default;
   Entity(Entity const&) = delete;
   Entity& operator=(Entity const&) = delete;

   virtual TypeDesc const* fwkType() const;

   bool hasNotificationActive() const { return notificationActive_; }
   void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

   // Set while the object is being torn down; reactors do not attach to such objects.
   bool isMarkedForDeletion() const { return markedForDeletion_; }
   void isMarkedForDeletionIs(bool marked) { markedForDeletion_ = marked; }

   // Tells every active notifiee of a change of a scalar attribute, or of one key of a
   // collection attribute. Nothing is told while notifications are off.
   // Inline up to the test for reactors: most entities have none, and a record's setters
   // tell on every change.
   void notify(AttrId attr) const {
      if (hasObservers()) {
         tell(attr);
      }
   }
   void notify(AttrId attr, KeyRef const& key) const {
      if (hasObservers()) {
         tell(attr, key);
      }
   }
   bool hasObservers() const { return notificationActive_ && notifiees_ && !notifiees_->empty(); }

   std::size_t notifiees() const { return notifiees_ ? notifiees_->size() : 0; }

  protected:
   ~Entity() override;
   std::vector<NotifieeBase*> const& notifieeList() const;

  private:
   friend class NotifieeBase;
   void notifieeAdd(NotifieeBase* n) const;
   void notifieeDel(NotifieeBase* n) const;
   void tell(AttrId attr) const;
   void tell(AttrId attr, KeyRef const& key) const;
   template <class F>
   void forEachNotifiee(F&& f) const;

   // Made with the first reactor: most entities are records made by the ten thousand that no
   // reactor watches, and a pointer keeps them small.
   mutable std::unique_ptr<std::vector<NotifieeBase*>> notifiees_;
   bool notificationActive_ = false;
   bool markedForDeletion_ = false;
};

// A reactor bound to one notifier. Inactive reactors are not told of changes.
class NotifieeBase {
  public:
   NotifieeBase() = default;
   NotifieeBase(NotifieeBase const&) = delete;
   NotifieeBase& operator=(NotifieeBase const&) = delete;
   virtual ~NotifieeBase();

   bool isActive() const { return active_; }
   void isActiveIs(bool active) { active_ = active; }

   virtual void onAttribute(AttrId) {}
   virtual void onAttribute(AttrId, KeyRef const&) {}

  protected:
   void notifierBaseIs(Entity const* e);
   Entity const* notifierBase() const { return notifierBase_; }

  private:
   friend class Entity;
   Entity const* notifierBase_ = nullptr;
   bool active_ = true;
};

// Typed reactor: holds a handle on its notifier, so the notifier lives while it is watched.
template <class T>
class Notifiee : public NotifieeBase {
  public:
   Ptr<T const> notifier() const { return notifier_; }
   void notifierIs(Ptr<T const> const& n) {
      if (n == notifier_) {
         return;
      }
      notifierBaseIs(n.ptr());
      notifier_ = n;
      if (n && !n->isMarkedForDeletion()) {
         onNotifier();
      }
   }
   ~Notifiee() override { notifierBaseIs(nullptr); }

  protected:
   // Called when the reactor is set to a live notifier.
   virtual void onNotifier() {}

  private:
   Ptr<T const> notifier_;
};

}  // namespace Kiv
