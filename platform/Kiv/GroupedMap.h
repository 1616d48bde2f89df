#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <iterator>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Kiv/FlatMap.h"
#include "Kiv/Types.h"

namespace Kiv {

// How a key splits into a group and a slot among the group's 64: `group(k)` is the first key of
// k's group, `slot(k)` is below 64, and the keys of a group order as their slots do, after every
// key of an earlier group. Specialised by the key types that come in dense runs.
template <class Key>
struct KeyGroups;

// An ordered map for keys that come in dense runs (the CPU queues of a port): each group of 64
// keys has one block of 64 slots and a word of bits saying which are taken, and the blocks are
// found by their group in a sorted array. A run of keys then costs a bit and a slot next to the
// last one, not a node and a hash lookup each, and a walk reads memory in order. No element ever
// moves, and no erase moves the array; an insert into a new group moves the array, not the
// elements, and invalidates iterators. Walked in key order.
template <class Key, class Value>
class GroupedMap {
   using Groups = KeyGroups<Key>;

  public:
   using key_type = Key;
   using mapped_type = Value;
   using value_type = std::pair<Key const, Value>;

  private:
   struct Block {
      Block() = default;
      Block(Block const&) = delete;
      Block& operator=(Block const&) = delete;
      ~Block() {
         for (U64 bits = taken; bits != 0; bits &= bits - 1) {
            at(static_cast<unsigned>(std::countr_zero(bits))).~value_type();
         }
      }
      value_type& at(unsigned slot) {
         return *std::launder(reinterpret_cast<value_type*>(slots[slot]));
      }
      U64 taken = 0;
      alignas(value_type) unsigned char slots[64][sizeof(value_type)];
   };
   using Index = FlatMap<Key, Block*>;

   template <bool Const>
   class Iterator {
      using Map = std::conditional_t<Const, GroupedMap const, GroupedMap>;

     public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = GroupedMap::value_type;
      using difference_type = std::ptrdiff_t;
      using reference = std::conditional_t<Const, value_type const&, value_type&>;
      using pointer = std::conditional_t<Const, value_type const*, value_type*>;

      Iterator() = default;
      Iterator(Map* map, std::size_t group, unsigned slot)
          : map_(map), group_(group), slot_(slot) {}
      template <bool C = Const, class = std::enable_if_t<C>>
      Iterator(Iterator<false> const& o) : map_(o.map_), group_(o.group_), slot_(o.slot_) {}

      reference operator*() const { return map_->block(group_)->at(slot_); }
      pointer operator->() const { return &**this; }
      Iterator& operator++() {
         Block const* const block = map_->block(group_);
         U64 const later = slot_ == 63 || !block ? 0 : block->taken >> (slot_ + 1) << (slot_ + 1);
         if (later != 0) {
            slot_ = static_cast<unsigned>(std::countr_zero(later));
         } else {
            *this = map_->template firstFrom<Const>(group_ + 1);
         }
         return *this;
      }
      Iterator operator++(int) {
         Iterator const was = *this;
         ++*this;
         return was;
      }
      bool operator==(Iterator const& o) const { return group_ == o.group_ && slot_ == o.slot_; }

     private:
      friend class GroupedMap;
      template <bool>
      friend class Iterator;
      Map* map_ = nullptr;
      std::size_t group_ = 0;
      unsigned slot_ = 0;
   };

  public:
   using iterator = Iterator<false>;
   using const_iterator = Iterator<true>;

   GroupedMap() = default;
   GroupedMap(GroupedMap const&) = delete;
   GroupedMap& operator=(GroupedMap const&) = delete;
   ~GroupedMap() {
      for (auto& group : index_) {
         delete group.second;
      }
   }

   iterator begin() { return firstFrom<false>(0); }
   const_iterator begin() const { return firstFrom<true>(0); }
   iterator end() { return {this, index_.size(), 0}; }
   const_iterator end() const { return {this, index_.size(), 0}; }
   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   iterator find(Key const& key) { return findIn<false>(*this, key); }
   const_iterator find(Key const& key) const { return findIn<true>(*this, key); }
   std::size_t count(Key const& key) const { return find(key) != end() ? 1 : 0; }
   // The element of `key`, or null.
   value_type const* get(Key const& key) const {
      auto const* const group = holder(key);
      return group ? &group->second->at(Groups::slot(key)) : nullptr;
   }
   // No element moves while it is in the map: a pointer to one stays good until it is erased.
   static constexpr bool elementsStay = true;

   // As std::map's: the element of `key`, made from `args` if there was none.
   template <class... A>
   std::pair<iterator, bool> try_emplace(Key const& key, A&&... args) {
      auto const [group, block] = blockFor(key);
      unsigned const slot = Groups::slot(key);
      U64 const bit = U64(1) << slot;
      if (block->taken & bit) {
         return {{this, group, slot}, false};
      }
      try {
         ::new (static_cast<void*>(block->slots[slot]))
             value_type(std::piecewise_construct, std::forward_as_tuple(key),
                        std::forward_as_tuple(std::forward<A>(args)...));
      } catch (...) {
         notMade(group);
         throw;
      }
      block->taken |= bit;
      ++size_;
      return {{this, group, slot}, true};
   }

   // Returns the position after the element erased.
   iterator erase(const_iterator it) {
      destroy(block(it.group_), it.slot_);
      iterator next(this, it.group_, it.slot_);
      return ++next;
   }
   std::size_t erase(Key const& key) {
      auto const* const group = holder(key);
      if (!group) {
         return 0;
      }
      destroy(group->second, Groups::slot(key));
      return 1;
   }

   // The blocks held: one for each group that had an element since the map was last empty.
   std::size_t blocks() const {
      return static_cast<std::size_t>(std::count_if(
          index_.begin(), index_.end(), [](auto const& group) { return group.second != nullptr; }));
   }

  private:
   Block* block(std::size_t group) const { return (index_.begin() + group)->second; }
   void destroy(Block* block, unsigned slot) {
      block->at(slot).~value_type();
      block->taken &= ~(U64(1) << slot);
      --size_;
      erased();
   }
   // A group's block is kept while the map holds anything, for the group's next key; an empty
   // map gives every block back. A block made for a value that could not be made goes at once.
   void erased() {
      if (size_ == 0) {
         for (auto& group : index_) {
            delete group.second;
            group.second = nullptr;
         }
      }
   }
   void notMade(std::size_t group) {
      Block*& block = (index_.begin() + group)->second;
      if (block->taken == 0) {
         delete block;
         block = nullptr;
      }
   }

   // The first element at or after the group at `group`.
   template <bool Const>
   Iterator<Const> firstFrom(std::size_t group) const {
      using Map = std::conditional_t<Const, GroupedMap const, GroupedMap>;
      auto* const self = const_cast<Map*>(this);
      for (; group < index_.size(); ++group) {
         if (U64 const taken = block(group) ? block(group)->taken : 0) {
            return {self, group, static_cast<unsigned>(std::countr_zero(taken))};
         }
      }
      return {self, index_.size(), 0};
   }

   // The index's entry of the group that holds an element of `key`, or null.
   typename Index::value_type const* holder(Key const& key) const {
      if (size_ == 0) {
         return nullptr;  // an empty map answers without a search
      }
      auto const* const group = index_.get(Groups::group(key));
      if (!group || !group->second || !(group->second->taken & (U64(1) << Groups::slot(key)))) {
         return nullptr;
      }
      return group;
   }

   template <bool Const, class Self>
   static Iterator<Const> findIn(Self& self, Key const& key) {
      auto const* const group = self.holder(key);
      if (!group) {
         return self.end();
      }
      return {&self, static_cast<std::size_t>(group - &*self.index_.begin()), Groups::slot(key)};
   }

   // The group's block, made if it has none. Runs of keys find their group by the index's own
   // hint before any search.
   std::pair<std::size_t, Block*> blockFor(Key const& key) {
      Key const group = Groups::group(key);
      auto it = index_.find(group);
      if (it == index_.end()) {
         it = index_.try_emplace(group, nullptr).first;
      }
      if (!it->second) {
         it->second = new Block();
      }
      return {static_cast<std::size_t>(it - index_.begin()), it->second};
   }

   Index index_;
   std::size_t size_ = 0;
};

}  // namespace Kiv
