// SPDX-License-Identifier: Apache-2.0
// vorn-show: the command line client of vorn-agent.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <thread>

#include "Vorn/CommandOptions.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/base/Saturated.h"
#include "agent/base/StandardStreams.h"
#include "agent/history/HistoryFile.h"
#include "agent/query/Schema.h"
#include "agent/query/TimeText.h"
#include "agent/show/FileReport.h"
#include "agent/show/Follow.h"
#include "agent/show/ShowClient.h"
#include "agent/show/Terminal.h"

namespace {

enum ExitStatus : int { done = 0, refused = 1, usage = 2, unreachable = 3 };

// Longer than the agent lets any request wait and any report take.
constexpr int patienceSeconds = 90;

using Report = Agent::ShowOptions::Report;

struct CommandLine {
  Agent::ShowOptions options;
  std::vector<std::string> interfaceLists;
  std::string minDuration;
  std::string minLatency;
  std::string path;  // of set, in front of the value
  std::string socketPath;
  std::string filePath;  // answers in place of an agent
  std::string savePath;
};

// Standard output takes no more; `reason` is errno. EPIPE: whoever reads it has seen enough (a pager, head).
struct OutputClosed {
  int reason;
};

// An empty value is mostly a variable of a script that is not set: it asks for nothing.
std::string notEmpty(std::string const& value) { return value.empty() ? "the value is empty" : ""; }

// Which records.
void addFilters(CLI::App& app, CommandLine& line) {
  Agent::Query& query = line.options.query;
  app.add_option("-i,--interface", line.interfaceLists, "Only these interfaces: names, separated by commas")
      ->allow_extra_args(false)
      ->type_name("LIST");
  app.add_option("-m,--match", query.patterns,
                 "Only interfaces whose whole short name matches it (repeatable)")
      ->allow_extra_args(false)
      ->type_name("PATTERN");
  app.add_option("-q,--queue", query.queues, "Only this queue, as tc names it: 1:20, root (repeatable)")
      ->allow_extra_args(false)
      ->type_name("NAME");
  app.add_option("--since", query.since,
                 "From then on: 14:05, yesterday, -2h, 2026-11-23 14:05:10.5, @SECONDS")
      ->check(notEmpty)
      ->type_name("TIME");
  app.add_option("--until", query.until, "Up to then, likewise")->check(notEmpty)->type_name("TIME");
  app.add_option("-t,--last", query.last, "Only the last seconds, or 5min, 1h 30min, 2d")
      ->check(notEmpty)
      ->type_name("SPAN");
  app.add_option("--min-length", query.minLength, "Only bursts whose backlog reached so many bytes")
      ->type_name("BYTES");
  app.add_option("--min-duration", line.minDuration, "Only bursts that lasted so long: 5ms, 2s")
      ->check(notEmpty)
      ->type_name("SPAN");
  app.add_option("--min-latency", line.minLatency, "Only bursts whose last byte waited so long")
      ->check(notEmpty)
      ->type_name("SPAN");
  app.add_flag("-d,--drops", query.drops, "Only bursts in which packets were dropped");
}

// In which order and form.
void addForms(CLI::App& app, CommandLine& line) {
  Agent::ShowOptions& options = line.options;
  app.add_option("--sort", options.sort, "By time, length, duration, latency or drops, the largest first")
      ->check(notEmpty)
      ->type_name("ORDER");
  app.add_flag("-r,--reverse", options.query.reverse, "The other way round");
  app.add_option("-n,--count", options.query.count, "Only the first N lines; by time: the newest")
      ->type_name("N");
  app.add_flag("-l,--latency", options.query.latency, "history: transmit latency");
  app.add_flag("-a,--all", options.query.all,
               "The sum over all queues as well; get: everything below the path");
  app.add_flag("--utc", options.query.utc, "Times in UTC, not local");
  app.add_flag("-c,--csv", options.csv, "Comma-separated, with column names");
  app.add_flag("-j,--json", options.json, "As JSON, for programs");
  app.add_option("--html", options.html, "timeline: a page for a browser, into a file (-: standard output)")
      ->check(notEmpty)
      ->type_name("FILE");
  app.add_option("--trace", options.trace, "history: a trace for ui.perfetto.dev, likewise")
      ->check(notEmpty)
      ->type_name("FILE");
  app.add_flag("--follow", options.follow, "history: the same as follow");
  app.add_flag("--flows", options.query.flows, "top: a line a flow, that of most bytes first");
  app.add_option("-w,--watch", options.watch, "top: again every so many seconds (2)")
      ->expected(0, 1)
      ->default_str("2")
      ->check(CLI::Range(0.1, 86'400.0))
      ->option_text("[SECONDS]");
  app.add_option("--depth", options.depth, "get: so many levels below the path (1)")->type_name("N");
}

void addOptions(CLI::App& app, CommandLine& line) {
  addFilters(app, line);
  addForms(app, line);
  app.add_option(
         "--socket", line.socketPath,
         "Default: $XDG_RUNTIME_DIR/vorn.sock, else " + std::string(Agent::Protocol::systemSocketPath))
      ->type_name("PATH");
  app.add_option("-f,--file", line.filePath, "Read a saved history instead of asking an agent")
      ->type_name("PATH")
      ->excludes("--socket");
}

// What is recorded, value by value. Words that a shell has cut at blanks are put together again.
void addByName(CLI::App& app, CommandLine& line) {
  auto const add = [&](char const* name, Report report, char const* help, char const* what) {
    CLI::App* const sub = app.add_subcommand(name, help);
    sub->callback([&line, report] { line.options.report = report; });
    return *what == '\0' ? nullptr : sub->add_option(what, line.options.words)->type_name("");
  };
  add("types", Report::types, "Every type by name", "");
  add("type", Report::type, "The attributes of a type", "NAME")->required();
  add("get", Report::get, "A value, object or collection by name: portData[eth0].lastSyslogTime", "PATH");
  CLI::App* const set = app.add_subcommand("set", "Set a value (root and the agent's own user)");
  set->add_option("PATH", line.path)->required()->type_name("");
  set->add_option("VALUE", line.options.words)->required()->type_name("");
  set->callback([&line] {
    line.options.report = Report::set;
    line.options.words.insert(line.options.words.begin(), line.path);
  });
  add("call", Report::call, "Call an operation, as 'PATH(NAME=VALUE, ...)' (the same)", "CALL")->required();
}

void addReports(CLI::App& app, CommandLine& line) {
  auto const add = [&](char const* name, Report report, char const* help) {
    CLI::App* const sub = app.add_subcommand(name, help);
    sub->callback([&line, report] { line.options.report = report; });
    return sub;
  };
  app.require_subcommand(0, 1);
  app.fallthrough();  // options may stand before and after the report's name
  add("history", Report::history, "Congestion records, newest first (the default)");
  add("follow", Report::follow, "Records as they close, until it is interrupted");
  add("top", Report::top, "A line a queue, the one that hurts most first");
  add("who", Report::who, "Who filled the queue: bursts with their largest flows");
  add("timeline", Report::timeline, "A row a queue, time across, as a picture");
  add("stats", Report::statistics, "How often each queue was congested");
  add("global", Report::globalBuffer, "Records of the global buffer, newest first");
  add("status", Report::status, "What the agent itself is doing");
  add("metrics", Report::metrics, "What bursts add up to, and the agent's health, as OpenMetrics text");
  add("config", Report::config, "The agent's configuration in force, and where each value came from");
  add("save", Report::save, "Save the whole history to a file, for --file; -: standard output")
      ->add_option("PATH", line.savePath)
      ->required()
      ->type_name("");
  add("schema", Report::schema, "The JSON schema of the reports as JSON");
  CLI::App* const raw = add("raw", Report::raw, "Send the words that follow to the agent as they are");
  raw->fallthrough(false)->prefix_command()->set_help_flag();
  raw->callback([&line, raw] {
    line.options.report = Report::raw;
    line.options.words = raw->remaining();
  });
  addByName(app, line);
}

void print(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) throw OutputClosed{errno};
}

int complain(ExitStatus status, std::string const& text) {
  std::fprintf(stderr, "vorn-show: %s\n", Agent::printable(text).c_str());
  return status;
}

// Into what is no regular file, a device or a pipe, it is written as it comes.
void writeInPlace(std::string const& path, std::string const& history) {
  Agent::FileDescriptor const file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!file) Agent::throwErrno(path);
  for (std::size_t done = 0; done < history.size();) {
    ssize_t const more = ::write(file.get(), history.data() + done, history.size() - done);
    if (more < 0 && errno != EINTR) Agent::throwErrno(path);
    if (more > 0) done += static_cast<std::size_t>(more);
  }
}

// What it saves is the user's file, as readable as others of that user. A symbolic link stays one.
void saveTo(std::string const& path, std::string const& history) {
  if (path == "-") return print(history);
  std::filesystem::file_status const there = std::filesystem::status(path);
  if (std::filesystem::exists(there) && !std::filesystem::is_regular_file(there))
    return writeInPlace(path, history);
  std::string const target =
      std::filesystem::exists(there) ? std::filesystem::canonical(path).string() : path;
  Agent::replaceFile(target, target + ".new-" + std::to_string(::getpid()), 0666,
                     [&](std::FILE* out) { std::fwrite(history.data(), 1, history.size(), out); });
}

// Into the file only once all of it is there. Of a damaged history (`isPart`) what stands before the damage
// is all.
template <class Fetch>
Agent::AnswerEnd fetchInto(std::string const& path, bool isPart, Fetch fetch) {
  std::string bytes;
  Agent::AnswerEnd end = fetch(bytes);
  bool const isAll =
      end.kind == Agent::AnswerEnd::Kind::whole || (isPart && end.kind == Agent::AnswerEnd::Kind::broken);
  if (!isAll) return end;
  try {
    saveTo(path, bytes);
  } catch (std::system_error const& error) {
    return {Agent::AnswerEnd::Kind::refused, error.what()};
  }
  return end;
}

// A file that cannot be read is no agent that cannot be reached.
Agent::AnswerEnd fromFile(std::string const& path, Agent::ShowCommand const& command,
                          Agent::Output const& output) {
  try {
    return Agent::reportFromFile(path, command, output);
  } catch (std::system_error const& error) {
    return {Agent::AnswerEnd::Kind::refused, error.what()};
  } catch (std::bad_alloc const&) {
    return {Agent::AnswerEnd::Kind::refused, path + ": too large for the memory there is"};
  }
}

// Asks an agent, or the file.
Agent::AnswerEnd ask(CommandLine& line, Agent::ShowCommand const& command, Agent::Output const& output) {
  if (!line.filePath.empty()) return fromFile(line.filePath, command, output);
  Agent::FileDescriptor socket;
  try {
    socket = Agent::connectToAgent(line.socketPath, patienceSeconds);
  } catch (std::system_error const& error) {
    return {Agent::AnswerEnd::Kind::noAnswer, std::string("cannot reach the agent: ") + error.what()};
  }
  if (command.file.empty()) return Agent::fetchReport(socket.get(), command, output);
  std::string bytes;
  Agent::AnswerEnd end = Agent::fetchBytes(socket.get(), command.request, bytes);
  output(bytes);
  return end;
}

int report(Agent::AnswerEnd const& end) {
  if (std::fflush(stdout) != 0) throw OutputClosed{errno};
  if (end.kind == Agent::AnswerEnd::Kind::whole) return done;
  return complain(end.kind == Agent::AnswerEnd::Kind::noAnswer ? unreachable : refused, end.text);
}

// On a terminal in place of the report before, as much of it as there is room for.
int watch(CommandLine& line, Agent::ShowCommand const& command) {
  auto const pause = std::chrono::duration<double>(*line.options.watch);
  for (;;) {
    Agent::Terminal const terminal = Agent::Terminal::ofStandardOutput();
    std::string text;
    Agent::AnswerEnd const end = ask(line, command, [&text](std::string_view bytes) { text += bytes; });
    if (end.kind != Agent::AnswerEnd::Kind::whole)
      text += "\nvorn-show: " + Agent::printable(end.text) + '\n';
    if (terminal.isTerminal) print("\x1b[H\x1b[2J");
    std::size_t at = 0;
    for (unsigned left = terminal.lines - 1; at < text.size() && (left > 0 || !terminal.isTerminal); --left)
      at = std::min(text.find('\n', at), text.size() - 1) + 1;
    print(std::string_view(text).substr(0, at));
    if (std::fflush(stdout) != 0) throw OutputClosed{errno};
    std::this_thread::sleep_for(pause);
  }
}

// Shown at once, since whoever reads it is waiting.
int follow(CommandLine& line) {
  if (!line.filePath.empty()) throw Agent::UsageError("a file does not go on: follow an agent");
  auto const showNow = [](std::string_view bytes) {
    print(bytes);
    if (std::fflush(stdout) != 0) throw OutputClosed{errno};
  };
  return report(Agent::followRecords(
      Agent::followQueryFor(line.options),
      {.connect = [&line] { return Agent::connectToAgent(line.socketPath, patienceSeconds); },
       .output = showNow,
       .reader = STDOUT_FILENO,
       .remark = [](std::string const& text) { complain(done, text); }}));
}

int show(CommandLine& line) {
  Agent::ShowOptions& options = line.options;
  for (std::string const& list : line.interfaceLists) {
    if (list.empty()) throw Agent::UsageError("--interface is empty");
    Vorn::split(list, ",", options.query.interfaces);
  }
  if (options.watch && !(*options.watch >= 0.1)) throw Agent::UsageError("--watch takes 0.1 or more seconds");
  if (!line.minDuration.empty()) options.query.minDuration = Agent::spanFrom(line.minDuration);
  if (!line.minLatency.empty()) options.query.minLatency = Agent::saturated(Agent::spanFrom(line.minLatency));
  Agent::Terminal const terminal = Agent::Terminal::ofStandardOutput();
  options.query.width = terminal.columns;
  options.query.ascii = terminal.ascii;
  options.query.colour = terminal.colour && options.report == Report::timeline;
  if (options.follow && options.report == Report::history) options.report = Report::follow;
  if (options.report == Report::follow) return follow(line);
  Agent::ShowCommand command = Agent::showCommandFor(options);
  if (options.report == Report::schema) {
    Agent::writeSchema(stdout);
    return report({Agent::AnswerEnd::Kind::whole});
  }
  if (options.watch) return watch(line, command);
  if (options.report == Report::save) command.file = line.savePath;
  if (command.file.empty()) return report(ask(line, command, print));
  return report(fetchInto(command.file, !line.filePath.empty(), [&](std::string& bytes) {
    return ask(line, command, [&bytes](std::string_view more) { bytes += more; });
  }));
}

}  // namespace

int main(int argc, char** argv) {
  Agent::openClosedStandardStreams();
  std::signal(SIGPIPE, SIG_IGN);
  CommandLine line;
  CLI::App app("Shows the congestion records of the queues of this machine, as vorn-agent keeps them.",
               "vorn-show");
  app.set_version_flag("--version", "vorn-show " VORN_VERSION);
  addOptions(app, line);
  addReports(app, line);
  try {
    app.parse(argc, argv);
    return show(line);
  } catch (CLI::ParseError const& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    return complain(usage, std::string(error.what()) + "; --help tells more");
  } catch (Agent::UsageError const& error) {
    return complain(usage, error.what());
  } catch (Agent::QueryError const& error) {
    return complain(usage, error.what());
  } catch (OutputClosed const& closed) {
    if (closed.reason == EPIPE) return done;
    return complain(refused, std::string("standard output: ") + std::strerror(closed.reason));
  } catch (std::exception const& error) {
    return complain(unreachable, error.what());
  }
}
