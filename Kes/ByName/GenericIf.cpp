// SPDX-License-Identifier: Apache-2.0
#include "Kes/ByName/GenericIf.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "Kes/ByName/TypeRegistry.h"
#include "Kes/ByName/TypeTable.h"
#include "Kes/Format.h"
#include "Kes/Strep.h"

namespace Kes {

std::string_view nameOf(OpCode code) {
  static constexpr std::array<std::string_view, 16> names = {
      "read",       "set",          "inc", "call", "member", "memberIs",          "newMember",
      "memberDel",  "memberDelAll", "enq", "deq",  "count",  "modificationCount", "metadata",
      "metadataIs", "notify"};
  auto const index = static_cast<std::size_t>(code);
  return index < names.size() ? names[index] : "unknown";
}

GenericIterator::~GenericIterator() = default;

namespace {

Attribute const& attributeOf(Type const& type, AttributeId identifier) {
  Attribute const* const attribute = type.attribute(identifier);
  if (attribute == nullptr)
    throw UnknownAttributeException(format("no attribute %u in %s", identifier, type.name()),
                                    valueToStrep(identifier));
  return *attribute;
}

[[noreturn]] void refuse(Type const& type, Attribute const& attribute, std::string_view operation) {
  if (operation == nameOf(OpCode::set))
    throw ReadOnlyException(format("attribute %s of %s cannot be set", attribute.name, type.name()),
                            attribute.name);
  throw UnknownOperationException(
      format("attribute %s of %s has no operation %s", attribute.name, type.name(), operation),
      attribute.name);
}

void expectMember(GenericIf const* member, GenericIf const& key, Attribute const& attribute) {
  auto const* const pointer = dynamic_cast<GenericPtrIf const*>(member);
  if (pointer == nullptr || pointer->object() != nullptr) return;
  throw KeyNotFoundException(format("no member %s in %s", key.strRep(), attribute.name), key.strRep());
}

}  // namespace

AttributeId GenericIf::attributeId(std::string_view name) const {
  TypeRegistry& registry = TypeRegistry::instance();
  for (Type const* at = &type(); at != nullptr; at = at->base()) {
    Attribute const* const attribute = registry.typeNode(at->name()).attribute(name);
    if (attribute != nullptr) return attribute->identifier;
  }
  throw UnknownAttributeException(format("no attribute '%s' in %s", name, type().name()), name);
}

GenericIf::Ptr GenericIf::attributeOp(AttributeOp op, GenericArgs const& args) {
  Attribute const& attribute = attributeOf(type(), op.attribute);
  Operation const* const operation = attribute.operation(op.code);
  if (operation == nullptr) refuse(type(), attribute, nameOf(op.code));
  Ptr result = operation->run({type(), this, *operation, args});
  if (op.code == OpCode::member) expectMember(result.get(), *args.front().value, attribute);
  return result;
}

std::unique_ptr<GenericIterator> GenericIf::attributeIterator(AttributeId identifier) {
  Attribute const& attribute = attributeOf(type(), identifier);
  if (attribute.iterate == nullptr) refuse(type(), attribute, "iterator");
  return attribute.iterate(*this);
}

void detail::match(Call const& call, std::span<GenericIf const*> matched) {
  std::vector<Argument> const& wanted = call.operation.arguments;
  for (GenericArg const& given : call.args) {
    auto const argument = std::find_if(wanted.begin(), wanted.end(), [&](Argument const& candidate) {
      return given.name.view() == candidate.name;
    });
    std::size_t const index = static_cast<std::size_t>(argument - wanted.begin());
    if (argument == wanted.end() || matched[index] != nullptr)
      throw UnknownArgumentException(call.type.shortName(), given.name);
    if (given.value == nullptr) throw TypeException(argument->type().shortName(), given.name);
    matched[index] = given.value.get();
  }
  for (std::size_t i = 0; i < wanted.size(); ++i)
    if (matched[i] == nullptr)
      throw MissingArgumentException(format("argument %s is missing", wanted[i].name), wanted[i].name);
}

std::vector<U32> detail::sorted(std::size_t count, std::function<bool(U32, U32)> const& less) {
  std::vector<U32> order(count);
  std::iota(order.begin(), order.end(), U32{0});
  std::stable_sort(order.begin(), order.end(), less);
  return order;
}

GenericIf::Ptr GenericIf::genericIfListConstructor(GenericArgs const& args) const {
  return type().construct(args);
}

String GenericIf::strRep() const { throw TypeException(type().shortName(), "strRep"); }

void GenericIf::valIs(GenericIf const&) { throw TypeException(type().shortName(), "value"); }

GenericPtrIf::GenericPtrIf(PtrInterface const* object, bool constant, Type const& type)
    : object_(object), type_(&type), constant_(constant) {}

GenericIf::Ptr GenericPtrIf::clone() const { return type_->wrap(object(), constant_); }

namespace {
Type const& bestType(PtrInterface const* object, Type const& declared) {
  TypeRegistry const& registry = TypeRegistry::instance();  // made now, also for null: later nothing may fail
  Type const* const own = object != nullptr ? registry.type(object->fwkType()) : nullptr;
  return own != nullptr && own->derivesFrom(declared) ? *own : declared;
}
}  // namespace

void GenericPtrIf::objectIs(PtrInterface const* object) noexcept {
  type_ = &bestType(object, *type_);
  object_ = Kes::Ptr<PtrInterface const>(object);
}

GenericIf::Ptr genericIfFor(PtrInterface const* object, bool constant, Type const& declared) {
  return bestType(object, declared).wrap(object, constant);
}

}  // namespace Kes
