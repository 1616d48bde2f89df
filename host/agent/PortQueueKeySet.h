#pragma once

#include <bit>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <map>
#include <set>

#include "Kiv/Types.h"
#include "Oskel/ModIdPortQueueKey.h"

namespace NimbalHost {

// A set of (module id, port, queue) keys held as a word of queue bits under each (module id,
// port). The agent enters a switch's keys one port's queues after the other, tens of thousands
// at boot: a key then costs a bit and a comparison with the port entered last, not a heap node.
// Queues above 63 are kept apart, one by one. Walked in key order, the queues above 63 last.
class PortQueueKeySet {
   using Ports = std::map<U64, U64>;  // (module id, port) to its queues' bits
   using Wide = std::set<Oskel::ModIdPortQueueKey>;

  public:
   using Key = Oskel::ModIdPortQueueKey;
   using value_type = Key;

   class const_iterator {
     public:
      using iterator_category = std::forward_iterator_tag;
      using value_type = Key;
      using difference_type = std::ptrdiff_t;
      using pointer = void;
      using reference = Key;  // made from the bits: given by value

      const_iterator() = default;
      Key operator*() const {
         if (port_ != portsEnd_) {
            return Key(static_cast<U32>(port_->first >> 32), static_cast<U32>(port_->first),
                       static_cast<U32>(std::countr_zero(bits_)));
         }
         return *wide_;
      }
      const_iterator& operator++() {
         if (port_ == portsEnd_) {
            ++wide_;
            return *this;
         }
         bits_ &= bits_ - 1;
         if (bits_ == 0 && ++port_ != portsEnd_) {
            bits_ = port_->second;
         }
         return *this;
      }
      const_iterator operator++(int) {
         const_iterator const was = *this;
         ++*this;
         return was;
      }
      bool operator==(const_iterator const& o) const {
         return port_ == o.port_ && bits_ == o.bits_ && wide_ == o.wide_;
      }

     private:
      friend class PortQueueKeySet;
      const_iterator(Ports::const_iterator port, Ports::const_iterator portsEnd,
                     Wide::const_iterator wide)
          : port_(port),
            portsEnd_(portsEnd),
            bits_(port != portsEnd ? port->second : 0),
            wide_(wide) {}
      Ports::const_iterator port_;
      Ports::const_iterator portsEnd_;
      U64 bits_ = 0;
      Wide::const_iterator wide_;
   };
   using iterator = const_iterator;

   PortQueueKeySet() = default;
   PortQueueKeySet(std::initializer_list<Key> keys) {
      for (Key const& key : keys) {
         insert(key);
      }
   }
   // The port entered last points into the set it was found in: a copy finds its own.
   PortQueueKeySet(PortQueueKeySet const& o) : ports_(o.ports_), wide_(o.wide_), size_(o.size_) {}
   PortQueueKeySet& operator=(PortQueueKeySet const& o) {
      ports_ = o.ports_;
      wide_ = o.wide_;
      size_ = o.size_;
      lastBits_ = nullptr;
      return *this;
   }

   // True when the key was not in the set.
   bool insert(Key const& key) {
      if (key.queue() >= queueBits) {
         bool const made = wide_.insert(key).second;
         size_ += made ? 1 : 0;
         return made;
      }
      U64& bits = portBits(portOf(key));
      U64 const bit = U64(1) << key.queue();
      if (bits & bit) {
         return false;
      }
      bits |= bit;
      ++size_;
      return true;
   }
   std::size_t erase(Key const& key) {
      if (key.queue() >= queueBits) {
         std::size_t const gone = wide_.erase(key);
         size_ -= gone;
         return gone;
      }
      U64 const port = portOf(key);
      U64* const bits = foundBits(*this, port);
      U64 const bit = U64(1) << key.queue();
      if (!bits || !(*bits & bit)) {
         return 0;
      }
      lastPort_ = port;
      lastBits_ = bits;
      *bits &= ~bit;
      --size_;
      if (*bits == 0) {
         ports_.erase(port);
         lastBits_ = nullptr;
      }
      return 1;
   }
   std::size_t count(Key const& key) const {
      if (key.queue() >= queueBits) {
         return wide_.count(key);
      }
      U64 const* const bits = foundBits(*this, portOf(key));
      return bits ? (*bits >> key.queue()) & 1 : 0;
   }
   std::size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }

   const_iterator begin() const {
      return const_iterator(ports_.begin(), ports_.end(), wide_.begin());
   }
   const_iterator end() const { return const_iterator(ports_.end(), ports_.end(), wide_.end()); }

   // No port is kept without a queue: equal sets hold equal words.
   bool operator==(PortQueueKeySet const& o) const {
      return size_ == o.size_ && ports_ == o.ports_ && wide_ == o.wide_;
   }

  private:
   static constexpr U32 queueBits = 64;
   static U64 portOf(Key const& key) { return (U64(key.modId()) << 32) | key.port(); }
   // The port's bits, or null: the port entered last is tried before the map.
   template <class Self>
   static auto foundBits(Self& self, U64 port) -> decltype(&self.ports_.begin()->second) {
      if (self.lastBits_ && self.lastPort_ == port) {
         return self.lastBits_;
      }
      auto const it = self.ports_.find(port);
      return it != self.ports_.end() ? &it->second : nullptr;
   }
   U64& portBits(U64 port) {
      if (!lastBits_ || lastPort_ != port) {
         lastBits_ = &ports_.try_emplace(port, 0).first->second;
         lastPort_ = port;
      }
      return *lastBits_;
   }

   Ports ports_;
   Wide wide_;
   std::size_t size_ = 0;
   // The port entered or removed from last; a map's elements stay where they are.
   U64 lastPort_ = 0;
   U64* lastBits_ = nullptr;
};

}  // namespace NimbalHost
