// SPDX-License-Identifier: Apache-2.0
// The parts of scripts/measure-agent that a script cannot do, a subcommand each; --smoke runs once, small and
// short, through those that end by themselves.

#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent/RecorderInputs.h"
#include "agent/base/AgentClock.h"
#include "agent/base/EventLoop.h"
#include "agent/base/UnixSocket.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/history/HistoryKeeper.h"
#include "agent/kernel/QdiscSource.h"
#include "agent/record/LinuxEntry.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/serve/CommandServer.h"
#include "agent/serve/OwnRequests.h"
#include "bench/ChildProcess.h"
#include "bench/RecorderLog.h"
#include "bench/Resident.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

double millisecondsSince(steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
}

struct Spread {
  double median;
  double worst;
};

Spread spreadOf(std::vector<double> values) {
  if (values.empty()) throw std::runtime_error("nothing was measured");
  std::sort(values.begin(), values.end());
  return {values[values.size() / 2], values.back()};
}

// A timer of one millisecond and nothing else: what any program pays that wakes up so often.
void runTimer() {
  Agent::FileDescriptor const timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  if (!timer) Agent::throwErrno("timerfd_create");
  constexpr timespec interval{0, 1'000'000};
  constexpr itimerspec setting{interval, interval};
  if (::timerfd_settime(timer.get(), 0, &setting, nullptr) != 0) Agent::throwErrno("timerfd_settime");
  Agent::FileDescriptor const epoll(::epoll_create1(EPOLL_CLOEXEC));
  epoll_event event{};
  event.events = EPOLLIN;
  if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, timer.get(), &event) != 0) Agent::throwErrno("epoll_ctl");
  for (std::uint64_t expirations = 0;;) {
    if (::epoll_wait(epoll.get(), &event, 1, -1) < 0) Agent::throwErrno("epoll_wait");
    if (::read(timer.get(), &expirations, sizeof expirations) < 0) Agent::throwErrno("read");
  }
}

std::vector<std::string> noInterfaces() { return {}; }

constexpr std::size_t recordsOf(Kes::U32 chunks) { return std::size_t{chunks} * Vorn::entriesPerChunk; }

// A recorder with a history of eight interfaces, to which records came in turn.
class FullRecorder {
 public:
  FullRecorder(Kes::U32 poolChunks, std::size_t records)
      : clock_(Kes::makePtr<Agent::AgentClock>()),
        config_(Agent::configOf({})),
        status_(Agent::hardwareStatusOf({})),
        recorder_(Kes::makePtr<Vorn::CongestionData>(status_, clock_, config_,
                                                     Kes::makePtr<Agent::LinuxPortMetaDataDumper>())) {
    recorder_->numSharedChunksIs(poolChunks);
    add(records);
  }

  void add(std::size_t records) {
    for (; records != 0; --records, ++count_) {
      Agent::CongestionUpdate update;
      update.timestamp = clock_->now().value();
      update.qLen = 20'000 + static_cast<Kes::U32>(count_ % 1000) * 100;
      update.peakBound = update.qLen + 3028;
      update.latency = 4'000;
      recorder_->doAddToLog(intfIds_[count_ % intfIds_.size()],
                            Kes::makePtr<Agent::LinuxEntry>(/*queue=*/0U, /*handle=*/0x8001'0000U, update));
    }
  }

  // Lets the pool grow until `enough`, and fills it.
  template <class Enough>
  void fill(Enough enough) {
    do {
      recorder_->numSharedChunksIs(recorder_->numSharedChunks() + 8);
      add(recordsOf(8));
    } while (!enough());
    add(recordsOf(16));
  }

  std::size_t retained() const { return Bench::retainedRecords(*recorder_); }
  Vorn::CongestionData::Ptr const& recorder() const { return recorder_; }

  // Serves `path` and looks at the queues of this network namespace, as vorn-agent does.
  // Saves the whole history every second where there is a directory for it, as if it changed all the time.
  void serve(std::string const& path, std::string const& stateDirectory) {
    Agent::EventLoop loop;
    Agent::BurstLedger ledger;
    std::optional<Agent::HistoryKeeper> history;
    if (!stateDirectory.empty()) history.emplace(stateDirectory, recorder_, ledger, /*poolGrows=*/false);
    Agent::CongestionFeed feed(recorder_, config_, status_, clock_, ledger);
    Agent::QdiscSource source(feed, config_, status_, {});
    Agent::OwnRequests const ownRequests(
        recorder_, ledger, [&source] { return Agent::AgentStatus{.source = source.status()}; },
        [] { return ""; }, noInterfaces, [] {});
    Agent::CommandServer const server(loop, path, recorder_, ownRequests, noInterfaces, {});
    source.start(loop);
    Kes::U64 changes = 0;
    if (history) history->start(loop, std::chrono::seconds(1), [&changes] { return ++changes; });
    loop.run();
  }

 private:
  Agent::AgentClock::Ptr clock_;
  Vorn::Config::Ptr config_;
  Vorn::Hardware::Status::Ptr status_;
  Vorn::CongestionData::Ptr recorder_;
  std::array<Pylo::IntfId, 8> const intfIds_{
      Pylo::IntfId("full1"), Pylo::IntfId("full2"), Pylo::IntfId("full3"), Pylo::IntfId("full4"),
      Pylo::IntfId("full5"), Pylo::IntfId("full6"), Pylo::IntfId("full7"), Pylo::IntfId("full8")};
  std::size_t count_ = 0;
};

// A report to a client of this process that reads nothing.
class OwnReport {
 public:
  OwnReport(Vorn::CongestionData::Ptr const& recorder, std::string const& command) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) Agent::throwErrno("socketpair");
    agentEnd_ = Agent::FileDescriptor(ends[0]);
    clientEnd_ = Agent::FileDescriptor(ends[1]);
    auto const before = steady_clock::now();
    child_.emplace(recorder, agentEnd_.get(), command, nullptr, noInterfaces, Agent::ReportChild::Limits{});
    start_ = millisecondsSince(before);
  }

  // Milliseconds that it took to start.
  double start() const { return start_; }
  void awaitEnd() {
    if (std::string const failure = child_->failure(); !failure.empty()) throw std::runtime_error(failure);
  }

 private:
  Agent::FileDescriptor agentEnd_;
  Agent::FileDescriptor clientEnd_;
  std::optional<Agent::ReportChild> child_;
  double start_ = 0;
};

// What records cost while they come in.
struct Intake {
  double milliseconds;
  long pageFaults;
};

Intake intakeOf(FullRecorder& full, std::size_t records) {
  auto const faults = [] {
    rusage usage{};
    if (::getrusage(RUSAGE_SELF, &usage) != 0) Agent::throwErrno("getrusage");
    return usage.ru_minflt;
  };
  long const before = faults();
  auto const start = steady_clock::now();
  full.add(records);
  return {millisecondsSince(start), faults() - before};
}

// In a process that grows to a size: records that come in before any report, the start of one, and records
// that come in while its child lives, in which the pages are copied that both still share.
void measureFork(double megabytes, int reports) {
  constexpr std::size_t records = 10'000;
  auto const residentMegabytes = [] { return static_cast<double>(Bench::residentBytes()) / 1e6; };
  FullRecorder full(/*poolChunks=*/8, /*records=*/0);
  full.fill([&] { return residentMegabytes() >= megabytes; });
  Intake const alone = intakeOf(full, records);
  std::vector<double> starts;
  for (int i = 0; i < reports; ++i) {
    OwnReport report(full.recorder(), "-s1");
    report.awaitEnd();
    starts.push_back(report.start());
    std::this_thread::sleep_for(milliseconds(10));
  }
  OwnReport const whole(full.recorder(), "");
  Intake const beside = intakeOf(full, records);
  Spread const spread = spreadOf(starts);
  std::printf("| %.0f MB | %zu | %.2f ms | %.2f ms | %.2f ms, %ld faults | %.2f ms, %ld faults |\n",
              residentMegabytes(), full.retained(), spread.median, spread.worst, alone.milliseconds,
              alone.pageFaults, beside.milliseconds, beside.pageFaults);
}

void runForks(std::vector<double> const& megabytes, int reports) {
  for (double const wanted : megabytes)
    Bench::resultOfChild([&] {
      measureFork(wanted, reports);
      return 0;
    });
}

struct Asking {
  std::string socket;
  std::string request;
  double seconds = 5;
  unsigned gapMs = 0;
  unsigned pauseMs = 0;
  std::size_t lines = 1;
};

// Takes a whole answer without keeping it. The result is how many lines it had.
std::size_t receiveLines(int socket, unsigned pauseMs) {
  std::array<char, 65536> block;
  std::size_t lines = 0;
  for (;;) {
    ssize_t const got = ::recv(socket, block.data(), block.size(), 0);
    if (got < 0) Agent::throwErrno("recv");
    if (got == 0) return lines;
    lines += static_cast<std::size_t>(std::count(block.data(), block.data() + got, '\n'));
    if (std::string_view(block.data(), static_cast<std::size_t>(got)).starts_with("error: "))
      throw std::runtime_error("the agent refuses the request");
    if (pauseMs != 0) std::this_thread::sleep_for(milliseconds(pauseMs));
  }
}

// Asks one after the other. A time counts from the connecting to the end of the answer.
void runAsk(Asking const& asking) {
  std::string const request = asking.request + '\n';
  std::vector<double> times;
  auto const start = steady_clock::now();
  while (millisecondsSince(start) < asking.seconds * 1e3) {
    auto const before = steady_clock::now();
    Agent::FileDescriptor const socket = Agent::connectTo(asking.socket, /*patienceSeconds=*/60);
    if (::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) Agent::throwErrno("send");
    std::size_t const lines = receiveLines(socket.get(), asking.pauseMs);
    times.push_back(millisecondsSince(before));
    if (lines < asking.lines) throw std::runtime_error("an answer is short: " + std::to_string(lines));
    std::this_thread::sleep_for(milliseconds(asking.gapMs));
  }
  Spread const spread = spreadOf(times);
  std::printf("%zu %.0f %.0f\n", times.size(), spread.median * 1e3, spread.worst * 1e3);
}

void runSmoke() {
  std::printf("smoke test: the figures below mean nothing\n");
  runForks({10}, /*reports=*/3);
}

constexpr Kes::U32 fullPool = 200;  // 100,000 records

struct Arguments {
  bool smoke = false;
  std::string socket;
  std::string stateDirectory;
  std::vector<double> megabytes;
  Asking asking;
};

void addMeasurements(CLI::App& app, Arguments& arguments) {
  app.add_subcommand("timer", "Wakes up every millisecond, and does nothing")->callback(&runTimer);
  auto* const serve = app.add_subcommand("serve", "Looks at the queues and serves 100,000 records");
  serve->add_option("SOCKET", arguments.socket)->required();
  serve->add_option("STATE-DIR", arguments.stateDirectory, "Where to save them, once a second");
  serve->callback(
      [&] { FullRecorder(fullPool, recordsOf(fullPool)).serve(arguments.socket, arguments.stateDirectory); });
  auto* const forks = app.add_subcommand("forks", "How long the start of a report takes");
  forks->add_option("MB", arguments.megabytes, "Resident memory of the process")->required();
  forks->callback([&] { runForks(arguments.megabytes, /*reports=*/21); });
}

void addAsk(CLI::App& app, Asking& asking) {
  auto* const ask =
      app.add_subcommand("ask", "Sends requests; prints answers, median and worst microseconds");
  ask->add_option("--seconds", asking.seconds, "For so long");
  ask->add_option("--gap-ms", asking.gapMs, "Pause between two requests");
  ask->add_option("--pause-ms", asking.pauseMs, "Pause behind each 64 KiB read");
  ask->add_option("--lines", asking.lines, "An answer with fewer of them is an error");
  ask->add_option("SOCKET", asking.socket)->required();
  ask->add_option("REQUEST", asking.request, "A line for the agent; empty: the whole history");
  ask->callback([&asking] { runAsk(asking); });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Puts load onto an agent and tells what it costs.", "agent_bench");
  Arguments arguments;
  app.require_subcommand(0, 1);
  app.add_flag("--smoke", arguments.smoke, "Small and short: shows that everything can be measured");
  addMeasurements(app, arguments);
  addAsk(app, arguments.asking);
  try {
    CLI11_PARSE(app, argc, argv);
    if (arguments.smoke) runSmoke();
  } catch (std::exception const& error) {
    std::fprintf(stderr, "agent_bench: %s\n", error.what());
    return EXIT_FAILURE;
  }
  if (arguments.smoke || !app.get_subcommands().empty()) return EXIT_SUCCESS;
  std::fputs(app.help().c_str(), stderr);
  return 2;
}
