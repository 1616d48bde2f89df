#include "Kiv/Type.h"

#include <algorithm>

namespace Kiv {

void TypeDesc::attributeIs(String name, Getter get, Setter set) {
   attributes_.push_back({std::move(name), std::move(get), std::move(set)});
}

void TypeDesc::operationIs(String name, std::size_t arguments, Call call) {
   operations_.push_back({std::move(name), arguments, std::move(call)});
}

TypeDesc::Attribute const* TypeDesc::attribute(String const& name) const {
   for (TypeDesc const* t = this; t; t = t->base_) {
      for (auto const& a : t->attributes_) {
         if (a.name == name) {
            return &a;
         }
      }
   }
   return nullptr;
}

TypeDesc::Operation const* TypeDesc::operation(String const& name) const {
   for (TypeDesc const* t = this; t; t = t->base_) {
      for (auto const& o : t->operations_) {
         if (o.name == name) {
            return &o;
         }
      }
   }
   return nullptr;
}

std::vector<String> TypeDesc::attributeNames() const {
   std::vector<String> out = base_ ? base_->attributeNames() : std::vector<String>();
   for (auto const& a : attributes_) {
      out.push_back(a.name);
   }
   return out;
}

std::vector<String> TypeDesc::operationNames() const {
   std::vector<String> out = base_ ? base_->operationNames() : std::vector<String>();
   for (auto const& o : operations_) {
      out.push_back(o.name);
   }
   return out;
}

bool TypeDesc::isA(TypeDesc const* other) const {
   for (TypeDesc const* t = this; t; t = t->base_) {
      if (t == other) {
         return true;
      }
   }
   return false;
}

TypeDesc const* entityTypeDesc() {
   static TypeDesc desc("Kiv::Entity");
   return &desc;
}

namespace {
std::vector<TypeDesc const*>& registry() {
   static auto* r = new std::vector<TypeDesc const*>();  // lives past static destructors
   return *r;
}
}  // namespace

void typeIs(TypeDesc const* t) {
   auto& r = registry();
   typeDel(t->fullName());
   r.push_back(t);
}

void typeDel(String const& fullName) {
   auto& r = registry();
   r.erase(std::remove_if(r.begin(), r.end(),
                          [&](TypeDesc const* t) { return t->fullName() == fullName; }),
           r.end());
}

TypeDesc const* type(String const& fullName) {
   for (TypeDesc const* t : registry()) {
      if (t->fullName() == fullName) {
         return t;
      }
   }
   return nullptr;
}

std::vector<String> typeNames() {
   std::vector<String> out;
   for (TypeDesc const* t : registry()) {
      out.push_back(t->fullName());
   }
   return out;
}

String attributeValue(Entity const& e, String const& name) {
   auto const* a = e.fwkType()->attribute(name);
   if (!a) {
      throw std::invalid_argument("unknown attribute " + name + " of " + e.fwkType()->fullName());
   }
   return a->get(e);
}

void attributeValueIs(Entity& e, String const& name, String const& value) {
   auto const* a = e.fwkType()->attribute(name);
   if (!a) {
      throw std::invalid_argument("unknown attribute " + name + " of " + e.fwkType()->fullName());
   }
   if (!a->set) {
      throw std::invalid_argument("attribute " + name + " of " + e.fwkType()->fullName() +
                                  " is read-only");
   }
   a->set(e, value);
}

String invoke(Entity& e, String const& operation, std::vector<String> const& arguments) {
   auto const* o = e.fwkType()->operation(operation);
   if (!o) {
      throw std::invalid_argument("unknown operation " + operation + " of " +
                                  e.fwkType()->fullName());
   }
   if (arguments.size() != o->arguments) {
      throw std::invalid_argument("operation " + operation + " takes " +
                                  std::to_string(o->arguments) + " arguments");
   }
   return o->call(e, arguments);
}

}  // namespace Kiv
