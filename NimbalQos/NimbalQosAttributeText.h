#pragma once

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "Kiv/Ptr.h"
#include "Kiv/Type.h"
#include "Oskel/QosClassCounterData.h"

namespace Nimbal {

// Text forms of the library's attributes for the framework's generic attribute interface.

inline Kiv::String attributeText(Oskel::QosClassCounterData const& c) {
   std::ostringstream os;
   os << "pktHits " << c.pktHits() << " drop " << c.drop() << " byteHits " << c.byteHits()
      << " dropBytes " << c.dropBytes();
   return os.str();
}

template <class T>
Kiv::String attributeText(Kiv::Ptr<T> const& p) {
   return p ? "set" : "null";
}

template <class T>
Kiv::String attributeText(T const& v) {
   return Kiv::toString(v);
}

// "[key=value, ...]" for a map of values, "[key, ...]" for a collection of records, in key
// order so that the text of a hash collection is stable.
template <class C>
Kiv::String collectionText(C const& col) {
   using Key = typename C::key_type;
   std::vector<std::pair<Key, Kiv::String>> items;
   for (auto const& kv : col) {
      std::ostringstream os;
      os << kv.first;
      if constexpr (!C::ofRecords) {
         os << "=" << attributeText(kv.second);
      }
      items.emplace_back(kv.first, os.str());
   }
   std::sort(items.begin(), items.end(),
             [](auto const& a, auto const& b) { return a.first < b.first; });
   Kiv::String out = "[";
   for (std::size_t i = 0; i < items.size(); ++i) {
      out += (i ? ", " : "") + items[i].second;
   }
   return out + "]";
}

}  // namespace Nimbal
