// SPDX-License-Identifier: Apache-2.0
#include "agent/query/Query.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

constexpr std::string_view word = "query";
constexpr std::string_view reports[] = {"history", "stats", "global", "top", "timeline", "who"};
constexpr std::string_view forms[] = {"text", "csv", "json", "html", "trace"};
constexpr std::string_view orders[] = {"time", "length", "duration", "latency", "drops"};

constexpr U32 widest = 10'000;

bool isPlain(char c) {
  bool const isDigit = c >= '0' && c <= '9';
  bool const isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return isDigit || isLetter || std::string_view("-_.:@+*").find(c) != std::string_view::npos;
}

std::string escaped(std::string_view text) {
  constexpr char digits[] = "0123456789ABCDEF";
  std::string result;
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    isPlain(c) ? result += c : ((result += '%') += digits[byte >> 4]) += digits[byte & 15];
  }
  return result;
}

std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    unsigned byte = 0;
    auto const* const code = text.data() + at + 1;
    bool const isCode =
        text[at] == '%' && text.size() - at > 2 && std::from_chars(code, code + 2, byte, 16).ptr == code + 2;
    if (text[at] == '%' && !isCode) throw QueryError("an escape in the query is none");
    result += isCode ? static_cast<char>(byte) : text[at];
    if (isCode) at += 2;
  }
  return result;
}

template <class Name, std::size_t count>
Name valueOf(std::string_view const (&names)[count], std::string_view text) {
  auto const at = std::find(std::begin(names), std::end(names), text);
  if (at == std::end(names)) throw QueryError("\"" + std::string(text) + "\" is unknown");
  return static_cast<Name>(at - std::begin(names));
}

template <class Number>
Number numberOf(std::string_view text) {
  Number number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size())
    throw QueryError("\"" + std::string(text) + "\" is no number here");
  return number;
}

// Each field of a query that travels by name, visited for writing and for reading. A visitor is called with
// the name and the field.
template <class Q, class Visit>
void visitFields(Q& query, Visit visit) {
  visit("form", query.form);
  visit("interface", query.interfaces);
  visit("match", query.patterns);
  visit("queue", query.queues);
  visit("since", query.since);
  visit("until", query.until);
  visit("last", query.last);
  visit("min-length", query.minLength);
  visit("min-duration", query.minDuration);
  visit("min-latency", query.minLatency);
  visit("drops", query.drops);
  visit("latency", query.latency);
  visit("all", query.all);
  visit("flows", query.flows);
  visit("sort", query.order);
  visit("reverse", query.reverse);
  visit("count", query.count);
  visit("utc", query.utc);
  visit("width", query.width);
  visit("colour", query.colour);
  visit("ascii", query.ascii);
}

// Fields that have their default are left out.
class Writing {
 public:
  explicit Writing(Query const& query)
      : line_(std::string(word) + ' ' + std::string(reports[static_cast<std::size_t>(query.report)])) {
    visitFields(query, [this](std::string_view name, auto const& field) { add(name, field); });
  }
  std::string const& line() const { return line_; }

 private:
  void put(std::string_view name, std::string_view value) {
    line_.append(" ").append(name).append("=").append(value);
  }
  void add(std::string_view name, bool field) {
    if (field) put(name, "1");
  }
  void add(std::string_view name, U32 field) { add(name, U64{field}); }
  void add(std::string_view name, U64 field) {
    if (field != 0) put(name, std::to_string(field));
  }
  void add(std::string_view name, Query::Form field) { put(name, forms[static_cast<std::size_t>(field)]); }
  void add(std::string_view name, std::string const& field) {
    if (!field.empty()) put(name, escaped(field));
  }
  void add(std::string_view name, std::vector<std::string> const& field) {
    for (std::string const& value : field) put(name, escaped(value));
  }
  void add(std::string_view name, std::optional<Query::Order> field) {
    if (field) put(name, orders[static_cast<std::size_t>(*field)]);
  }
  void add(std::string_view name, std::optional<U32> field) {
    if (field) put(name, std::to_string(*field));
  }

  std::string line_;
};

void set(bool& field, std::string_view value) {
  if (value != "0" && value != "1") throw QueryError("\"" + std::string(value) + "\" is neither 0 nor 1");
  field = value == "1";
}
void set(U32& field, std::string_view value) { field = numberOf<U32>(value); }
void set(U64& field, std::string_view value) { field = numberOf<U64>(value); }
void set(Query::Form& field, std::string_view value) { field = valueOf<Query::Form>(forms, value); }
void set(std::string& field, std::string_view value) { field = unescaped(value); }
void set(std::vector<std::string>& field, std::string_view value) { field.push_back(unescaped(value)); }
void set(std::optional<Query::Order>& field, std::string_view value) {
  field = valueOf<Query::Order>(orders, value);
}
void set(std::optional<U32>& field, std::string_view value) { field = numberOf<U32>(value); }

}  // namespace

std::string requestFor(Query const& query) { return Writing(query).line(); }

bool isQuery(std::string_view request) {
  return request.starts_with(word) && (request.size() == word.size() || request[word.size()] == ' ');
}

Query queryFrom(std::string_view request) {
  Query query;
  request.remove_prefix(word.size());
  bool isFirst = true;
  while (
      !(request.remove_prefix(std::min(request.find_first_not_of(' '), request.size())), request.empty())) {
    std::string_view const piece = request.substr(0, request.find(' '));
    request.remove_prefix(piece.size());
    std::size_t const equals = piece.find('=');
    if (std::exchange(isFirst, false)) {
      query.report = valueOf<Query::Report>(reports, piece);
      continue;
    }
    bool isKnown = false;
    visitFields(query, [&](std::string_view name, auto& field) {
      if (equals == std::string_view::npos || name != piece.substr(0, equals)) return;
      isKnown = true;
      set(field, piece.substr(equals + 1));
    });
    if (!isKnown) throw QueryError("\"" + std::string(piece) + "\" is unknown");
  }
  if (query.count == 0U) throw QueryError("a count of 0 leaves nothing to show");
  bool const isPage = query.form == Query::Form::html;
  bool const isTrace = query.form == Query::Form::trace;
  if ((isPage && query.report != Query::Report::timeline) ||
      (isTrace && query.report != Query::Report::history))
    throw QueryError("html is a form of timeline, trace one of history");
  if (query.flows && query.report != Query::Report::top) throw QueryError("flows are a form of top");
  if (query.flows && query.order && *query.order != Query::Order::time && *query.order != Query::Order::drops)
    throw QueryError("flows are ordered by bytes, or with --sort by time or drops");
  if (query.width > widest) throw QueryError("a picture has 10000 columns at most");
  return query;
}

Query::Order orderFrom(std::string_view name) { return valueOf<Query::Order>(orders, name); }

}  // namespace Agent
