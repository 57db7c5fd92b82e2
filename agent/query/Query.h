// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Kes/Types.h"

namespace Agent {

// A query that makes no sense, or that nothing can be found for; the text is for the operator.
class QueryError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What is asked of the history: which report, in which form, of what, in which order. It travels as one line
// of text, so that it can be asked of an agent and of a saved history alike.
struct Query {
  enum class Report : Kes::U8 { history, stats, global, top, timeline, who };
  enum class Form : Kes::U8 { text, csv, json, html, trace };
  enum class Order : Kes::U8 { time, length, duration, latency, drops };

  Report report = Report::history;
  Form form = Form::text;

  // Records of these interfaces: names, full or short, or regular expressions (ECMAScript) for whole short
  // names; without both, of all. Each must mean an interface that is recorded or present.
  std::vector<std::string> interfaces{};
  std::vector<std::string> patterns{};
  // Queues as tc names them ("1:20", "root"); none: all.
  std::vector<std::string> queues{};
  // Records that lasted at some time between the two moments, which are told as TimeText.h reads them; empty:
  // no limit. `last` is a span that ends with the report.
  std::string since{};
  std::string until{};
  std::string last{};
  // At least so many bytes, microseconds, microseconds; an unknown latency is less than any.
  Kes::U32 minLength = 0;
  Kes::U64 minDuration = 0;
  Kes::U32 minLatency = 0;
  bool drops = false;    // records with drops only; as text with the columns that tell of them
  bool latency = false;  // as text with the columns that tell of it
  bool all = false;      // the records of the global buffer as well
  bool flows = false;    // of top: a line a flow, not a line a queue

  // Text: the newest, largest, longest... first. The other forms: oldest first, unless another order is asked
  // for. `count` keeps the first so many of an order, and of that by time the newest. Flows of top stand by
  // bytes, the most first, or by time or drops.
  std::optional<Order> order{};
  bool reverse = false;
  std::optional<Kes::U32> count{};

  bool utc = false;  // times as text, and those of `since` and `until`, are UTC, not local
  // Of pictures in text: the screen's columns, and what it can show.
  Kes::U32 width = 80;
  bool colour = false;
  bool ascii = false;

  bool operator==(Query const&) const = default;
};

// "time", "length"... Throws QueryError.
Query::Order orderFrom(std::string_view name);

// The line for an agent: "query history form=json since=14:05 match=et.*". What stands in values is escaped,
// so it may be any text.
std::string requestFor(Query const& query);
// Whether a request is such a line.
bool isQuery(std::string_view request);
// Reads one, which nobody trusts. Throws QueryError.
Query queryFrom(std::string_view request);

}  // namespace Agent
