#pragma once

#include <functional>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "Kiv/Entity.h"

namespace Kiv {

// Text form of attribute values for the generic attribute interface.
template <class T>
String toString(T const& v) {
   if constexpr (std::is_same_v<T, bool>) {
      return v ? "true" : "false";
   } else if constexpr (std::is_same_v<T, U8> || std::is_same_v<T, signed char>) {
      return std::to_string(static_cast<int>(v));
   } else if constexpr (std::is_arithmetic_v<T>) {
      return std::to_string(v);
   } else {
      std::ostringstream os;
      os << v;
      return os.str();
   }
}

template <class T>
T fromString(String const& s) {
   if constexpr (std::is_same_v<T, bool>) {
      if (s == "true" || s == "1") {
         return true;
      }
      if (s == "false" || s == "0") {
         return false;
      }
      throw std::invalid_argument("not a bool: " + s);
   } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
      // A value that does not fit the type is refused, never wrapped into another one.
      std::size_t used = 0;
      unsigned long long v = 0;
      try {
         v = std::stoull(s, &used, 0);
      } catch (std::logic_error const&) {
         used = 0;
      }
      if (used == 0 || used != s.size() || s.find('-') != String::npos ||
          v > std::numeric_limits<T>::max()) {
         throw std::invalid_argument("not an unsigned number: " + s);
      }
      return static_cast<T>(v);
   } else if constexpr (std::is_integral_v<T>) {
      std::size_t used = 0;
      long long v = 0;
      try {
         v = std::stoll(s, &used, 0);
      } catch (std::logic_error const&) {
         used = 0;
      }
      if (used == 0 || used != s.size() || v < std::numeric_limits<T>::min() ||
          v > std::numeric_limits<T>::max()) {
         throw std::invalid_argument("not a number: " + s);
      }
      return static_cast<T>(v);
   } else if constexpr (std::is_floating_point_v<T>) {
      return static_cast<T>(std::stod(s));
   } else {
      return T(s);
   }
}

// The framework's description of a type: its full name, its base, and the attributes and
// operations reachable by name.
class TypeDesc {
  public:
   using Getter = std::function<String(Entity const&)>;
   using Setter = std::function<void(Entity&, String const&)>;
   using Call = std::function<String(Entity&, std::vector<String> const&)>;

   struct Attribute {
      String name;
      Getter get;
      Setter set;  // empty for read-only attributes
   };
   struct Operation {
      String name;
      std::size_t arguments;
      Call call;
   };

   explicit TypeDesc(String fullName, TypeDesc const* base = nullptr)
       : fullName_(std::move(fullName)), base_(base) {}

   String const& fullName() const { return fullName_; }
   TypeDesc const* base() const { return base_; }

   void attributeIs(String name, Getter get, Setter set = Setter());
   void operationIs(String name, std::size_t arguments, Call call);

   // Looks in this type, then its bases.
   Attribute const* attribute(String const& name) const;
   Operation const* operation(String const& name) const;
   std::vector<String> attributeNames() const;  // bases first, each in declared order
   std::vector<String> operationNames() const;
   bool isA(TypeDesc const* other) const;

  private:
   String fullName_;
   TypeDesc const* base_;
   std::vector<Attribute> attributes_;
   std::vector<Operation> operations_;
};

TypeDesc const* entityTypeDesc();

// The registry of types by full name.
void typeIs(TypeDesc const* type);
void typeDel(String const& fullName);
TypeDesc const* type(String const& fullName);
std::vector<String> typeNames();  // in registration order

// The generic attribute interface. Unknown names and bad values throw std::invalid_argument.
String attributeValue(Entity const& e, String const& name);
void attributeValueIs(Entity& e, String const& name, String const& value);
String invoke(Entity& e, String const& operation, std::vector<String> const& arguments);

}  // namespace Kiv

namespace Kiv {

// Declares an attribute of T from typed accessors; values travel as text.
template <class T, class Get>
void readOnlyAttributeIs(TypeDesc& d, String name, Get get) {
   d.attributeIs(std::move(name),
                 [get](Entity const& e) { return toString(get(dynamic_cast<T const&>(e))); });
}

template <class T, class V, class Get, class Set>
void attributeIs(TypeDesc& d, String name, Get get, Set set) {
   d.attributeIs(
       std::move(name), [get](Entity const& e) { return toString(get(dynamic_cast<T const&>(e))); },
       [set](Entity& e, String const& s) { set(dynamic_cast<T&>(e), fromString<V>(s)); });
}

template <class T, class Fn>
void operationIs(TypeDesc& d, String name, std::size_t arguments, Fn fn) {
   d.operationIs(std::move(name), arguments, [fn](Entity& e, std::vector<String> const& args) {
      return fn(dynamic_cast<T&>(e), args);
   });
}

}  // namespace Kiv
