// SPDX-License-Identifier: Apache-2.0
#include "Kes/ByName/TypeRegistry.h"

namespace Kes {

Attribute const* TypeNode::attribute(std::string_view name) const {
  auto const found = handles_.find(name);
  return found != handles_.end() ? found->second.attribute_ : nullptr;
}

void TypeNode::typeIs(Type const& type) noexcept {
  type_ = &type;
  for (Attribute const& attribute : type.attributes())
    handles_.find(attribute.name)->second.attribute_ = &attribute;
}

TypeRegistry::TypeRegistry() {
  Type const* const base = &ptrInterfaceType();
  typesAre({&base, 1});
}

TypeRegistry& TypeRegistry::instance() {
  static TypeRegistry registry;
  return registry;
}

AttributeHandle const& TypeNode::attributeHandle(std::string_view name) {
  auto const found = handles_.find(name);
  return found != handles_.end() ? found->second : handles_[std::string(name)];
}

TypeNode& TypeRegistry::typeNode(std::string_view name) {
  auto const found = nodes_.find(name);
  return found != nodes_.end() ? found->second : nodes_[std::string(name)];
}

Type const* TypeRegistry::type(std::string_view name) const {
  auto const found = nodes_.find(name);
  return found != nodes_.end() ? found->second.type() : nullptr;
}

void TypeRegistry::typesAre(std::span<Type const* const> types) {
  // First all that can fail: nodes, handles and room.
  for (Type const* const type : types) {
    TypeNode& node = typeNode(type->name());
    assertThat(node.type() == nullptr, "Kes", "TypeRegistry::typesAre", "node.type() == nullptr");
    for (Attribute const& attribute : type->attributes()) node.attributeHandle(attribute.name);
  }
  types_.reserve(types_.size() + types.size());
  for (Type const* const type : types) {
    nodes_.find(type->name())->second.typeIs(*type);
    types_.push_back(type);
  }
}

IntrospectionReactor::Ptr const& IntrospectionReactor::global() {
  static Ptr const reactor = makePtr<IntrospectionReactor>();
  return reactor;
}

void IntrospectionReactor::namespaceIs(std::string_view name, std::span<Type const* const> types) {
  for (Type const* const type : types)
    assertThat(type->name().starts_with(name) && type->name().substr(name.size()).starts_with("::"), "Kes",
               "IntrospectionReactor::namespaceIs", "type->name().starts_with(name)");
  TypeRegistry::instance().typesAre(types);
}

}  // namespace Kes
