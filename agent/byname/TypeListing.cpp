// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/TypeListing.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "Kes/ByName/TypeRegistry.h"
#include "agent/base/JsonStream.h"
#include "agent/byname/ObjectNames.h"

namespace Agent {

namespace {

using Kes::Attribute;
using Kes::Type;
using Row = std::vector<std::string>;

std::string nameOf(Kes::TypeGetter type) { return type != nullptr ? std::string(type().name()) : "-"; }

std::string_view valueOrObject(Type const& type) { return type.isValue() ? "value" : "object"; }

std::string orDash(std::string const& text) { return text.empty() ? "-" : text; }

// Rows with their columns aligned, behind an indent. A row of one is a heading.
void writeColumns(std::FILE* out, std::vector<Row> const& rows, int indent) {
  std::vector<std::size_t> widths;
  for (Row const& row : rows) {
    if (row.size() == 1) continue;
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (Row const& row : rows) {
    std::fprintf(out, "%*s", indent, "");
    for (std::size_t i = 0; i + 1 < row.size(); ++i)
      std::fprintf(out, "%-*s  ", static_cast<int>(widths[i]), row[i].c_str());
    std::fprintf(out, "%s\n", row.back().c_str());
  }
}

Row rowOf(Attribute const& attribute) {
  std::string const members = attribute.keyType != nullptr ? nameOf(attribute.keyType) + " -> " : "";
  return {std::to_string(attribute.identifier), std::string(attribute.name), std::string(kindOf(attribute)),
          members + nameOf(attribute.type), orDash(argumentsOf(attribute))};
}

void writeArguments(JsonStream& json, std::vector<Kes::Argument> const& arguments) {
  json.beginArray();
  for (Kes::Argument const& argument : arguments) {
    json.beginObject();
    json.key("name");
    json.text(argument.name);
    json.key("type");
    json.text(argument.type().name());
    json.endObject();
  }
  json.endArray();
}

void writeType(JsonStream& json, std::string_view key, Type const* type) {
  json.key(key);
  if (type != nullptr)
    json.text(type->name());
  else
    json.null();
}

void writeHeading(JsonStream& json, Type const& type) {
  writeType(json, "type", &type);
  json.key("kind");
  json.text(valueOrObject(type));
  json.key("genericInterface");
  json.boolean(type.hasGenericIf());
  writeType(json, "base", type.base());
}

void writeAttribute(JsonStream& json, DeclaredAttribute const& declared) {
  Attribute const& attribute = *declared.attribute;
  json.beginObject();
  json.key("identifier");
  json.number(std::uint64_t{attribute.identifier});
  json.key("name");
  json.text(attribute.name);
  json.key("kind");
  json.text(kindOf(attribute));
  writeType(json, "type", attribute.type != nullptr ? &attribute.type() : nullptr);
  if (attribute.keyType != nullptr) writeType(json, "keyType", &attribute.keyType());
  if (Kes::Operation const* const call = attribute.operation(Kes::OpCode::call)) {
    json.key("arguments");
    writeArguments(json, call->arguments);
  }
  writeType(json, "declaredBy", declared.type);
  json.endObject();
}

void listTypeAsJson(std::FILE* out, Type const& type) {
  JsonStream json(out);
  json.beginObject();
  writeHeading(json, type);
  json.key("keyAttribute");
  if (type.keyAttribute().empty())
    json.null();
  else
    json.text(type.keyAttribute());
  json.key("constructor");
  if (std::vector<Kes::Argument> const* const arguments = type.constructorArguments())
    writeArguments(json, *arguments);
  else
    json.null();
  json.key("attributes");
  json.beginArray();
  for (DeclaredAttribute const& declared : attributesOf(type)) writeAttribute(json, declared);
  json.endArray();
  json.endObject();
}

std::string headingOf(Type const& type) {
  std::string text = std::string(type.name()) + ": " + std::string(valueOrObject(type));
  if (type.base() != nullptr) text += ", derived from " + std::string(type.base()->name());
  if (!type.keyAttribute().empty()) text += ", key attribute " + std::string(type.keyAttribute());
  return text;
}

std::string constructorOf(Type const& type) {
  std::vector<Kes::Argument> const* const arguments = type.constructorArguments();
  if (arguments == nullptr) return "not made by name";
  std::string text = argumentsOf(*arguments);
  return text.empty() ? "made without arguments" : "made from (" + text + ")";
}

}  // namespace

void listTypes(std::FILE* out, ListingForm form) {
  auto const types = Kes::TypeRegistry::instance().types();
  if (form == ListingForm::json) {
    JsonStream json(out);
    json.beginArray();
    for (Type const* const type : types) {
      json.beginObject();
      writeHeading(json, *type);
      json.key("attributes");
      json.number(std::uint64_t{type->attributes().size()});
      json.endObject();
    }
    json.endArray();
    return;
  }
  std::vector<Row> rows = {{"type", "kind", "base", "attributes"}};
  for (Type const* const type : types)
    rows.push_back({std::string(type->name()), std::string(valueOrObject(*type)),
                    type->base() != nullptr ? std::string(type->base()->name()) : "-",
                    std::to_string(type->attributes().size())});
  writeColumns(out, rows, /*indent=*/0);
}

void listType(std::FILE* out, ListingForm form, Type const& type) {
  if (form == ListingForm::json) return listTypeAsJson(out, type);
  std::fprintf(out, "%s; %s\n", headingOf(type).c_str(), constructorOf(type).c_str());
  std::vector<Row> rows = {{"id", "attribute", "kind", "type", "arguments"}};
  Type const* declaredBy = &type;
  for (DeclaredAttribute const& declared : attributesOf(type)) {
    if (std::exchange(declaredBy, declared.type) != declared.type)
      rows.push_back({"inherited from " + std::string(declared.type->name())});
    rows.push_back(rowOf(*declared.attribute));
  }
  writeColumns(out, rows, /*indent=*/2);
}

}  // namespace Agent
