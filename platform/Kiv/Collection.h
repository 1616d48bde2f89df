#pragma once

#include <atomic>
#include <cstddef>
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "Kiv/Allocator.h"
#include "Kiv/Entity.h"
#include "Kiv/FlatMap.h"
#include "Kiv/GroupedMap.h"

namespace Kiv {

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {
   using Record = T;
};

// The one collection of the framework. Value is either a handle to a record (a collection
// of records, created from their key) or a plain value (a map of values). Every change
// notifies the owner's observers of the attribute, with the key; an owner of null notifies
// nobody (inner collections that are not observed).
template <class Key, class Value, class Map, bool OfRecords>
class Collection {
  public:
   static constexpr bool ofRecords = OfRecords;
   using key_type = Key;
   using value_type = Value;
   using iterator = typename Map::iterator;
   using const_iterator = typename Map::const_iterator;

   Collection(Entity const* owner, AttrId attr) : owner_(owner), attr_(attr) {}
   Collection(Collection const&) = delete;
   Collection& operator=(Collection const&) = delete;

   // Collections of records: create-or-return. A new record gets its notifications on.
   template <bool R = ofRecords, class = std::enable_if_t<R>>
   Value is(Key const& key) {
      if (Element* const last = lastFound(key)) {
         return last->second;
      }
      // One lookup: the slot is taken first and filled, or given back if the record throws.
      auto [it, inserted] = map_.try_emplace(key);
      if (!inserted) {
         found(*it);
         return it->second;
      }
      try {
         it->second = Value(new typename IsPtr<Value>::Record(key));
      } catch (...) {
         map_.erase(it);
         throw;
      }
      it->second->hasNotificationActiveIs(true);
      found(*it);
      Value record = it->second;
      changed(key);
      return record;
   }

   // Maps of values: insert or overwrite; an equal value changes nothing and notifies nobody.
   template <bool R = ofRecords, class = std::enable_if_t<!R>>
   bool is(Key const& key, Value const& value) {
      if (Element* const last = lastFound(key)) {
         if (last->second == value) {
            return false;
         }
         last->second = value;
         changed(key);
         return true;
      }
      auto [it, inserted] = map_.try_emplace(key, value);
      found(*it);
      if (!inserted) {
         if (it->second == value) {
            return false;
         }
         it->second = value;
      }
      changed(key);
      return true;
   }

   // Maps of values: inserts where the key has no value, keeps the one it has; one lookup.
   template <bool R = ofRecords, class = std::enable_if_t<!R>>
   bool isNew(Key const& key, Value const& value) {
      if (lastFound(key)) {
         return false;
      }
      auto [it, inserted] = map_.try_emplace(key, value);
      found(*it);
      if (inserted) {
         changed(key);
      }
      return inserted;
   }

   // Removes the element, if any; a removed record is handed back (it dies with the last handle).
   std::conditional_t<ofRecords, Value, bool> del(Key const& key) {
      forget();
      auto it = map_.find(key);
      if (it == map_.end()) {
         return {};
      }
      if constexpr (ofRecords) {
         Value record = std::move(it->second);
         map_.erase(it);
         changed(key);
         return record;
      } else {
         map_.erase(it);
         changed(key);
         return true;
      }
   }

   // Removes the element at an iterator during a walk; returns the next position.
   iterator del(iterator it) {
      forget();
      Key key = it->first;
      auto next = map_.erase(it);
      changed(key);
      return next;
   }

   void delAll() {
      std::vector<Key> keys;
      keys.reserve(map_.size());
      for (auto const& kv : map_) {
         keys.push_back(kv.first);
      }
      for (auto const& k : keys) {
         del(k);
      }
   }

   // Lookup: the record or null; the value or its default.
   Value find(Key const& key) const {
      Element const* const element = lookup(key);
      return element ? element->second : Value();
   }
   std::optional<Value> value(Key const& key) const {
      Element const* const element = lookup(key);
      if (!element) {
         return std::nullopt;
      }
      return element->second;
   }
   bool has(Key const& key) const { return lookup(key) != nullptr; }
   // Room for `n` elements: a known number of keys is then made without rehashing. Where the
   // elements stand in a walk depends on the room, as it does on the history of the collection.
   void reserve(std::size_t n) {
      if constexpr (requires { map_.reserve(n); }) {
         map_.reserve(n);
      }
   }
   std::size_t size() const { return map_.size(); }
   bool empty() const { return map_.empty(); }

   const_iterator begin() const { return map_.begin(); }
   const_iterator end() const { return map_.end(); }
   iterator begin() { return map_.begin(); }
   iterator end() { return map_.end(); }
   const_iterator findIter(Key const& key) const { return map_.find(key); }

   std::vector<Key> keys() const {
      std::vector<Key> out;
      out.reserve(map_.size());
      for (auto const& kv : map_) {
         out.push_back(kv.first);
      }
      return out;
   }

  private:
   using Element = typename Map::value_type;
   // Maps whose elements never move: a hash table's nodes, a grouped map's slots. A sorted
   // array moves its elements and keeps its own place of the last key found.
   static constexpr bool hinted = requires { typename Map::hasher; }
   || requires { requires Map::elementsStay; };

   Element* lastFound(Key const& key) const {
      if constexpr (hinted) {
         Element* const last = last_.load(std::memory_order_relaxed);
         if (last && sameKey(last->first, key)) {
            return last;
         }
      }
      return nullptr;
   }
   bool sameKey(Key const& a, Key const& b) const {
      if constexpr (requires { map_.key_eq(); }) {
         return map_.key_eq()(a, b);
      } else {
         return a == b;
      }
   }
   void found(Element const& element) const {
      if constexpr (hinted) {
         last_.store(const_cast<Element*>(&element), std::memory_order_relaxed);
      }
   }
   void forget() {
      if constexpr (hinted) {
         last_.store(nullptr, std::memory_order_relaxed);
      }
   }
   Element const* lookup(Key const& key) const {
      if (Element const* const last = lastFound(key)) {
         return last;
      }
      if constexpr (requires { map_.get(key); }) {
         Element const* const element = map_.get(key);
         if (element) {
            found(*element);
         }
         return element;
      } else {
         auto const it = map_.find(key);
         if (it == map_.end()) {
            return nullptr;
         }
         found(*it);
         return &*it;
      }
   }

   void changed(Key const& key) const {
      if (owner_) {
         owner_->notify(attr_, KeyRef(key));
      }
   }

   Entity const* owner_;
   AttrId attr_;
   Map map_;
   // The element last found or made: lookups come in runs of one key (every CPU queue of an
   // interface asks for its counter record; removing a key looks its record up three times),
   // and a run then costs a comparison, not a hash and a walk of a bucket. Elements of a hash
   // table and the slots of a grouped map stay where they are when it grows; an element removed
   // takes the hint with it.
   mutable std::atomic<Element*> last_{nullptr};
};

// Hash collections take their nodes from the framework's blocks; which allocator holds a node
// does not change where it stands in the collection's order.
template <class Key, class Value>
using HashTable = std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<Key>,
                                     NodeAllocator<std::pair<Key const, Value>>>;
template <class Key, class Record>
using HashCollection = Collection<Key, Ptr<Record>, HashTable<Key, Ptr<Record>>, true>;
template <class Key, class Value>
using HashMap = Collection<Key, Value, HashTable<Key, Value>, false>;
// Ordered collections are small and read far more than changed: one sorted array.
template <class Key, class Value>
using OrderedMap = Collection<Key, Value, FlatMap<Key, Value>, false>;
// Keys that come in dense runs of a group (see KeyGroups): a block of slots a group.
template <class Key, class Record>
using GroupedCollection = Collection<Key, Ptr<Record>, GroupedMap<Key, Ptr<Record>>, true>;
template <class Key, class Value>
using GroupedValueMap = Collection<Key, Value, GroupedMap<Key, Value>, false>;

}  // namespace Kiv

// The framework's generated operations of a collection attribute `name`:
// name(key) looks up, name() counts, nameIs creates or sets, nameDel removes, nameDelAll
// empties, nameReserve makes room, nameHas tests, nameCol gives the collection for iteration.
// `owner` is `this`, or nullptr for a collection that nobody observes.
#define KIV_COLLECTION_OPS(Kind, Key, Value, name, owner) \
  public:                                                 \
   auto name(Key const& k) const {                        \
      return name##_.find(k);                             \
   }                                                      \
   std::size_t name() const {                             \
      return name##_.size();                              \
   }                                                      \
   bool name##Has(Key const& k) const {                   \
      return name##_.has(k);                              \
   }                                                      \
   auto name##Del(Key const& k) {                         \
      return name##_.del(k);                              \
   }                                                      \
   void name##DelAll() {                                  \
      name##_.delAll();                                   \
   }                                                      \
   void name##Reserve(std::size_t n) {                    \
      name##_.reserve(n);                                 \
   }                                                      \
   Kind<Key, Value> const& name##Col() const {            \
      return name##_;                                     \
   }                                                      \
                                                          \
  private:                                                \
   Kind<Key, Value> name##_{owner, #name};                \
                                                          \
  public:

#define KIV_RECORD_COLLECTION(Key, Record, name)                      \
   KIV_COLLECTION_OPS(::Kiv::HashCollection, Key, Record, name, this) \
   ::Kiv::Ptr<Record> name##Is(Key const& k) {                        \
      return name##_.is(k);                                           \
   }

#define KIV_VALUE_MAP(Key, Value, name)                       \
   KIV_COLLECTION_OPS(::Kiv::HashMap, Key, Value, name, this) \
   bool name##Is(Key const& k, Value const& v) {              \
      return name##_.is(k, v);                                \
   }                                                          \
   bool name##IsNew(Key const& k, Value const& v) {           \
      return name##_.isNew(k, v);                             \
   }

#define KIV_INNER_VALUE_MAP(Key, Value, name)                    \
   KIV_COLLECTION_OPS(::Kiv::HashMap, Key, Value, name, nullptr) \
   bool name##Is(Key const& k, Value const& v) {                 \
      return name##_.is(k, v);                                   \
   }                                                             \
   bool name##IsNew(Key const& k, Value const& v) {              \
      return name##_.isNew(k, v);                                \
   }

#define KIV_GROUPED_RECORD_COLLECTION(Key, Record, name)                 \
   KIV_COLLECTION_OPS(::Kiv::GroupedCollection, Key, Record, name, this) \
   ::Kiv::Ptr<Record> name##Is(Key const& k) {                           \
      return name##_.is(k);                                              \
   }

#define KIV_GROUPED_VALUE_MAP(Key, Value, name)                       \
   KIV_COLLECTION_OPS(::Kiv::GroupedValueMap, Key, Value, name, this) \
   bool name##Is(Key const& k, Value const& v) {                      \
      return name##_.is(k, v);                                        \
   }

#define KIV_ORDERED_MAP(Key, Value, name)                        \
   KIV_COLLECTION_OPS(::Kiv::OrderedMap, Key, Value, name, this) \
   bool name##Is(Key const& k, Value const& v) {                 \
      return name##_.is(k, v);                                   \
   }                                                             \
   auto name##Del(::Kiv::OrderedMap<Key, Value>::iterator it) {  \
      return name##_.del(it);                                    \
   }                                                             \
   auto name##Begin() {                                          \
      return name##_.begin();                                    \
   }                                                             \
   auto name##End() {                                            \
      return name##_.end();                                      \
   }
