// SPDX-License-Identifier: Apache-2.0
#include "Kes/ByName/Type.h"

#include <algorithm>

#include "Kes/ByName/TypeTable.h"

namespace Kes {

Operation const* Attribute::operation(OpCode code) const {
  auto const found = std::find_if(operations.begin(), operations.end(),
                                  [&](Operation const& operation) { return operation.code == code; });
  return found != operations.end() ? &*found : nullptr;
}

Type::Type(Definition definition) : definition_(std::move(definition)) {
  AttributeId next = firstId();
  for (Attribute& attribute : definition_.attributes) attribute.identifier = next++;
}

AttributeId Type::firstId() const {
  constexpr AttributeId first = 2;
  constexpr AttributeId step = 128;
  return base() != nullptr ? base()->firstId() + step : first;
}

std::string_view Type::shortName() const {
  std::size_t const colon = name().rfind(':');
  return colon == std::string_view::npos ? name() : name().substr(colon + 1);
}

bool Type::derivesFrom(Type const& other) const {
  return this == &other || (base() != nullptr && base()->derivesFrom(other));
}

Attribute const* Type::attribute(std::string_view name) const {
  for (Attribute const& attribute : attributes())
    if (attribute.name == name) return &attribute;
  return base() != nullptr ? base()->attribute(name) : nullptr;
}

Attribute const* Type::attribute(AttributeId identifier) const {
  if (!attributes().empty() && identifier >= attributes().front().identifier) {
    std::size_t const index = identifier - attributes().front().identifier;
    return index < attributes().size() ? &attributes()[index] : nullptr;
  }
  return base() != nullptr ? base()->attribute(identifier) : nullptr;
}

std::vector<Argument> const* Type::constructorArguments() const {
  return definition_.constructor.run != nullptr ? &definition_.constructor.arguments : nullptr;
}

GenericIf::Ptr Type::construct(GenericArgs const& args) const {
  if (definition_.constructor.run == nullptr) throw TypeException(shortName(), "constructor");
  return definition_.constructor.run({*this, nullptr, definition_.constructor, args});
}

Type const& ptrInterfaceType() {
  using Define = Define<PtrInterface>;
  static Type const type(
      {.name = "Kes::PtrInterface",
       .attributes =
           {
               Define::function<&PtrInterface::hasNotificationActiveIs>("hasNotificationActiveIs", "on"),
               Define::function<&PtrInterface::kesDoZombieReactors>("kesDoZombieReactors", "on"),
           },
       .wrap = [](PtrInterface const* object, bool constant) {
         return GenericIf::Ptr(new GenericPtrIf(object, constant, ptrInterfaceType()));
       }});
  return type;
}

}  // namespace Kes
