// SPDX-License-Identifier: Apache-2.0
#include "agent/show/ShowCommand.h"

#include <regex>
#include <string_view>
#include <utility>

#include "agent/base/PatternFault.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/query/RecordFilter.h"
#include "agent/query/TimeText.h"

namespace Agent {

namespace {

using Report = ShowOptions::Report;
using Form = Query::Form;

void refuse(bool given, std::string const& text) {
  if (given) throw UsageError(text);
}

// What a report does not know. The flags name what it does.
struct Known {
  bool interfaces = false;  // --interface, --match
  bool queues = false;      // --queue
  bool window = false;      // --since, --until, --last
  bool figures = false;     // --min-length and the others, --drops
  bool latency = false;
  bool order = false;  // --sort, --reverse
  bool count = false;
  bool all = false;
  bool csv = false;
  bool json = false;
  bool utc = false;
};

void refuseUnknown(ShowOptions const& options, std::string const& report, Known known) {
  Query const& query = options.query;
  auto const check = [&report](bool isKnown, bool given, char const* option) {
    refuse(!isKnown && given, std::string(option) + " does not apply to " + report);
  };
  check(known.interfaces, !query.interfaces.empty(), "--interface");
  check(known.interfaces, !query.patterns.empty(), "--match");
  check(known.queues, !query.queues.empty(), "--queue");
  check(known.window, !query.since.empty(), "--since");
  check(known.window, !query.until.empty(), "--until");
  check(known.window, !query.last.empty(), "--last");
  check(known.figures, query.minLength != 0, "--min-length");
  check(known.figures, query.minDuration != 0, "--min-duration");
  check(known.figures, query.minLatency != 0, "--min-latency");
  check(known.figures, query.drops, "--drops");
  check(known.latency, query.latency, "--latency");
  check(known.order, !options.sort.empty(), "--sort");
  check(known.order, query.reverse, "--reverse");
  check(known.count, query.count.has_value(), "--count");
  check(known.all, query.all, "--all");
  check(known.csv, options.csv, "--csv");
  check(known.json, options.json, "--json");
  check(known.utc, query.utc, "--utc");
}

std::string wordFor(Report report) {
  switch (report) {
    case Report::history: return "history";
    case Report::statistics: return "stats";
    case Report::globalBuffer: return "global";
    case Report::top: return "top";
    case Report::timeline: return "timeline";
    case Report::who: return "who";
    case Report::follow: return "follow";
    case Report::raw: return "raw";
    case Report::status: return "status";
    case Report::metrics: return "metrics";
    case Report::save: return "save";
    case Report::config: return "config";
    case Report::schema: return "schema";
    case Report::types: return "types";
    case Report::type: return "type";
    case Report::get: return "get";
    case Report::set: return "set";
    case Report::call: return "call";
  }
  throw UsageError("no such report");
}

Known knownTo(Report report) {
  constexpr Known records{.interfaces = true,
                          .queues = true,
                          .window = true,
                          .figures = true,
                          .latency = true,
                          .order = true,
                          .count = true,
                          .all = true,
                          .csv = true,
                          .json = true,
                          .utc = true};
  Known known;
  switch (report) {
    case Report::history: return records;
    case Report::top:
      known = records;
      known.latency = false;
      return known;
    case Report::timeline:
      known = records;
      known.order = known.latency = false;
      return known;
    case Report::who:
      known = records;
      known.all = known.latency = false;
      return known;
    case Report::globalBuffer:
      known = records;
      known.interfaces = known.queues = known.all = known.latency = false;
      return known;
    case Report::follow:
      known = records;
      known.window = known.order = known.all = false;
      return known;
    case Report::statistics: return {.interfaces = true, .csv = true, .json = true};
    case Report::status:
    case Report::types:
    case Report::type: return {.json = true};
    case Report::get: return {.all = true, .json = true};
    default: return {};
  }
}

// A query that the agent will take: bad words are the operator's own, and are told before anybody is asked.
void check(Query const& query) {
  for (std::string const& name : query.interfaces) refuse(name.empty(), "an interface name is empty");
  for (std::string const& pattern : query.patterns) {
    refuse(pattern.empty(), "a pattern is empty");
    refuse(std::string_view("*+?").find(pattern.front()) != std::string_view::npos,
           "the pattern \"" + pattern +
               "\" has nothing to repeat: it is a regular expression, where .* is any text");
  }
  refuse(query.count == 0U, "--count takes 1 or more");
  refuse(query.all && query.latency, "--all does not apply to --latency");
  refuse(query.all && query.flows, "--all does not apply to --flows: the sum over all queues has none");
  refuse(query.latency && query.form != Form::text,
         "--latency chooses columns of text: the other forms carry all of them anyway");
  try {
    refuse(!query.last.empty() && spanFrom(query.last) == 0, "--last takes more than no time");
    // Whether one of two times comes before the other is for who answers, whose time it is.
    Query parts = query;
    for (std::string* const time : {&parts.since, &parts.until})
      if (!time->empty()) momentFrom(std::exchange(*time, "now"), /*now=*/0, /*offset=*/0);
    RecordFilter(parts, /*now=*/0);
  } catch (QueryError const& error) {
    throw UsageError(error.what());
  } catch (std::regex_error const& error) {
    throw UsageError(std::string("bad pattern: ") + patternFault(error.code()));
  }
}

Query queryFor(ShowOptions const& options) {
  Query query = options.query;
  query.form = options.csv ? Form::csv : options.json ? Form::json : Form::text;
  if (!options.html.empty()) query.form = Form::html;
  if (!options.trace.empty()) query.form = Form::trace;
  try {
    if (!options.sort.empty()) query.order = orderFrom(options.sort);
  } catch (QueryError const&) {
    throw UsageError("--sort takes time, length, duration, latency or drops");
  }
  check(query);
  return query;
}

ShowCommand queryCommand(ShowOptions const& options, Query::Report report) {
  Query query = queryFor(options);
  query.report = report;
  std::string const request = requestFor(query);
  try {
    queryFrom(request);
  } catch (QueryError const& error) {
    throw UsageError(error.what());
  }
  return {request, options.html + options.trace, query.colour};
}

std::string joined(std::vector<std::string> const& words) {
  std::string line;
  for (std::string const& word : words) line.append(line.empty() ? "" : " ").append(word);
  return line;
}

// What the agent looks up or changes by name: it reads the request itself.
std::string byName(ShowOptions const& options) {
  std::string request = wordFor(options.report);
  if (options.json) request += " --json";
  if (options.depth) request += " --depth=" + std::to_string(*options.depth);
  if (options.query.all) request += " --all";
  std::string const words = joined(options.words);
  return words.empty() ? request : request + ' ' + words;
}

ShowCommand translate(ShowOptions const& options) {
  switch (options.report) {
    case Report::history: return queryCommand(options, Query::Report::history);
    case Report::statistics: return queryCommand(options, Query::Report::stats);
    case Report::globalBuffer: return queryCommand(options, Query::Report::global);
    case Report::top: return queryCommand(options, Query::Report::top);
    case Report::timeline: return queryCommand(options, Query::Report::timeline);
    case Report::who: return queryCommand(options, Query::Report::who);
    case Report::raw: return {joined(options.words)};
    case Report::status:
      return {std::string(options.json ? Protocol::jsonStatusRequest : Protocol::statusRequest)};
    case Report::follow:
    case Report::metrics:
    case Report::save:
    case Report::config:
    case Report::schema: return {wordFor(options.report)};
    case Report::types:
    case Report::type:
    case Report::get:
    case Report::set:
    case Report::call: return {byName(options)};
  }
  throw UsageError("no such report");
}

void refuseMeaningless(ShowOptions const& options) {
  std::string const report = wordFor(options.report);
  refuseUnknown(options, report, knownTo(options.report));
  auto const only = [&](bool given, char const* option, Report of) {
    refuse(given && options.report != of, std::string(option) + " applies to " + wordFor(of));
  };
  only(!options.html.empty(), "--html", Report::timeline);
  only(!options.trace.empty(), "--trace", Report::history);
  refuse(options.follow && options.report != Report::follow, "--follow applies to history");
  only(options.watch.has_value(), "--watch", Report::top);
  only(options.query.flows, "--flows", Report::top);
  only(options.depth.has_value(), "--depth", Report::get);
  refuse(options.depth == 0U, "--depth takes 1 or more levels; --all shows everything below the path");
  refuse(options.csv + options.json + !options.html.empty() + !options.trace.empty() > 1,
         "--csv, --json, --html and --trace are forms of a report: ask for one");
  refuse(options.watch && (options.csv || options.json), "--watch is for people: ask for text");
}

}  // namespace

ShowCommand showCommandFor(ShowOptions const& options) {
  refuseMeaningless(options);
  ShowCommand command = translate(options);
  refuse(printable(command.request) != command.request,
         "the request holds a control character, or is not written in UTF-8");
  refuse(Protocol::checkedWord.size() + 1 + command.request.size() > Protocol::maxRequestBytes,
         "the request is longer than the 4096 bytes that the agent takes");
  return command;
}

Query followQueryFor(ShowOptions const& options) {
  refuseMeaningless(options);
  return queryFor(options);
}

}  // namespace Agent
