#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#ifdef KIV_THREAD_SAFE_PTR
#include <atomic>
#endif

namespace Kiv {

// Intrusive reference count. Copies of an object start with no references of their own.
class PtrInterface {
  public:
   PtrInterface() = default;
   PtrInterface(PtrInterface const&) : refs_(0) {}
   PtrInterface& operator=(PtrInterface const&) { return *this; }

   long references() const { return refs_; }
   void newRef() const { ++refs_; }
   void deleteRef() const {
      if (--refs_ == 0) {
         onZeroReferences();
      }
   }

  protected:
   virtual ~PtrInterface() = default;
   virtual void onZeroReferences() const { delete this; }

  private:
#ifdef KIV_THREAD_SAFE_PTR
   mutable std::atomic<long> refs_{0};
#else
   mutable long refs_ = 0;
#endif
};

template <class T>
class Ptr {
  public:
   using element_type = T;

   Ptr() = default;
   Ptr(std::nullptr_t) {}
   Ptr(T* p) : p_(p) { ref(); }
   Ptr(Ptr const& o) : p_(o.p_) { ref(); }
   Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
   template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
   Ptr(Ptr<U> const& o) : p_(o.ptr()) {
      ref();
   }
   ~Ptr() { unref(); }

   Ptr& operator=(Ptr const& o) {
      if (o.p_ != p_) {
         T* old = p_;
         p_ = o.p_;
         ref();
         if (old) {
            old->deleteRef();
         }
      }
      return *this;
   }
   Ptr& operator=(Ptr&& o) noexcept {
      if (this != &o) {
         T* old = p_;
         p_ = o.p_;
         o.p_ = nullptr;
         if (old) {
            old->deleteRef();
         }
      }
      return *this;
   }
   Ptr& operator=(std::nullptr_t) {
      unref();
      p_ = nullptr;
      return *this;
   }

   T* ptr() const { return p_; }
   T* operator->() const { return p_; }
   T& operator*() const { return *p_; }
   explicit operator bool() const { return p_ != nullptr; }
   bool operator!() const { return p_ == nullptr; }

   template <class U>
   bool operator==(Ptr<U> const& o) const {
      return static_cast<void const*>(p_) == static_cast<void const*>(o.ptr());
   }
   bool operator==(std::nullptr_t) const { return p_ == nullptr; }

  private:
   void ref() {
      if (p_) {
         p_->newRef();
      }
   }
   void unref() {
      if (p_) {
         p_->deleteRef();
      }
   }
   T* p_ = nullptr;
};

template <class U, class T>
Ptr<U> ptr_cast(Ptr<T> const& p) {
   return Ptr<U>(dynamic_cast<U*>(p.ptr()));
}

template <class U, class T>
Ptr<U> const_ptr_cast(Ptr<T> const& p) {
   return Ptr<U>(const_cast<U*>(p.ptr()));
}

}  // namespace Kiv

template <class T>
struct std::hash<Kiv::Ptr<T>> {
   std::size_t operator()(Kiv::Ptr<T> const& p) const { return std::hash<T*>()(p.ptr()); }
};
