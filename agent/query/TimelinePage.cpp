// SPDX-License-Identifier: Apache-2.0
#include "agent/query/TimelinePage.h"

#include <sys/types.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/base/FileDescriptor.h"
#include "agent/base/JsonStream.h"
#include "agent/base/Printable.h"
#include "agent/query/QueueSummary.h"
#include "agent/query/page/PageText.h"
#include "agent/record/LocalZone.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

namespace {

using Kes::U64;

// As the page's script knows them.
std::string_view nameOf(Unit unit) {
  switch (unit) {
    case Unit::name: return "name";
    case Unit::flag: return "flag";
    case Unit::count: return "count";
    case Unit::packets: return "packets";
    case Unit::bytes: return "bytes";
    case Unit::microseconds: return "microseconds";
    case Unit::moment:
    case Unit::second:
    case Unit::rfc3339: return "moment";
    case Unit::millionths: return "millionths";
  }
  return "";
}

// What stands in the page's data element. A name comes up in many records, so it is told once, and the
// records have its number.
class PageData {
 public:
  explicit PageData(std::FILE* out) : json_(out) {}

  void write(RecordSet const& records, TimeWindow const& window, Query const& query, U64 now) {
    std::vector<QueueSummary> queues = summariesOf(records, window);
    if (query.count && *query.count < queues.size()) queues.resize(*query.count);
    std::vector<std::size_t> places;
    places.reserve(records.size());
    for (QueueSummary const& queue : queues)
      places.insert(places.end(), queue.records.begin(), queue.records.end());
    LocalZone const& zone = LocalZone::ofReports();
    json_.beginObject();
    json_.key("since"), json_.number(window.since);
    json_.key("until"), json_.number(window.until);
    json_.key("now"), json_.number(now);
    json_.key("zone"), json_.text(zone.name());
    json_.key("offset"), json_.number(std::to_string(zone.offset()));
    json_.key("queues");
    writeColumns(
        summaryColumns, queues.size(), [&](std::size_t i) -> auto const& { return queues[i]; });
    writeNumbers("low", queues, [](QueueSummary const& queue) { return U64{queue.thresholds.low}; });
    writeNumbers("high", queues, [](QueueSummary const& queue) { return U64{queue.thresholds.high}; });
    writeNumbers("counts", queues, [](QueueSummary const& queue) { return U64{queue.records.size()}; });
    json_.key("records");  // queue by queue
    writeColumns(recordColumns, places.size(), [&](std::size_t i) { return records[places[i]]; });
    json_.key("names");
    json_.beginArray();
    for (std::string const& name : names_) json_.text(name);
    json_.endArray();
    json_.endObject();
  }

 private:
  // The columns for programs, each with all its values. What repeats another one as text is left out.
  template <class Row, std::size_t count, class RowAt>
  void writeColumns(ReportColumns<Row, count> const& columns, std::size_t rows, RowAt rowAt) {
    json_.beginArray();
    for (ReportColumn<Row> const& column : columns) {
      if (!column.forms.json || column.unit == Unit::rfc3339) continue;
      json_.beginObject();
      json_.key("name"), json_.text(column.name);
      json_.key("title"), json_.text(column.text.title);
      json_.key("unit"), json_.text(nameOf(column.unit));
      json_.key("meaning"), json_.text(column.meaning);
      json_.key("values");
      json_.beginArray();
      for (std::size_t i = 0; i < rows; ++i) {
        // A name in the value is borrowed from the row.
        Row const& row = rowAt(i);
        writeValue(column.value(row));
      }
      json_.endArray();
      json_.endObject();
    }
    json_.endArray();
  }

  void writeValue(ReportValue const& value) {
    if (auto const* const number = std::get_if<U64>(&value)) return json_.number(*number);
    if (auto const* const name = std::get_if<std::string_view>(&value)) return json_.number(numberOf(*name));
    if (auto const* const queue = std::get_if<QueueName>(&value))
      return json_.number(numberOf(queue->text()));
    json_.null();
  }

  template <class NumberOf>
  void writeNumbers(std::string_view key, std::vector<QueueSummary> const& queues, NumberOf numberOf) {
    json_.key(key);
    json_.beginArray();
    for (QueueSummary const& queue : queues) json_.number(numberOf(queue));
    json_.endArray();
  }

  U64 numberOf(std::string_view name) {
    auto const [place, isNew] = numbers_.try_emplace(std::string(name), names_.size());
    if (isNew) names_.push_back(printable(name));
    return place->second;
  }

  JsonStream json_;
  std::vector<std::string> names_;
  std::unordered_map<std::string, U64> numbers_;
};

// A stream's bytes with every "<" as an escape. In JSON it stands in strings alone; so no name ends the
// data's element, or begins another.
ssize_t putWithoutMarkup(void* out, char const* data, std::size_t size) {
  auto* const stream = static_cast<std::FILE*>(out);
  for (std::string_view rest(data, size); !rest.empty();) {
    std::string_view const plain = rest.substr(0, rest.find('<'));
    std::fwrite(plain.data(), 1, plain.size(), stream);
    rest.remove_prefix(plain.size());
    if (rest.empty()) break;
    std::fputs("\\u003c", stream);
    rest.remove_prefix(1);
  }
  return static_cast<ssize_t>(size);
}

struct Closed {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};

}  // namespace

void writeTimelinePage(RecordSet const& records, TimeWindow const& window, Query const& query, U64 now,
                       std::FILE* out) {
  std::fwrite(PageText::beforeData.data(), 1, PageText::beforeData.size(), out);
  {
    std::unique_ptr<std::FILE, Closed> const data(
        ::fopencookie(out, "w", {nullptr, &putWithoutMarkup, nullptr, nullptr}));
    if (!data) throwErrno("fopencookie");
    PageData(data.get()).write(records, window, query, now);
  }
  std::fwrite(PageText::behindData.data(), 1, PageText::behindData.size(), out);
}

}  // namespace Agent
