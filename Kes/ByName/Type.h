// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <vector>

#include "Kes/ByName/GenericIf.h"
#include "Kes/Export.h"

// What a type consists of, as by-name access sees it. Each type has one table of attributes (TypeTable.h),
// the only place where they are listed; the registry, access by name and descriptions for people all read it.
namespace Kes {

// A function, since types refer to each other in circles.
using TypeGetter = Type const& (*)();

struct Argument {
  std::string_view name;
  TypeGetter type;
};

struct Operation;

// An operation about to run.
struct Call {
  Type const& type;  // whose operation it is
  GenericIf* self;   // null for a constructor
  Operation const& operation;
  GenericArgs const& args;
};

struct Operation {
  OpCode code;
  TypeGetter result;  // null: none
  std::vector<Argument> arguments;
  GenericIf::Ptr (*run)(Call const& call);
};

enum class AttributeKind : U8 {
  mutableAttribute,
  fixedAttribute,  // of the object, for its life
  constant,        // of the type
  procedure,       // an operation without arguments
  function,        // an operation with named arguments
  collection       // members under keys
};

struct KES_EXPORT Attribute {
  std::string_view name;
  AttributeKind kind;
  TypeGetter type;     // of the value, the result (null: none) or the members
  TypeGetter keyType;  // of collections
  bool owned;          // collections whose members live and die with them
  std::vector<Operation> operations;
  std::unique_ptr<GenericIterator> (*iterate)(GenericIf& self);  // of collections
  AttributeId identifier = 0;                                    // given by the type

  // Null when the attribute has no such operation.
  Operation const* operation(OpCode code) const;
};

class KES_EXPORT Type {
 public:
  struct Definition {
    std::string_view name;            // with its namespace; every name here is a literal
    TypeGetter base = nullptr;        // of object types
    std::string_view keyAttribute{};  // the attribute that is the object's key where it is a member
    std::vector<Attribute> attributes{};
    Operation constructor{};  // no `run`: cannot be made by name
    GenericIf::Ptr (*wrap)(PtrInterface const* object, bool constant) = nullptr;  // of object types
  };

  // Numbers the attributes: from 2 in value types and in the base of all objects, 128 further in each type
  // that derives.
  explicit Type(Definition definition);
  Type(Type const&) = delete;
  Type& operator=(Type const&) = delete;

  std::string_view name() const { return definition_.name; }
  // Without the namespace.
  std::string_view shortName() const;
  bool isValue() const { return definition_.wrap == nullptr; }
  // Whether it has attributes to be reached by name: numbers and texts have none, nor have opaque objects.
  bool hasGenericIf() const { return !attributes().empty(); }
  // Null for values and for the base of all objects.
  Type const* base() const { return definition_.base != nullptr ? &definition_.base() : nullptr; }
  bool derivesFrom(Type const& other) const;
  std::string_view keyAttribute() const { return definition_.keyAttribute; }

  // The type's own, in declared order, and whether there are any.
  std::vector<Attribute> const& attributes() const { return definition_.attributes; }
  // By name or identifier, inherited ones too; null when there is none.
  Attribute const* attribute(std::string_view name) const;
  Attribute const* attribute(AttributeId identifier) const;

  // The arguments that construct() takes; null for a type that cannot be made by name.
  std::vector<Argument> const* constructorArguments() const;
  // Makes a new instance. Of a value type: from its text, as argument "value". TypeException for a type that
  // cannot be made by name.
  GenericIf::Ptr construct(GenericArgs const& args) const;

  GenericIf::Ptr wrap(PtrInterface const* object, bool constant) const {
    return definition_.wrap(object, constant);
  }

 private:
  KES_LOCAL AttributeId firstId() const;

  Definition definition_;
};

// "Kes::PtrInterface", the base of all objects.
KES_EXPORT Type const& ptrInterfaceType();

}  // namespace Kes
