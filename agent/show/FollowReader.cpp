// SPDX-License-Identifier: Apache-2.0
#include "agent/show/FollowReader.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "agent/base/Protocol.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

// Longer than any line of an agent.
constexpr std::size_t longestLine = 1024;

// Empty: 0, as for a latency that is not known.
template <class Number>
void read(std::string_view text, Number& number, int base = 10) {
  number = 0;
  if (text.empty()) return;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size())
    throw FollowError("the agent sends a record with a number that is none");
}

// "8001:"
void readHandle(RecordRow& row, std::string_view text) {
  if (text.ends_with(':')) text.remove_suffix(1);
  U32 major = 0;
  read(text, major, 16);
  row.handle = major << 16;
}

struct Field {
  std::string_view name;
  void (*put)(RecordRow& row, std::string_view text);
};
constexpr Field known[] = {
    {"interface", [](RecordRow& row, std::string_view text) { row.interface = text; }},
    {"queue_id", [](RecordRow& row, std::string_view text) { read(text, row.queue); }},
    {"handle", &readHandle},
    {"timestamp_us", [](RecordRow& row, std::string_view text) { read(text, row.timestamp); }},
    {"duration_us", [](RecordRow& row, std::string_view text) { read(text, row.duration); }},
    {"queue_length_bytes", [](RecordRow& row, std::string_view text) { read(text, row.length); }},
    {"peak_at_most_bytes", [](RecordRow& row, std::string_view text) { read(text, row.peakBound); }},
    {"latency_us", [](RecordRow& row, std::string_view text) { read(text, row.latency); }},
    {"drops", [](RecordRow& row, std::string_view text) { read(text, row.drops); }}};

constexpr bool isColumn(Field const& field) {
  for (auto const& column : recordColumns)
    if (column.name == field.name && column.forms.csv) return true;
  return false;
}
static_assert(std::all_of(std::begin(known), std::end(known), isColumn));
// None of a record's fields is left out; its type is looked at before, and its queue has a number.
static_assert(std::count_if(recordColumns.begin(), recordColumns.end(), [](auto const& column) {
                return column.forms.csv;
              }) == static_cast<std::ptrdiff_t>(std::size(known)) + 2);

// A field in quotes has its own quotes twice.
void split(std::string_view line, std::vector<std::string>& texts) {
  texts.assign(1, "");
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    bool const twice = quoted && line[i] == '"' && i + 1 < line.size() && line[i + 1] == '"';
    if (twice) {
      texts.back() += line[++i];
    } else if (line[i] == '"') {
      quoted = !quoted;
    } else if (line[i] == ',' && !quoted) {
      texts.emplace_back();
    } else {
      texts.back() += line[i];
    }
  }
}

}  // namespace

void FollowReader::take(std::string_view bytes) {
  while (!bytes.empty()) {
    std::size_t const end =
        inVerdict_ ? std::string_view::npos : std::min(bytes.find('\n'), bytes.find(Protocol::verdictMark));
    std::string_view const part = bytes.substr(0, end);
    std::string& text = inVerdict_ ? verdict_ : line_;
    if (text.size() + part.size() > longestLine) throw FollowError("the agent sends lines without an end");
    text.append(part);
    if (end == std::string_view::npos) break;
    inVerdict_ = bytes[end] == Protocol::verdictMark;
    if (!inVerdict_) takeLine(std::exchange(line_, ""));
    bytes.remove_prefix(end + 1);
  }
  if (verdict_.ends_with('\n')) verdict_.pop_back();
}

void FollowReader::takeLine(std::string_view line) {
  split(line, texts_);
  if (fields_.empty()) return takeNames();
  if (texts_[0] == Protocol::skippedWord && texts_.size() == 2) {
    U64 count = 0;
    read(texts_[1], count);
    return handlers_.skipped(count);
  }
  if (texts_[0] != std::get<std::string_view>(RecordFields::type(RecordRow()))) return;
  if (texts_.size() != fields_.size()) throw FollowError("the agent sends a record that is not whole");
  RecordRow row;
  for (std::size_t i = 0; i < fields_.size(); ++i)
    if (fields_[i] != nullptr) fields_[i](row, texts_[i]);
  handlers_.record(row);
}

void FollowReader::takeNames() {
  std::size_t found = 0;
  for (std::string const& name : texts_) {
    auto const at = std::find_if(std::begin(known), std::end(known),
                                 [&name](Field const& field) { return field.name == name; });
    fields_.push_back(at == std::end(known) ? nullptr : at->put);
    found += at != std::end(known);
  }
  if (found != std::size(known) || texts_[0] != recordColumns[0].name)
    throw FollowError("the agent does not know how to be followed");
}

}  // namespace Agent
