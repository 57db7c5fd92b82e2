// SPDX-License-Identifier: Apache-2.0
// What the recorder may cost, as ratios that are measured within one run:
//
//   budgets            prints a line a budget and how many are kept; takes some minutes and 3 GB of memory
//   budgets --smoke    small sizes and one round: shows that everything can be measured, and no figure
//                      means anything
//
// A line is what is measured, the ratio, the budget, whether it is kept, and the nanoseconds of both sides:
// of an operation, of a line of a report, of a selection of interfaces.
//
// Exits with 0 when all could be measured, whatever the figures are: they inform, and gate nothing; with 77
// when a line says why it could not, and with 1 when a result was wrong.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "bench/ChildProcess.h"
#include "bench/Contest.h"
#include "bench/FilterCases.h"
#include "bench/IntakeCases.h"
#include "bench/ReportCases.h"
#include "bench/Resident.h"
#include "bench/StandardLog.h"
#ifdef VORN_BENCH_SPDLOG
#include "bench/SpdlogLog.h"
#endif

namespace {

using namespace Bench;

// What one contest measured, in the order of its lines.
using Measured = std::array<Comparison, 4>;

struct AppendBudget {
  U32 ports;
  double floor;
  double deque;  // times faster
  bool spdlog;
};
struct FloorBudget {
  U32 ports;
  double floor;
};
struct FilterBudget {
  Patterns const& patterns;
  double compilingEach;  // times faster
};

constexpr AppendBudget appendBudgets[] = {{64, 1.6, 4, true}, {512, 1.2, 4, false}, {4096, 1.4, 3.5, false}};
constexpr FloorBudget mergeBudgets[] = {{1, 1.6}, {64, 2.0}, {512, 2.0}};
constexpr FloorBudget reportBudgets[] = {{128, 1.4}, {1024, 1.6}, {4096, 2.1}};
constexpr FilterBudget filterBudgets[] = {{bracketPatterns, 150}, {literalNames, 50}, {prefixPatterns, 50}};

class Budgets {
 public:
  explicit Budgets(bool smoke) : smoke_(smoke) {}

  // Whether all could be measured.
  bool run() {
    if (smoke_) std::printf("smoke test: the figures below mean nothing\n");
    addMemory();
    for (AppendBudget const& budget : sizes(appendBudgets)) addAppend(budget);
    addGrowth();
    for (FloorBudget const& budget : sizes(mergeBudgets)) addMerge(budget);
    addSteal();
    for (FloorBudget const& budget : sizes(reportBudgets)) addReports(budget);
    for (FilterBudget const& budget : filterBudgets) addFilter(budget);
    if (notMeasured_ > 0) std::printf("not measured: %u\n", notMeasured_);
    std::printf("budgets: %u ok, %u over\n", ok_, over_);
    return notMeasured_ == 0;
  }

 private:
  // The lines of the table.
  void addMemory();
  void addAppend(AppendBudget const& budget);
  void addGrowth();
  void addMerge(FloorBudget const& budget);
  void addSteal();
  void addReports(FloorBudget const& budget);
  void addFilter(FilterBudget const& budget);

  // What stands in them.
  Measured measureAppend(U32 ports) const;
  Measured measureGrowth(U32 few, U32 many) const;
  Measured measureMerge(U32 ports) const;
  Measured measureSteal() const;
  Measured measureReports(U32 ports) const;
  Measured measureFilter(Patterns const& patterns) const;

  void line(std::string const& name, Comparison const& figure, char const* sense, double budget, bool kept) {
    std::printf("%-68s %9.2f  %8s %5g  %-4s", name.c_str(), figure.ratio, sense, budget,
                kept ? "ok" : "over");
    if (figure.seconds > 0) std::printf("  %9.1f / %.1f ns", figure.seconds * 1e9, figure.against * 1e9);
    std::printf("\n");
    ++(kept ? ok_ : over_);
  }
  void atMost(std::string const& name, Comparison const& figure, double budget) {
    line(name, figure, "at most", budget, figure.ratio <= budget);
  }
  // Of what is slower, against the recorder.
  void timesFaster(std::string const& name, Comparison const& figure, double budget) {
    line(name + ", times faster", figure, "at least", budget, figure.ratio >= budget);
  }

  // The medians over several processes: where things lie in memory differs from one to the next, and moves a
  // ratio more than anything that differs between the rounds of one.
  template <class Measure>
  Measured medians(Measure measure) const {
    std::vector<Measured> all;
    for (U32 process = 0; process < (smoke_ ? 1U : 5U); ++process) all.push_back(resultOfChild(measure));
    Measured result;
    for (std::size_t i = 0; i < result.size(); ++i)
      for (double Comparison::*const figure :
           {&Comparison::ratio, &Comparison::seconds, &Comparison::against}) {
        std::vector<double> values;
        for (Measured const& measured : all) values.push_back(measured[i].*figure);
        result[i].*figure = median(values);
      }
    return result;
  }

  // A smoke test takes the first size only, and makes it small.
  template <class Budget, std::size_t count>
  std::vector<Budget> sizes(Budget const (&budgets)[count]) const {
    std::vector<Budget> all(budgets, budgets + count);
    if (smoke_) all.resize(1), all[0].ports = std::min(all[0].ports, 8U);
    return all;
  }
  Contest newContest() const { return Contest(smoke_ ? Contest::Settings{1, 0.0} : Contest::Settings{}); }
  static std::string nameOf(std::string const& what, U32 ports, std::string const& against) {
    return what + ", " + std::to_string(ports) + (ports == 1 ? " interface" : " interfaces") + " / " +
           against;
  }

  bool const smoke_;
  U32 ok_ = 0;
  U32 over_ = 0;
  U32 notMeasured_ = 0;
};

void Budgets::addMemory() {
  U64 const rounds = (smoke_ ? 4 : 40) * U64{Vorn::entriesPerChunk};
  atMost("resident bytes a retained record",
         medians([&] { return Measured{{{bytesPerRetainedRecord(rounds)}}}; })[0], 52);
  atMost("sizeof(Chunk)", {sizeof(Vorn::Chunk)}, 4096);
}

// A log that takes part in the append contest.
template <class Log>
class Appender {
 public:
  Appender(Contest& contest, Workload const& workload, bool smoke) : case_(workload) {
    case_.fill();
    if (!smoke) case_.age();
    number_ = contest.add([this](U64 count) { return case_.run(count); }, 1000);
  }
  Appender(Appender const&) = delete;
  Appender& operator=(Appender const&) = delete;

  std::size_t number() const { return number_; }
  void check() const { case_.check(); }

 private:
  AppendCase<Log> case_;
  std::size_t number_ = 0;
};

void Budgets::addAppend(AppendBudget const& budget) {
  auto const name = [&](char const* against) { return nameOf("append", budget.ports, against); };
  Measured const figures = medians([&] { return measureAppend(budget.ports); });
  atMost(name("array, ring and slab"), figures[0], budget.floor);
  timesFaster(name("map of deques"), figures[1], budget.deque);
  if (!budget.spdlog) return;
#ifdef VORN_BENCH_SPDLOG
  timesFaster(name("ring-buffer log sink"), figures[2], 5);
#else
  std::printf("%-68s not measured: built without spdlog\n", name("ring-buffer log sink").c_str());
  ++notMeasured_;
#endif
}

Measured Budgets::measureAppend(U32 ports) const {
  Workload const workload(ports);
  Contest contest = newContest();
  Appender<FloorLog> floor(contest, workload, smoke_);
  Appender<RecorderLog> recorder(contest, workload, smoke_);
  Appender<DequeLog> deque(contest, workload, smoke_);
#ifdef VORN_BENCH_SPDLOG
  Appender<SpdlogLog> spdlog(contest, workload, smoke_);
#endif
  contest.run();
  floor.check();
  recorder.check();
  deque.check();
  Measured figures{contest.compare(recorder.number(), floor.number()),
                   contest.compare(deque.number(), recorder.number())};
#ifdef VORN_BENCH_SPDLOG
  spdlog.check();
  figures[2] = contest.compare(spdlog.number(), recorder.number());
#endif
  return figures;
}

void Budgets::addGrowth() {
  U32 const few = smoke_ ? 4 : 64;
  U32 const many = smoke_ ? 8 : 4096;
  std::string const name = "append, from " + std::to_string(few) + " to " + std::to_string(many);
  atMost(name + " interfaces / growth of the floor", medians([&] { return measureGrowth(few, many); })[0], 1);
}

Measured Budgets::measureGrowth(U32 few, U32 many) const {
  Workload const fewInterfaces(few);
  Workload const manyInterfaces(many);
  Contest contest = newContest();
  Appender<RecorderLog> atFew(contest, fewInterfaces, smoke_);
  Appender<RecorderLog> atMany(contest, manyInterfaces, smoke_);
  Appender<FloorLog> floorAtFew(contest, fewInterfaces, smoke_);
  Appender<FloorLog> floorAtMany(contest, manyInterfaces, smoke_);
  contest.run();
  atFew.check();
  atMany.check();
  return {{{contest.compare(atMany.number(), atFew.number()).ratio /
            contest.compare(floorAtMany.number(), floorAtFew.number()).ratio}}};
}

void Budgets::addMerge(FloorBudget const& budget) {
  atMost(nameOf("merge, 8 keys", budget.ports, "array and flat key table"),
         medians([&] { return measureMerge(budget.ports); })[0], budget.floor);
}

Measured Budgets::measureMerge(U32 ports) const {
  Workload const workload(ports);
  MergeCase<FloorLog> floorCase(workload);
  MergeCase<RecorderLog> recorderCase(workload);
  floorCase.fill();
  recorderCase.fill();
  Contest contest = newContest();
  std::size_t const floor = contest.add([&](U64 count) { return floorCase.run(count); }, 100'000);
  std::size_t const recorder = contest.add([&](U64 count) { return recorderCase.run(count); }, 100'000);
  contest.run();
  floorCase.check();
  recorderCase.check();
  return {contest.compare(recorder, floor)};
}

void Budgets::addSteal() {
  atMost("append that takes a full chunk / releasing 500 records", medians([&] { return measureSteal(); })[0],
         1.2);
}

// Both count in passes, one chunk an interface.
Measured Budgets::measureSteal() const {
  U32 const ports = smoke_ ? 4 : 64;
  StealCase stealCase(ports);
  ReleaseCase releaseCase(ports);
  auto const passes = [ports](auto& rig) {
    return [&rig, ports](U64 count) {
      double seconds = 0;
      for (U64 pass = 0; pass < count; ++pass) seconds += rig.runPass() / ports;
      return seconds;
    };
  };
  Contest contest = newContest();
  std::size_t const release = contest.add(passes(releaseCase), 50);
  std::size_t const steal = contest.add(passes(stealCase), 50);
  contest.run();
  stealCase.check();
  return {contest.compare(steal, release)};
}

// Seconds that an operation takes so many times.
template <class Operation>
auto times(U64 parts, Operation operation) {
  return [parts, operation](U64 count) {
    double const seconds = secondsOf([&] {
      for (U64 i = 0; i < count; ++i) operation();
    });
    return seconds / static_cast<double>(parts);
  };
}

void Budgets::addReports(FloorBudget const& budget) {
  Measured const figures = medians([&] { return measureReports(budget.ports); });
  atMost(nameOf("CSV report", budget.ports, "presorted records"), figures[0], budget.floor);
  atMost(nameOf("text report", budget.ports, "presorted records"), figures[1], budget.floor);
  atMost(nameOf("text by query", budget.ports, "text report"), figures[2], 1.3);
  timesFaster(nameOf("query of the newest hundredth", budget.ports, "query of all"), figures[3], 25);
}

Measured Budgets::measureReports(U32 ports) const {
  U64 const lines = smoke_ ? 5000 : 100'000;
  ReportCase const reports(ports, lines);
  NullStream const stream;
  Measured figures{};
  for (bool const csv : {true, false}) {
    char const* const command = csv ? "csv" : "";
    reports.check(csv, command);
    Contest contest = newContest();
    std::size_t const floor = contest.add(times(lines, [&] { reports.floor(stream.get(), csv); }));
    std::size_t const recorder = contest.add(times(lines, [&] { reports.report(stream.get(), command); }));
    std::size_t const query = contest.add(times(lines, [&] { reports.ask(stream.get(), {}); }));
    std::size_t const newest =
        contest.add(times(lines, [&] { reports.ask(stream.get(), reports.ofNewest(10'000)); }));
    contest.run();
    figures[csv ? 0 : 1] = contest.compare(recorder, floor);
    figures[2] = contest.compare(query, recorder);
    figures[3] = contest.compare(query, newest);
  }
  return figures;
}

void Budgets::addFilter(FilterBudget const& budget) {
  timesFaster(std::string("filter, ") + budget.patterns.name + " / compiling each test",
              medians([&] { return measureFilter(budget.patterns); })[0], budget.compilingEach);
}

Measured Budgets::measureFilter(Patterns const& patterns) const {
  FilterCase const filter(patterns, smoke_ ? 64 : 512);
  filter.check();
  // Nothing of what is selected may be left out by the compiler.
  std::size_t selected = 0;
  Contest contest = newContest();
  std::size_t const each = contest.add(times(1, [&] { selected += filter.selectCompilingEach().size(); }));
  std::size_t const once = contest.add(times(1, [&] { selected += filter.select().size(); }));
  contest.run();
  expect(selected > 0, "selected interfaces");
  return {contest.compare(each, once)};
}

}  // namespace

int main(int argc, char** argv) {
  bool const smoke = argc == 2 && std::strcmp(argv[1], "--smoke") == 0;
  if (argc > 1 && !smoke) {
    std::fprintf(stderr, "usage: budgets [--smoke]\n");
    return 2;
  }
  try {
    return Budgets(smoke).run() ? 0 : 77;
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "budgets: %s\n", failure.what());
    return 1;
  }
}
