// SPDX-License-Identifier: Apache-2.0
#include "agent/query/Schema.h"

#include <string>

#include "agent/query/QueueSummary.h"
#include "agent/record/FlowColumns.h"
#include "agent/record/RecordColumns.h"
#include "agent/record/StatisticsColumns.h"

namespace Agent {

namespace {

void put(JsonStream& json, std::string_view key, std::string_view text) {
  json.key(key);
  json.text(text);
}

// Moments and flags are always there; what else a value may be depends on its unit alone.
void writeType(JsonStream& json, Unit unit) {
  bool const isText = unit == Unit::name || unit == Unit::rfc3339;
  std::string_view const type = isText                     ? "string"
                                : unit == Unit::flag       ? "boolean"
                                : unit == Unit::millionths ? "number"
                                                           : "integer";
  json.key("type");
  if (unit == Unit::flag || unit == Unit::moment || unit == Unit::rfc3339) {
    json.text(type);
  } else {
    json.beginArray();
    json.text(type);
    json.text("null");
    json.endArray();
  }
  if (unit == Unit::rfc3339) put(json, "format", "date-time");
  if (isText || unit == Unit::flag) return;
  json.key("minimum");
  json.number(Kes::U64{0});
}

template <class Row, std::size_t count>
void writeObject(JsonStream& json, std::string_view name, ReportColumns<Row, count> const& columns) {
  json.key(name);
  json.beginObject();
  put(json, "type", "object");
  json.key("properties");
  json.beginObject();
  for (ReportColumn<Row> const& column : columns) {
    if (!column.forms.json) continue;
    json.key(column.name);
    json.beginObject();
    put(json, "description", column.meaning);
    writeType(json, column.unit);
    json.endObject();
  }
  json.endObject();
  json.key("required");
  json.beginArray();
  for (ReportColumn<Row> const& column : columns)
    if (column.forms.json) json.text(column.name);
  json.endArray();
  json.endObject();
}

void writeArray(JsonStream& json, std::string_view report, std::string const& object) {
  json.key(report);
  json.beginObject();
  put(json, "type", "array");
  json.key("items");
  json.beginObject();
  put(json, "$ref", "#/$defs/" + object);
  json.endObject();
  json.endObject();
}

}  // namespace

void writeSchema(std::FILE* out) {
  JsonStream json(out);
  json.beginObject();
  put(json, "$schema", "https://json-schema.org/draft/2020-12/schema");
  put(json, "title", "Reports of vorn-show --json; follow writes one record a line");
  json.key("$defs");
  json.beginObject();
  for (char const* const report : {"history", "global", "timeline"}) writeArray(json, report, "record");
  writeArray(json, "top", "summary");
  writeArray(json, "stats", "statistics");
  for (char const* const report : {"who", "top_flows"}) writeArray(json, report, "flow");
  writeObject(json, "record", recordColumns);
  writeObject(json, "summary", summaryColumns);
  writeObject(json, "statistics", statisticsColumns);
  writeObject(json, "flow", flowColumns);
  json.endObject();
  json.endObject();
}

}  // namespace Agent
