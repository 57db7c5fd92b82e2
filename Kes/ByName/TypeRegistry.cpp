#include "Kes/ByName/TypeRegistry.h"

namespace Kes {

Attribute const* TypeNode::attribute(std::string_view name) const {
  auto const found = handles_.find(name);
  return found != handles_.end() ? found->second.attribute_ : nullptr;
}

void TypeNode::typeIs(Type const& type) {
  type_ = &type;
  for (Attribute const& attribute : type.attributes()) handles_[attribute.name].attribute_ = &attribute;
}

TypeRegistry::TypeRegistry() { typeIs(ptrInterfaceType()); }

TypeRegistry& TypeRegistry::instance() {
  static TypeRegistry registry;
  return registry;
}

TypeNode& TypeRegistry::typeNode(std::string_view name) { return nodes_[name]; }

Type const* TypeRegistry::type(std::string_view name) const {
  auto const found = nodes_.find(name);
  return found != nodes_.end() ? found->second.type() : nullptr;
}

void TypeRegistry::typeIs(Type const& type) {
  TypeNode& node = typeNode(type.name());
  assertThat(node.type() == nullptr, "Kes", "TypeRegistry::typeIs", "node.type() == nullptr");
  node.typeIs(type);
  types_.push_back(&type);
}

IntrospectionReactor::Ptr const& IntrospectionReactor::global() {
  static Ptr const reactor = makePtr<IntrospectionReactor>();
  return reactor;
}

void IntrospectionReactor::namespaceIs(std::string_view name, std::span<Type const* const> types) {
  for (Type const* const type : types) {
    assertThat(type->name().starts_with(name) && type->name().substr(name.size()).starts_with("::"), "Kes",
               "IntrospectionReactor::namespaceIs", "type->name().starts_with(name)");
    TypeRegistry::instance().typeIs(*type);
  }
}

}  // namespace Kes
