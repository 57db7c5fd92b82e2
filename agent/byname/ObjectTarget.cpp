// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/ObjectTarget.h"

#include <utility>

#include "Vorn/GenericIf.h"

namespace Agent {

namespace {

using Kes::Attribute;
using Kes::AttributeKind;
using Kes::GenericIf;
using Kes::OpCode;

std::string text(Kes::String const& from) { return from.str(); }

Kes::Argument const* argumentOf(Kes::Operation const& operation, std::string_view name) {
  for (Kes::Argument const& argument : operation.arguments)
    if (argument.name == name) return &argument;
  return nullptr;
}

std::string unknownArgument(Attribute const& attribute, Kes::Operation const& operation,
                            std::string const& name) {
  std::string const attributeName(attribute.name);
  if (argumentOf(operation, name) != nullptr) return "argument " + quotedPart(name) + " is given twice";
  std::string const wanted = argumentsOf(attribute);
  return attributeName + " has no argument " + quotedPart(name) + "; " +
         (wanted.empty() ? "it has none" : "it has (" + wanted + ")");
}

// What an operation complained of; called while that is being handled.
[[noreturn]] void explainFailure(Attribute const& attribute, OpCode code) {
  std::string const name(attribute.name);
  Kes::Operation const* const operation = attribute.operation(code);
  try {
    throw;
  } catch (Kes::UnknownArgumentException const& failure) {
    throw ObjectError(unknownArgument(attribute, *operation, text(failure.subject())));
  } catch (Kes::MissingArgumentException const& failure) {
    throw ObjectError(name + " lacks an argument: " + text(failure.subject()) + " of (" +
                      argumentsOf(attribute) + ")");
  } catch (Kes::TypeException const& failure) {
    Kes::Argument const* const wanted = argumentOf(*operation, failure.subject().view());
    throw ObjectError("a " + (wanted != nullptr ? std::string(wanted->type().name()) : text(failure.text())) +
                      " cannot be written as text");
  } catch (Kes::AccessException const& failure) {
    throw ObjectError(failure.what());
  } catch (Kes::ParseException const& failure) {
    bool const isOne = operation->arguments.size() == 1;
    throw ObjectError(name + (isOne ? " wants a " + std::string(operation->arguments[0].type().name()) : "") +
                      ": " + failure.what());
  } catch (Kes::Exception const& failure) {
    throw ObjectError(name + ": " + failure.what());
  }
}

// An error is explained while the agent should be looking at its queues.
constexpr std::size_t maxCounted = 500;

// Follows one step after the other.
class Search {
 public:
  Search(Vorn::CongestionData::Ptr const& recorder, Names names) : names_(names) {
    found_.value = GenericIf::Ptr(new Vorn::CongestionData::GenericIf_(recorder));
  }

  ObjectTarget follow(ObjectPath const& path) && {
    for (std::size_t i = 0; i < path.size(); ++i) {
      step(path[i]);
      if (!found_.value && i + 1 < path.size()) explainNoFurther();
    }
    return std::move(found_);
  }

 private:
  void step(PathStep const& step);
  void enterMember(std::string const& key);
  [[noreturn]] void explainNoFurther() const;
  std::string reached() const { return pathText(found_.path); }

  Names const names_;
  ObjectTarget found_{};
};

void Search::step(PathStep const& step) {
  if (isNull(*found_.value)) throw ObjectError(reached() + " is null");
  found_.declared = findAttribute(found_.value->type(), step.name, names_);
  found_.holder = std::exchange(found_.value, nullptr);
  Attribute const& attribute = found_.attribute();
  found_.path.push_back({std::string(attribute.name)});
  if (step.key) return enterMember(*step.key);
  if (attribute.kind == AttributeKind::collection || isOperation(attribute)) return;
  found_.value = perform(*found_.holder, attribute, OpCode::read, {});
}

void Search::enterMember(std::string const& key) {
  Attribute const& attribute = found_.attribute();
  if (attribute.kind != AttributeKind::collection)
    throw ObjectError(reached() + " is no collection: it takes no key");
  try {
    found_.value = found_.holder->attributeOp({attribute.identifier, OpCode::member},
                                              {{"key", Kes::toGeneric(Kes::String(key))}});
  } catch (Kes::KeyNotFoundException const&) {
    throw ObjectError("no member " + quotedPart(key) + " in " + reached() + ", which has " +
                      membersOf(*found_.holder, attribute, maxCounted));
  } catch (Kes::Exception const& failure) {
    throw ObjectError(quotedPart(key) + " is no key of " + reached() + ", which wants a " +
                      std::string(attribute.keyType().name()) + ": " + failure.what());
  }
  found_.path.back().key = key;
}

// A step follows behind a whole collection, or behind something that is called.
void Search::explainNoFurther() const {
  Attribute const& attribute = found_.attribute();
  if (isOperation(attribute))
    throw ObjectError(reached() + " is a " + std::string(kindOf(attribute)) + ": it has no attributes");
  auto const first = found_.holder->attributeIterator(attribute.identifier);
  if (!*first) throw ObjectError(reached() + " is a collection, and empty");
  throw ObjectError(reached() + " is a collection: say which member, e.g. " + reached() + '[' +
                    keyText(first->key()->strRep().view()) + ']');
}

}  // namespace

ObjectTarget findTarget(Vorn::CongestionData::Ptr const& recorder, ObjectPath const& path, Names names) {
  return Search(recorder, names).follow(path);
}

GenericIf::Ptr perform(GenericIf& holder, Attribute const& attribute, OpCode code,
                       Kes::GenericArgs const& arguments) {
  try {
    return holder.attributeOp({attribute.identifier, code}, arguments);
  } catch (Kes::Exception const&) {
    explainFailure(attribute, code);
  }
}

bool isNull(GenericIf const& generic) {
  auto const* const pointer = dynamic_cast<Kes::GenericPtrIf const*>(&generic);
  return pointer != nullptr && pointer->object() == nullptr;
}

bool isOperation(Attribute const& attribute) {
  return attribute.kind == AttributeKind::procedure || attribute.kind == AttributeKind::function;
}

std::string membersOf(GenericIf& holder, Attribute const& collection, std::size_t counted) {
  constexpr std::size_t maxNamed = 4;
  std::size_t count = 0;
  std::string named;
  for (auto at = holder.attributeIterator(collection.identifier); *at && count <= counted; ++*at) {
    if (++count > maxNamed) continue;
    named += (count == 1 ? ": " : ", ") + keyText(at->key()->strRep().view());
  }
  std::string const total = count > counted ? "more than " + std::to_string(counted) : std::to_string(count);
  return total + (count == 1 ? " member" : " members") + named + (count > maxNamed ? ", ..." : "");
}

}  // namespace Agent
