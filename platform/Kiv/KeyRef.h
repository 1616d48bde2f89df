#pragma once

#include <any>
#include <typeinfo>

namespace Kiv {

// The key of a collection's change, as its reactors are told it: the changed key itself, by
// reference and with its type. Telling a reactor copies nothing (a key larger than a word
// would otherwise cost a heap block per change); the reference holds while the reactor is
// being told, and a reactor that keeps the key keeps a copy (as() or any()).
class KeyRef {
  public:
   template <class K>
   explicit KeyRef(K const& key) noexcept : key_(&key), type_(&typeid(K)), copy_(&copyOf<K>) {}
   KeyRef(KeyRef const&) = default;
   KeyRef& operator=(KeyRef const&) = delete;

   template <class K>
   bool is() const noexcept {
      return *type_ == typeid(K);
   }
   // The key if it is a K, or null.
   template <class K>
   K const* get() const noexcept {
      return is<K>() ? static_cast<K const*>(key_) : nullptr;
   }
   // The key, which must be a K: another type throws std::bad_any_cast.
   template <class K>
   K const& as() const {
      if (!is<K>()) {
         throw std::bad_any_cast();
      }
      return *static_cast<K const*>(key_);
   }
   std::type_info const& type() const noexcept { return *type_; }
   // A copy of the key, to keep past the notification.
   std::any any() const { return copy_(key_); }

  private:
   template <class K>
   static std::any copyOf(void const* key) {
      return std::any(*static_cast<K const*>(key));
   }

   void const* key_;
   std::type_info const* type_;
   std::any (*copy_)(void const*);
};

}  // namespace Kiv
