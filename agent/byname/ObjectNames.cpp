// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/ObjectNames.h"

#include <strings.h>

#include <algorithm>

#include "Kes/ByName/TypeRegistry.h"
#include "agent/byname/ObjectPath.h"
#include "agent/byname/Suggestion.h"

namespace Agent {

namespace {

bool equalButCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::vector<std::string_view> namesOf(std::vector<DeclaredAttribute> const& attributes) {
  std::vector<std::string_view> names;
  names.reserve(attributes.size());
  for (DeclaredAttribute const& declared : attributes) names.push_back(declared.attribute->name);
  return names;
}

[[noreturn]] void explainAttribute(Kes::Type const& type, std::string_view name,
                                   std::vector<std::string_view> const& names) {
  std::string const typeName(type.name());
  if (names.empty()) throw ObjectError("a " + typeName + " has no attributes");
  std::string text = "no attribute " + quotedPart(name) + " in " + typeName;
  std::string const better = suggestion(name, names);
  if (!better.empty())
    text += better;
  else if (Kes::TypeRegistry::instance().type(type.name()) != nullptr)
    text += "; 'type " + std::string(type.shortName()) + "' lists them";
  else
    text += ", which has " + std::string(names.front()) + (names.size() > 1 ? " and others" : "");
  throw ObjectError(text);
}

}  // namespace

std::vector<DeclaredAttribute> attributesOf(Kes::Type const& type) {
  std::vector<DeclaredAttribute> all;
  for (Kes::Type const* at = &type; at != nullptr; at = at->base())
    for (Kes::Attribute const& attribute : at->attributes())
      if (type.attribute(attribute.name) == &attribute) all.push_back({&attribute, at});
  return all;
}

std::string_view kindOf(Kes::Attribute const& attribute) {
  switch (attribute.kind) {
    case Kes::AttributeKind::mutableAttribute: return "mutable";
    case Kes::AttributeKind::fixedAttribute: return "fixed";
    case Kes::AttributeKind::constant: return "constant";
    case Kes::AttributeKind::procedure: return "procedure";
    case Kes::AttributeKind::function: return "function";
    case Kes::AttributeKind::collection: return attribute.owned ? "owned collection" : "collection";
  }
  return "";
}

std::string argumentsOf(std::vector<Kes::Argument> const& arguments) {
  std::string text;
  for (Kes::Argument const& argument : arguments) {
    if (!text.empty()) text += ", ";
    text += std::string(argument.name) + ": " + std::string(argument.type().name());
  }
  return text;
}

std::string argumentsOf(Kes::Attribute const& attribute) {
  Kes::Operation const* const call = attribute.operation(Kes::OpCode::call);
  return call != nullptr ? argumentsOf(call->arguments) : "";
}

DeclaredAttribute findAttribute(Kes::Type const& type, std::string_view name, Names names) {
  std::vector<DeclaredAttribute> const all = attributesOf(type);
  std::vector<DeclaredAttribute> begun;
  for (DeclaredAttribute const& declared : all) {
    if (declared.attribute->name == name) return declared;
    if (declared.attribute->name.starts_with(name)) begun.push_back(declared);
  }
  if (names == Names::completed && begun.size() == 1) return begun.front();
  explainAttribute(type, name, namesOf(all));
}

Kes::Type const& findType(std::string_view name) {
  Kes::TypeRegistry const& registry = Kes::TypeRegistry::instance();
  if (Kes::Type const* const exact = registry.type(name)) return *exact;
  std::vector<std::string_view> known;
  std::vector<Kes::Type const*> found;
  bool const isWhole = name.find(':') != std::string_view::npos;
  for (Kes::Type const* const type : registry.types()) {
    known.push_back(isWhole ? type->name() : type->shortName());
    if (equalButCase(known.back(), name)) found.push_back(type);
  }
  if (found.size() == 1) return *found.front();
  std::string const better = suggestion(name, known);
  throw ObjectError("no type " + quotedPart(name) + (better.empty() ? "; 'types' lists them" : better));
}

}  // namespace Agent
