// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/ObjectWalk.h"

#include <algorithm>
#include <vector>

#include "agent/base/Printable.h"

namespace Agent {

namespace {

using Kes::Attribute;
using Kes::AttributeKind;
using Kes::GenericIf;
using Kes::OpCode;
using Kes::U32;
using Group = ObjectOutput::Group;

GenericIf::Ptr read(GenericIf& holder, Attribute const& attribute) {
  return perform(holder, attribute, OpCode::read, {});
}

// The type, and of whose log it is part.
std::string describe(GenericIf& object) {
  std::string text(object.type().name());
  Attribute const* const intfId = object.type().attribute("intfId");
  if (intfId == nullptr) return text;
  Kes::String const name = read(object, *intfId)->strRep();
  return name.empty() ? text : text + " of " + printable(name.view());
}

bool isPlain(Attribute const& attribute) {
  return !isOperation(attribute) && attribute.kind != AttributeKind::collection && attribute.type().isValue();
}

class Walk {
 public:
  explicit Walk(ObjectOutput& output) : output_(output) {}

  void attribute(GenericIf& holder, Attribute const& attribute, U32 depth);
  void collection(GenericIf& holder, Attribute const& attribute, U32 depth);
  void node(GenericIf& found, U32 depth, bool isMember);

 private:
  void object(GenericIf& object, U32 depth);
  void summary(GenericIf& object);

  ObjectOutput& output_;
  std::vector<Kes::Type const*> entered_;
};

void Walk::node(GenericIf& found, U32 depth, bool isMember) {
  bool const isOnTheWay = std::find(entered_.begin(), entered_.end(), &found.type()) != entered_.end();
  if (found.type().isValue())
    output_.value(found);
  else if (isNull(found))
    output_.null();
  else if (isOnTheWay || (depth == 0 && !isMember))
    output_.reference(describe(found));
  else if (depth == 0)
    summary(found);
  else
    object(found, depth);
}

void Walk::object(GenericIf& object, U32 depth) {
  std::vector<DeclaredAttribute> const all = attributesOf(object.type());
  std::size_t width = 0;
  for (auto const& [attribute, type] : all)
    if (!isOperation(*attribute)) width = std::max(width, attribute->name.size());
  entered_.push_back(&object.type());
  output_.begin(Group::object, object.type().name(), width);
  for (auto const& [attribute, type] : all) {
    if (isOperation(*attribute)) continue;
    output_.name(attribute->name);
    this->attribute(object, *attribute, depth - 1);
  }
  output_.end(Group::object);
  entered_.pop_back();
}

void Walk::summary(GenericIf& object) {
  output_.begin(Group::summary, object.type().name(), 0);
  for (auto const& [attribute, type] : attributesOf(object.type())) {
    if (!isPlain(*attribute)) continue;
    output_.name(attribute->name);
    output_.value(*read(object, *attribute));
  }
  output_.end(Group::summary);
}

void Walk::attribute(GenericIf& holder, Attribute const& attribute, U32 depth) {
  if (attribute.kind != AttributeKind::collection)
    node(*read(holder, attribute), depth, /*isMember=*/false);
  else if (depth == 0)
    output_.members(holder, attribute);
  else
    collection(holder, attribute, depth);
}

void Walk::collection(GenericIf& holder, Attribute const& attribute, U32 depth) {
  std::size_t count = 0;
  std::size_t width = 0;
  for (auto at = holder.attributeIterator(attribute.identifier); *at; ++*at, ++count)
    width = std::max(width, keyText(at->key()->strRep().view()).size());
  std::string const total = std::to_string(count) + (count == 1 ? " member, " : " members, ");
  std::string const kind =
      std::string(attribute.keyType().name()) + " -> " + std::string(attribute.type().name());
  output_.begin(Group::collection, total + kind, width);
  for (auto at = holder.attributeIterator(attribute.identifier); *at; ++*at) {
    output_.name(at->key()->strRep().view());
    node(*at->value(), depth - 1, /*isMember=*/true);
  }
  output_.end(Group::collection);
}

}  // namespace

void walk(ObjectTarget const& target, U32 depth, ObjectOutput& output) {
  Walk walk(output);
  if (target.value)
    walk.node(*target.value, depth, /*isMember=*/false);
  else
    walk.collection(*target.holder, target.attribute(), depth);
}

}  // namespace Agent
