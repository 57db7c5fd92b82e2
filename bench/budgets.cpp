// What the recorder may cost, as ratios that are measured within one run:
//
//   budgets            prints a line a budget and how many are kept; takes some minutes and 3 GB of memory
//   budgets --smoke    small sizes and one round: shows that everything can be measured, and no figure
//                      means anything
//
// Exits with 0 when all could be measured, whatever the figures are: they inform, and gate nothing; with 77
// when a line says why it could not, and with 1 when a result was wrong.

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>
#include <tuple>
#include <vector>

#include "bench/BudgetTable.h"
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

struct Size {
  U32 ports;
  double csvBudget;
  double textBudget;
};

struct FilterBudget {
  Patterns const& patterns;
  double budget;
};

constexpr FilterBudget filterBudgets[] = {{bracketPatterns, 150}, {literalNames, 5}, {prefixPatterns, 5}};

// What one contest measured, in the order of its lines.
using Measured = std::array<double, 4>;

class Budgets {
 public:
  explicit Budgets(bool smoke) : smoke_(smoke) {}

  // Whether all could be measured.
  bool run() {
    if (smoke_) std::printf("smoke test: the figures below mean nothing\n");
    addMemory();
    for (U32 const ports : sizes({64, 512, 4096})) addAppend(ports);
    addScaling();
    for (U32 const ports : sizes({1, 64, 512})) addMerge(ports);
    addSteal();
    for (Size const& size : reportSizes()) addReports(size);
    for (FilterBudget const& filter : filterBudgets) addFilter(filter);
    return table_.finish();
  }

 private:
  // The lines of the table.
  void addMemory();
  void addAppend(U32 ports);
  void addScaling();
  void addMerge(U32 ports);
  void addSteal();
  void addReports(Size const& size);
  void addFilter(FilterBudget const& budget);

  // What stands in them.
  Measured measureAppend(U32 ports) const;
  Measured measureScaling(U32 few, U32 many) const;
  Measured measureMerge(U32 ports) const;
  Measured measureSteal() const;
  Measured measureReports(U32 ports) const;
  double measureReport(ReportCase const& reports, bool csv) const;
  Measured measureFilter(Patterns const& patterns) const;

  // The medians over several processes: where things lie in memory differs from one to the next, and moves a
  // ratio more than anything that differs between the rounds of one.
  template <class Measure>
  Measured medians(Measure measure) const {
    std::array<std::vector<double>, std::tuple_size_v<Measured>> all;
    for (U32 process = 0; process < (smoke_ ? 1U : 5U); ++process) {
      Measured const measured = resultOfChild(measure);
      for (std::size_t i = 0; i < measured.size(); ++i) all[i].push_back(measured[i]);
    }
    Measured result;
    std::transform(all.begin(), all.end(), result.begin(), median);
    return result;
  }

  // A smoke test takes the first size only.
  std::vector<U32> sizes(std::vector<U32> all) const {
    if (smoke_) all = {std::min(all.front(), 8U)};
    return all;
  }
  std::vector<Size> reportSizes() const {
    if (smoke_) return {{8, 1.5, 1.4}};
    return {{128, 1.5, 1.4}, {1024, 1.6, 1.5}, {4096, 2.3, 2.0}};
  }
  Contest newContest() const { return Contest(smoke_ ? Contest::Settings{1, 0.0} : Contest::Settings{}); }
  static std::string nameOf(std::string const& what, U32 ports, std::string const& against) {
    return what + ", " + std::to_string(ports) + (ports == 1 ? " interface" : " interfaces") + " / " +
           against;
  }

  bool const smoke_;
  BudgetTable table_;
};

void Budgets::addMemory() {
  U64 const rounds = (smoke_ ? 4 : 40) * U64{Vorn::entriesPerChunk};
  Measured const bytes = medians([&] { return Measured{bytesPerRetainedRecord(rounds)}; });
  table_.atMost("resident bytes a retained record", bytes[0], 52);
  table_.atMost("sizeof(Chunk)", sizeof(Vorn::Chunk), 4096);
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

void Budgets::addAppend(U32 ports) {
  auto const name = [&](char const* against) { return nameOf("append", ports, against); };
  Measured const ratios = medians([&] { return measureAppend(ports); });
  table_.atMost(name("array, ring and slab"), ratios[0], 1.5);
  table_.atLeast(name("map of deques, times faster"), ratios[1], 5);
#ifdef VORN_BENCH_BOOST
  table_.atLeast(name("map of circular buffers, times faster"), ratios[2], 5);
#else
  table_.notMeasured(name("map of circular buffers"), "built without Boost");
#endif
#ifdef VORN_BENCH_SPDLOG
  table_.atLeast(name("ring-buffer log sink, times faster"), ratios[3], 4);
#else
  table_.notMeasured(name("ring-buffer log sink"), "built without spdlog");
#endif
}

Measured Budgets::measureAppend(U32 ports) const {
  Workload const workload(ports);
  Contest contest = newContest();
  Appender<FloorLog> floor(contest, workload, smoke_);
  Appender<RecorderLog> recorder(contest, workload, smoke_);
  Appender<DequeLog> deque(contest, workload, smoke_);
#ifdef VORN_BENCH_BOOST
  Appender<CircularBufferLog> circular(contest, workload, smoke_);
#endif
#ifdef VORN_BENCH_SPDLOG
  Appender<SpdlogLog> spdlog(contest, workload, smoke_);
#endif
  contest.run();

  floor.check();
  recorder.check();
  deque.check();
  Measured ratios{contest.ratio(recorder.number(), floor.number()),
                  contest.ratio(deque.number(), recorder.number())};
#ifdef VORN_BENCH_BOOST
  circular.check();
  ratios[2] = contest.ratio(circular.number(), recorder.number());
#endif
#ifdef VORN_BENCH_SPDLOG
  spdlog.check();
  ratios[3] = contest.ratio(spdlog.number(), recorder.number());
#endif
  return ratios;
}

void Budgets::addScaling() {
  U32 const few = smoke_ ? 4 : 64;
  U32 const many = smoke_ ? 8 : 4096;
  table_.atMost("append, " + std::to_string(many) + " interfaces / " + std::to_string(few),
                medians([&] { return measureScaling(few, many); })[0], 3);
}

Measured Budgets::measureScaling(U32 few, U32 many) const {
  Workload const fewInterfaces(few);
  Workload const manyInterfaces(many);
  Contest contest = newContest();
  Appender<RecorderLog> atFew(contest, fewInterfaces, smoke_);
  Appender<RecorderLog> atMany(contest, manyInterfaces, smoke_);
  contest.run();
  atFew.check();
  atMany.check();
  return {contest.ratio(atMany.number(), atFew.number())};
}

void Budgets::addMerge(U32 ports) {
  table_.atMost(nameOf("merge, 8 keys", ports, "array and flat key table"),
                medians([&] { return measureMerge(ports); })[0], 1.5);
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
  return {contest.ratio(recorder, floor)};
}

void Budgets::addSteal() {
  table_.atMost("append that takes a full chunk / releasing 500 records",
                medians([&] { return measureSteal(); })[0], 1.5);
}

// Both count in passes, one chunk an interface.
Measured Budgets::measureSteal() const {
  U32 const ports = smoke_ ? 4 : 64;
  StealCase stealCase(ports);
  ReleaseCase releaseCase(ports);
  auto const passes = [](auto& rig) {
    return [&rig](U64 count) {
      double seconds = 0;
      for (U64 pass = 0; pass < count; ++pass) seconds += rig.runPass();
      return seconds;
    };
  };
  Contest contest = newContest();
  std::size_t const release = contest.add(passes(releaseCase));
  std::size_t const steal = contest.add(passes(stealCase));
  contest.run();
  stealCase.check();
  return {contest.ratio(steal, release)};
}

void Budgets::addReports(Size const& size) {
  Measured const ratios = medians([&] { return measureReports(size.ports); });
  table_.atMost(nameOf("CSV report", size.ports, "presorted records"), ratios[0], size.csvBudget);
  table_.atMost(nameOf("text report", size.ports, "presorted records"), ratios[1], size.textBudget);
}

Measured Budgets::measureReports(U32 ports) const {
  ReportCase const reports(ports, smoke_ ? 5000 : 100'000, &agentRecord);
  return {measureReport(reports, /*csv=*/true), measureReport(reports, /*csv=*/false)};
}

double Budgets::measureReport(ReportCase const& reports, bool csv) const {
  char const* const command = csv ? "csv" : "";
  reports.check(csv, command);
  NullStream const stream;
  auto const times = [](auto write) {
    return [write](U64 count) {
      return secondsOf([&] {
        for (U64 i = 0; i < count; ++i) write();
      });
    };
  };
  Contest contest = newContest();
  std::size_t const floor = contest.add(times([&] { reports.floor(stream.get(), csv); }));
  std::size_t const recorder = contest.add(times([&] { reports.report(stream.get(), command); }));
  contest.run();
  return contest.ratio(recorder, floor);
}

void Budgets::addFilter(FilterBudget const& budget) {
  table_.atLeast(std::string("filter, ") + budget.patterns.name + " / compiling each test, times faster",
                 medians([&] { return measureFilter(budget.patterns); })[0], budget.budget);
}

Measured Budgets::measureFilter(Patterns const& patterns) const {
  FilterCase const filter(patterns, smoke_ ? 64 : 512);
  filter.check();
  // Nothing of what is selected may be left out by the compiler.
  std::size_t selected = 0;
  auto const times = [&selected](auto select) {
    return [&selected, select](U64 count) {
      return secondsOf([&] {
        for (U64 i = 0; i < count; ++i) selected += select().size();
      });
    };
  };
  Contest contest = newContest();
  std::size_t const each = contest.add(times([&] { return filter.selectCompilingEach(); }));
  std::size_t const once = contest.add(times([&] { return filter.select(); }));
  contest.run();
  expect(selected > 0, "selected interfaces");
  return {contest.ratio(each, once)};
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
