#pragma once

#include <string>
#include <typeinfo>
#include <utility>

#include "Kiv/Types.h"

namespace Kiv {

// The framework's record of what it allocated, by type: the agent's memory accounting reads it.
void allocationIs(char const* typeName);
U64 allocations(char const* typeName);

template <class T>
U64 allocations() {
   return allocations(typeid(T).name());
}

// Allocates and constructs through the framework's accounting. A constructor that throws
// releases the memory (the new-expression does) and counts nothing.
template <class T, class... A>
T* allocate(A&&... args) {
   T* object = new T(std::forward<A>(args)...);
   allocationIs(typeid(T).name());
   return object;
}

}  // namespace Kiv
