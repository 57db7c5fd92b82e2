// What the recorder may cost, as ratios that are measured within one run:
//
//   budgets            prints a line a budget and how many are kept; takes some minutes and 3 GB of memory
//   budgets --smoke    small sizes and one round: shows that everything can be measured, and no figure
//                      means anything
//
// Exits with 0 when all could be measured, whatever the figures are: they inform, and gate nothing; with 77
// when a line says why it could not, and with 1 when a result was wrong.

#include <cstring>
#include <exception>
#include <optional>

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

class Budgets {
 public:
  explicit Budgets(bool smoke) : smoke_(smoke) {}

  // Whether all could be measured.
  bool run() {
    if (smoke_) std::printf("smoke test: the figures below mean nothing\n");
    inChild([&] { measureMemory(); });
    for (U32 const ports : sizes({64, 512, 4096})) inChild([&] { measureAppend(ports); });
    inChild([&] { measureScaling(); });
    for (U32 const ports : sizes({1, 64, 512})) inChild([&] { measureMerge(ports); });
    inChild([&] { measureSteal(); });
    for (Size const& size : reportSizes()) inChild([&] { measureReports(size); });
    for (FilterBudget const& filter : filterBudgets) inChild([&] { measureFilter(filter); });
    return table_.finish();
  }

 private:
  void measureMemory();
  void measureAppend(U32 ports);
  void measureScaling();
  void measureMerge(U32 ports);
  void measureSteal();
  void measureReports(Size const& size);
  void measureReport(ReportCase const& reports, bool csv, double budget);
  void measureFilter(FilterBudget const& budget);

  // The lines of a part, from a process of its own.
  template <class Part>
  void inChild(Part part) {
    table_.countsIs(resultOfChild([&] {
      part();
      return table_.counts();
    }));
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

void Budgets::measureMemory() {
  U64 const rounds = (smoke_ ? 4 : 40) * U64{Vorn::entriesPerChunk};
  table_.atMost("resident bytes a retained record", bytesPerRetainedRecord(rounds), 52);
  table_.atMost("sizeof(Chunk)", sizeof(Vorn::Chunk), 4096);
}

// A log that takes part in the append contest; none where its library is missing.
template <class Log>
class Appender {
 public:
  Appender(Contest& contest, Workload const& workload) : case_(workload) {
    case_.fill();
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

void Budgets::measureAppend(U32 ports) {
  Workload const workload(ports);
  Contest contest = newContest();
  Appender<FloorLog> floor(contest, workload);
  Appender<RecorderLog> recorder(contest, workload);
  Appender<DequeLog> deque(contest, workload);
#ifdef VORN_BENCH_BOOST
  Appender<CircularBufferLog> circular(contest, workload);
#endif
#ifdef VORN_BENCH_SPDLOG
  Appender<SpdlogLog> spdlog(contest, workload);
#endif
  contest.run();

  floor.check();
  recorder.check();
  deque.check();
  auto const faster = [&](std::size_t peer) { return contest.ratio(peer, recorder.number()); };
  auto const name = [&](char const* against) { return nameOf("append", ports, against); };
  table_.atMost(name("array, ring and slab"), contest.ratio(recorder.number(), floor.number()), 1.5);
  table_.atLeast(name("map of deques, times faster"), faster(deque.number()), 5);
#ifdef VORN_BENCH_BOOST
  circular.check();
  table_.atLeast(name("map of circular buffers, times faster"), faster(circular.number()), 5);
#else
  table_.notMeasured(name("map of circular buffers"), "built without Boost");
#endif
#ifdef VORN_BENCH_SPDLOG
  spdlog.check();
  table_.atLeast(name("ring-buffer log sink, times faster"), faster(spdlog.number()), 4);
#else
  table_.notMeasured(name("ring-buffer log sink"), "built without spdlog");
#endif
}

void Budgets::measureScaling() {
  Workload const few(smoke_ ? 4 : 64);
  Workload const many(smoke_ ? 8 : 4096);
  Contest contest = newContest();
  Appender<RecorderLog> atFew(contest, few);
  Appender<RecorderLog> atMany(contest, many);
  contest.run();
  atFew.check();
  atMany.check();
  table_.atMost("append, " + std::to_string(many.ports()) + " interfaces / " + std::to_string(few.ports()),
                contest.ratio(atMany.number(), atFew.number()), 3);
}

void Budgets::measureMerge(U32 ports) {
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
  table_.atMost(nameOf("merge, 8 keys", ports, "array and flat key table"), contest.ratio(recorder, floor),
                1.5);
}

// Both count in passes, one chunk an interface.
void Budgets::measureSteal() {
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
  table_.atMost("append that takes a full chunk / releasing 500 records", contest.ratio(steal, release), 1.5);
}

void Budgets::measureReports(Size const& size) {
  ReportCase const reports(size.ports, smoke_ ? 5000 : 100'000, &agentRecord);
  measureReport(reports, /*csv=*/true, size.csvBudget);
  measureReport(reports, /*csv=*/false, size.textBudget);
}

void Budgets::measureReport(ReportCase const& reports, bool csv, double budget) {
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
  table_.atMost(nameOf(csv ? "CSV report" : "text report", reports.workload().ports(), "presorted records"),
                contest.ratio(recorder, floor), budget);
}

void Budgets::measureFilter(FilterBudget const& budget) {
  FilterCase const filter(budget.patterns, smoke_ ? 64 : 512);
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
  table_.atLeast(std::string("filter, ") + budget.patterns.name + " / compiling each test, times faster",
                 contest.ratio(each, once), budget.budget);
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
