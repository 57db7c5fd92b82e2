// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/ObjectChange.h"

#include <algorithm>

#include "Kes/ByName/GenericValue.h"
#include "agent/base/Printable.h"
#include "agent/byname/ObjectTarget.h"
#include "agent/byname/SafeChanges.h"

namespace Agent {

namespace {

using Kes::AttributeKind;
using Kes::OpCode;

constexpr std::string_view setVerb = "set ";
constexpr std::string_view callVerb = "call ";

std::string shown(Kes::GenericIf const& value) {
  Kes::String const text = value.strRep();
  return text.empty() ? "\"\"" : printable(text.view());
}

[[noreturn]] void refuse(ObjectTarget const& target, char const* change, std::string const& reason) {
  throw ObjectError(pathText(target.path) + " may not be " + change + ": " + reason);
}

// Of a value, whatever is set is set in a copy.
void refuseCopy(ObjectTarget const& target) {
  if (!target.holder->type().isValue()) return;
  ObjectPath whole = target.path;
  whole.pop_back();
  throw ObjectError("that would change a copy of " + pathText(whole) + " only: set " + pathText(whole) +
                    " itself");
}

// A smaller pool takes effect late, or not at all.
std::string remarkOn(Vorn::CongestionData const& recorder, ObjectTarget const& target) {
  Kes::U32 const held = recorder.chunkArrayCount();
  if (target.attribute().name != "numSharedChunks" || recorder.numSharedChunks() >= held) return "";
  return " (the pool holds " + std::to_string(held) + " chunks, and never shrinks)";
}

std::string set(Vorn::CongestionData::Ptr const& recorder, std::string_view request) {
  ObjectAssignment const wanted = parseAssignment(request);
  ObjectTarget const target = findTarget(recorder, wanted.path, Names::exact);
  if (!target.holder) throw ObjectError("the recorder itself is not set: name one of its attributes");
  Kes::Attribute const& attribute = target.attribute();
  if (isOperation(attribute))
    throw ObjectError(pathText(target.path) + " is a " + std::string(kindOf(attribute)) +
                      ": it is called, not set");
  Kes::String const value(wanted.value);
  if (attribute.kind == AttributeKind::mutableAttribute) refuseCopy(target);
  if (attribute.kind == AttributeKind::mutableAttribute || attribute.kind == AttributeKind::collection) {
    std::string const refusal = refusalOf(*recorder, target.declared, value);
    if (!refusal.empty()) refuse(target, "set", refusal);
  }
  perform(*target.holder, attribute, OpCode::set, {{"value", Kes::toGeneric(value)}});
  Kes::GenericIf::Ptr const now = perform(*target.holder, attribute, OpCode::read, {});
  return pathText(target.path) + " = " + shown(*now) + remarkOn(*recorder, target) + '\n';
}

std::string call(Vorn::CongestionData::Ptr const& recorder, std::string_view request) {
  ObjectCall const wanted = parseCall(request);
  ObjectTarget const target = findTarget(recorder, wanted.path, Names::exact);
  if (!target.holder) throw ObjectError("the recorder itself is not called: name one of its operations");
  Kes::Attribute const& attribute = target.attribute();
  if (!isOperation(attribute))
    throw ObjectError(pathText(target.path) + " is a " + std::string(kindOf(attribute)) +
                      " attribute: it is not called");
  std::string const refusal = refusalOf(*recorder, target.declared, /*value=*/"");
  if (!refusal.empty()) refuse(target, "called", refusal);
  Kes::GenericArgs arguments;
  for (auto const& [name, value] : wanted.arguments)
    arguments.push_back({Kes::String(name), Kes::toGeneric(Kes::String(value))});
  Kes::GenericIf::Ptr const result = perform(*target.holder, attribute, OpCode::call, arguments);
  return (result ? shown(*result) : "done") + '\n';
}

}  // namespace

bool isObjectChange(std::string_view request) {
  return request == "set" || request == "call" || request.starts_with(setVerb) ||
         request.starts_with(callVerb);
}

std::string changeObject(Vorn::CongestionData::Ptr const& recorder, std::string_view request) {
  bool const isSet = request.starts_with("set");
  request.remove_prefix(std::min(request.size(), (isSet ? setVerb : callVerb).size()));
  return isSet ? set(recorder, request) : call(recorder, request);
}

}  // namespace Agent
