#include "Kiv/Allocator.h"

#include <map>
#include <mutex>

namespace Kiv {

namespace {
struct Accounts {
   std::mutex mutex;
   std::map<std::string, U64> counts;
};
Accounts& accounts() {
   static auto* a = new Accounts();  // lives past static destructors
   return *a;
}
}  // namespace

void allocationIs(char const* typeName) {
   auto& a = accounts();
   std::lock_guard<std::mutex> lock(a.mutex);
   ++a.counts[typeName];
}

U64 allocations(char const* typeName) {
   auto& a = accounts();
   std::lock_guard<std::mutex> lock(a.mutex);
   auto it = a.counts.find(typeName);
   return it == a.counts.end() ? 0 : it->second;
}

}  // namespace Kiv
