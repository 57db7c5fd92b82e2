// SPDX-License-Identifier: Apache-2.0
// vorn-show: the command line client of vorn-agent.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "Vorn/CommandOptions.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/base/StandardStreams.h"
#include "agent/base/UnixSocket.h"
#include "agent/history/HistoryFile.h"
#include "agent/show/FileReport.h"
#include "agent/show/ShowClient.h"

namespace {

enum ExitStatus : int { done = 0, refused = 1, usage = 2, unreachable = 3 };

// Longer than the agent lets any request wait and any report take.
constexpr int patienceSeconds = 90;

using Report = Agent::ShowOptions::Report;

struct CommandLine {
  Agent::ShowOptions options;
  std::vector<std::string> interfaceLists;
  std::string path;  // of set, in front of the value
  std::string socketPath;
  std::string filePath;  // answers in place of an agent
  std::string savePath;
};

// Standard output takes no more; `reason` is errno. EPIPE: whoever reads it has seen enough (a pager, head).
struct OutputClosed {
  int reason;
};

void addOptions(CLI::App& app, CommandLine& line) {
  Agent::ShowOptions& options = line.options;
  app.add_option("-i,--interface", line.interfaceLists, "Only these interfaces: names, separated by commas")
      ->allow_extra_args(false)
      ->type_name("LIST");
  app.add_option("-m,--match", options.patterns,
                 "Only interfaces whose whole short name matches it (repeatable)")
      ->allow_extra_args(false)
      ->type_name("PATTERN");
  app.add_option("-t,--last", options.lastSeconds, "history: only records of the last SECONDS")
      ->type_name("SECONDS");
  app.add_option("-n,--count", options.count, "history: only the N newest lines, --all's among them")
      ->type_name("N");
  app.add_flag("-d,--drops", options.drops, "history: packets dropped");
  app.add_flag("-l,--latency", options.latency, "history: transmit latency");
  app.add_flag("-a,--all", options.all,
               "history: the global buffer's as well; get: everything below the path");
  app.add_flag("-c,--csv", options.csv, "history, stats, global: comma-separated, with column names");
  app.add_flag("-j,--json", options.json, "status, types, type, get: as JSON, for programs");
  app.add_option("--depth", options.depth, "get: so many levels below the path (1)")->type_name("N");
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
  add("stats", Report::statistics, "How often each queue was congested");
  add("global", Report::globalBuffer, "Records of the global buffer, newest first");
  add("status", Report::status, "What the agent itself is doing");
  add("config", Report::config, "The agent's configuration in force, and where each value came from");
  add("save", Report::save, "Save the whole history to a file, for --file; -: standard output")
      ->add_option("PATH", line.savePath)
      ->required()
      ->type_name("");
  CLI::App* const raw = add("raw", Report::raw, "Send the words that follow to the agent as they are");
  raw->fallthrough(false)->prefix_command()->set_help_flag();
  raw->callback([&line, raw] {
    line.options.report = Report::raw;
    line.options.words = raw->remaining();
  });
  addByName(app, line);
}

// A user's own agent goes before the system's; one that cannot be there does not.
Agent::FileDescriptor connectToAgent(CommandLine const& line) {
  if (!line.socketPath.empty()) return Agent::connectTo(line.socketPath, patienceSeconds);
  std::string const own = Agent::Protocol::userSocketPath();
  try {
    if (!own.empty()) return Agent::connectTo(own, patienceSeconds);
  } catch (std::system_error const& error) {
    if (error.code() == std::errc::resource_unavailable_try_again) throw;  // it is there, and too busy
  }
  return Agent::connectTo(Agent::Protocol::systemSocketPath, patienceSeconds);
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

Agent::AnswerEnd save(int socket, std::string const& path) {
  std::string history;
  Agent::AnswerEnd end = Agent::fetchHistory(socket, history);
  if (end.kind != Agent::AnswerEnd::Kind::whole) return end;
  try {
    saveTo(path, history);
  } catch (std::system_error const& error) {
    return {Agent::AnswerEnd::Kind::refused, error.what()};
  }
  return end;
}

// A file that cannot be read is no agent that cannot be reached.
Agent::AnswerEnd fromFile(std::string const& path, Agent::ShowCommand const& command) {
  try {
    return Agent::reportFromFile(path, command, print);
  } catch (std::system_error const& error) {
    return {Agent::AnswerEnd::Kind::refused, error.what()};
  } catch (std::bad_alloc const&) {
    return {Agent::AnswerEnd::Kind::refused, path + ": too large for the memory there is"};
  }
}

int report(Agent::AnswerEnd const& end) {
  if (std::fflush(stdout) != 0) throw OutputClosed{errno};
  if (end.kind == Agent::AnswerEnd::Kind::whole) return done;
  return complain(end.kind == Agent::AnswerEnd::Kind::noAnswer ? unreachable : refused, end.text);
}

int show(CommandLine& line) {
  for (std::string const& list : line.interfaceLists) {
    if (list.empty()) throw Agent::UsageError("--interface is empty");
    Vorn::split(list, ",", line.options.interfaces);
  }
  Agent::ShowCommand const command = Agent::showCommandFor(line.options);
  if (!line.filePath.empty()) return report(fromFile(line.filePath, command));
  Agent::FileDescriptor socket;
  try {
    socket = connectToAgent(line);
  } catch (std::system_error const& error) {
    return complain(unreachable, std::string("cannot reach the agent: ") + error.what());
  }
  if (line.options.report == Report::save) return report(save(socket.get(), line.savePath));
  return report(Agent::fetchReport(socket.get(), command, print));
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
  } catch (OutputClosed const& closed) {
    if (closed.reason == EPIPE) return done;
    return complain(refused, std::string("standard output: ") + std::strerror(closed.reason));
  } catch (std::exception const& error) {
    return complain(unreachable, error.what());
  }
}
