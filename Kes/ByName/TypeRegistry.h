// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Kes/ByName/Type.h"
#include "Kes/Export.h"
#include "Kes/Ptr.h"

namespace Kes {

// An attribute by name, for those who look it up once and use it often. It exists before its type is
// registered, and tells the attribute from then on.
class AttributeHandle {
 public:
  // Null until the type is registered.
  Attribute const* attribute() const { return attribute_; }

 private:
  friend class TypeNode;
  Attribute const* attribute_ = nullptr;
};

// A type by name, registered or yet to be.
class KES_EXPORT TypeNode {
 public:
  // Null until the type is registered.
  Type const* type() const { return type_; }

  // Makes the handle if there is none. It lives as long as the process.
  AttributeHandle const& attributeHandle(std::string_view name);
  // The type's own attribute of a name; null when there is none, or the type is not registered.
  Attribute const* attribute(std::string_view name) const;

 private:
  friend class TypeRegistry;
  KES_LOCAL void typeIs(Type const& type) noexcept;  // each of its attributes has a handle

  Type const* type_ = nullptr;
  std::map<std::string, AttributeHandle, std::less<>> handles_;
};

// Every type of the process that was registered, by name. There is one registry, made on first use; types are
// registered for good, so the library that owns them stays loaded. One thread uses it.
class KES_EXPORT TypeRegistry {
 public:
  static TypeRegistry& instance();

  // The node of a name, made if there is none.
  TypeNode& typeNode(std::string_view name);
  // The registered type of a name; null when there is none.
  Type const* type(std::string_view name) const;
  // In order of registration. The base of all objects is always there, and first.
  std::span<Type const* const> types() const { return types_; }

 private:
  friend class IntrospectionReactor;
  KES_LOCAL TypeRegistry();
  KES_LOCAL void typesAre(std::span<Type const* const> types);

  std::map<std::string, TypeNode, std::less<>> nodes_;
  std::vector<Type const*> types_;
};

// Takes the registrations of libraries, as long as somebody listens (its handler is active, as it is at
// first).
class KES_EXPORT IntrospectionReactor final : public PtrInterface {
 public:
  using Ptr = Kes::Ptr<IntrospectionReactor>;

  // The process's one.
  static Ptr const& global();

  bool handlerActive() const { return handlerActive_; }
  void handlerActiveIs(bool active) { handlerActive_ = active; }

  // Registers the types of one namespace, in this order. An assertion if a name is of another one, or has
  // been registered by another type. All of them, or, for lack of memory, none.
  void namespaceIs(std::string_view name, std::span<Type const* const> types);

 private:
  bool handlerActive_ = true;
};

}  // namespace Kes
