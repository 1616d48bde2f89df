#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <tuple>
#include <utility>
#include <vector>

namespace Kiv {

// An ordered map kept as one sorted array. The framework's ordered collections hold tens to a
// few thousand elements (ports, CPU queues, the indices of a pool) that are walked and looked up
// far more often than changed: a walk or a binary search over one array reads memory in order,
// where a tree chases a pointer per element. Inserting or erasing moves the elements after the
// place, and invalidates iterators from there on.
template <class Key, class Value>
class FlatMap {
  public:
   using key_type = Key;
   using mapped_type = Value;
   using value_type = std::pair<Key, Value>;
   using iterator = typename std::vector<value_type>::iterator;
   using const_iterator = typename std::vector<value_type>::const_iterator;

   FlatMap() = default;
   FlatMap(FlatMap const& o) : elements_(o.elements_) {}
   FlatMap(FlatMap&& o) noexcept : elements_(std::move(o.elements_)) {}
   FlatMap& operator=(FlatMap const& o) {
      elements_ = o.elements_;
      return *this;
   }
   FlatMap& operator=(FlatMap&& o) noexcept {
      elements_ = std::move(o.elements_);
      return *this;
   }

   iterator begin() { return elements_.begin(); }
   iterator end() { return elements_.end(); }
   const_iterator begin() const { return elements_.begin(); }
   const_iterator end() const { return elements_.end(); }
   bool empty() const { return elements_.empty(); }
   std::size_t size() const { return elements_.size(); }
   void reserve(std::size_t n) { elements_.reserve(n); }
   void clear() { elements_.clear(); }

   iterator find(Key const& key) { return elements_.begin() + place(key); }
   const_iterator find(Key const& key) const { return elements_.begin() + place(key); }
   std::size_t count(Key const& key) const { return find(key) != end() ? 1 : 0; }
   // The element of `key`, or null: a lookup without an iterator to compare with the end.
   value_type const* get(Key const& key) const {
      std::size_t const at = place(key);
      return at < elements_.size() ? &elements_[at] : nullptr;
   }

   // As std::map's: the element of `key`, made from `args` if there was none.
   template <class... A>
   std::pair<iterator, bool> try_emplace(Key const& key, A&&... args) {
      auto const it = lowerBound(elements_, key);
      if (it != elements_.end() && !(key < it->first)) {
         return {it, false};
      }
      return {elements_.emplace(it, std::piecewise_construct, std::forward_as_tuple(key),
                                std::forward_as_tuple(std::forward<A>(args)...)),
              true};
   }

   iterator erase(const_iterator it) { return elements_.erase(it); }
   std::size_t erase(Key const& key) {
      auto const it = find(key);
      if (it == elements_.end()) {
         return 0;
      }
      elements_.erase(it);
      return 1;
   }

  private:
   template <class Elements>
   static auto lowerBound(Elements& elements, Key const& key) {
      return std::lower_bound(elements.begin(), elements.end(), key,
                              [](value_type const& e, Key const& k) { return e.first < k; });
   }
   // Where `key` stands, or size() if it is not there. The hint's check is inlined at every
   // lookup; the search is kept out of line, so a hit saves no registers for it.
   std::size_t place(Key const& key) const {
      std::size_t const last = lastFound_.load(std::memory_order_relaxed);
      if (last < elements_.size() && equal(elements_[last].first, key)) {
         return last;
      }
      return search(key, last);
   }
   [[gnu::noinline]] std::size_t search(Key const& key, std::size_t last) const {
      std::size_t const size = elements_.size();
      if (last + 1 < size && equal(elements_[last + 1].first, key)) {
         lastFound_.store(last + 1, std::memory_order_relaxed);
         return last + 1;
      }
      auto const it = lowerBound(elements_, key);
      if (it == elements_.end() || key < it->first) {
         return size;
      }
      auto const at = static_cast<std::size_t>(it - elements_.begin());
      lastFound_.store(at, std::memory_order_relaxed);
      return at;
   }
   // Keys that say equality themselves say it in one pass rather than two orderings.
   static bool equal(Key const& a, Key const& b) {
      if constexpr (requires { bool(a == b); }) {
         return a == b;
      } else {
         return !(a < b) && !(b < a);
      }
   }

   std::vector<value_type> elements_;
   // The place of the last key found. Lookups come in runs of one key (every CPU queue of a
   // port asks for the port's interface) or walk the keys in order (the CPU queues of a port,
   // one after the other), and then cost a comparison or two, not a search. Only a hint:
   // checked against the key, whatever changed since.
   mutable std::atomic<std::size_t> lastFound_{0};
};

}  // namespace Kiv
