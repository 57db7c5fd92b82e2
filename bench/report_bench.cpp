// Reports of 100,000 records into /dev/null; "each" is the time of one line.

#include "bench/IntakeCases.h"
#include "bench/ReportCases.h"
#include "bench/StandardLog.h"
#include "bench/Suite.h"
#ifdef VORN_BENCH_SQLITE
#include "bench/SqliteLog.h"
#endif

namespace Bench {

namespace {

// Seconds of so many lines, written as whole reports of `lines`.
template <class Write>
double reportSeconds(U64 count, U64 lines, Write write) {
  return secondsOf([&] {
    for (U64 written = 0; written < count; written += lines) write();
  });
}

struct ReportKind {
  char const* name;
  char const* command;
  bool csv = false;
  bool withStartRecords = false;
  bool withGlobalRecords = false;
};

constexpr ReportKind kinds[] = {
    {.name = "text", .command = ""},
    {.name = "csv", .command = "csv", .csv = true},
    {.name = "drops", .command = "-d"},
    {.name = "text with start records", .command = "", .withStartRecords = true},
    {.name = "csv with start records", .command = "csv", .csv = true, .withStartRecords = true},
    {.name = "text with global records", .command = "-a", .withGlobalRecords = true},
    {.name = "csv with global records", .command = "csv -a", .csv = true, .withGlobalRecords = true},
};

class RecorderReport {
 public:
  RecorderReport(U32 ports, U64 records, ReportKind const& kind) : kind_(kind), case_(ports, records) {
    if (kind.withStartRecords) case_.addMetaData();
    if (kind.withGlobalRecords) case_.addGlobalRecords();
    lines_ = records + (kind.withStartRecords ? ports : 0) +
             (kind.withGlobalRecords ? ReportCase::globalRecords : 0);
  }
  double run(U64 count) {
    return reportSeconds(count, lines_, [&] { case_.report(stream_.get(), kind_.command); });
  }
  void check() const { case_.check(kind_.csv, kind_.command); }

 private:
  ReportKind const& kind_;
  ReportCase case_;
  U64 lines_ = 0;
  NullStream stream_;
};

class FloorReport {
 public:
  FloorReport(U32 ports, U64 records) : case_(ports, records) {}
  double run(U64 count) {
    return reportSeconds(count, case_.records(), [&] { case_.floor(stream_.get(), /*csv=*/true); });
  }
  void check() const { case_.check(/*csv=*/true, "csv"); }

 private:
  ReportCase case_;
  NullStream stream_;
};

class StatisticsReport {
 public:
  explicit StatisticsReport(U32 ports) : case_(ports, 0) { case_.addMetaData(); }
  double run(U64 count) {
    return reportSeconds(count, case_.workload().ports(), [&] { case_.report(stream_.get(), "-c"); });
  }
  void check() const { case_.checkStatistics(); }

 private:
  ReportCase case_;
  NullStream stream_;
};

// The same records in another log, whose report must have the same lines.
template <class Log>
class PeerReport {
 public:
  PeerReport(U32 ports, U64 records) : workload_(ports), log_(workload_), records_(records) {
    log_.run(records);
    for (Pylo::IntfId const& id : interfaceIds(workload_)) shortNames_.push_back(id.shortName().str());
  }
  double run(U64 count) {
    return reportSeconds(count, records_, [&] { log_.log().report(stream_.get(), shortNames_); });
  }
  void check() {
    std::string const lines = writtenBy([&](std::FILE* out) { log_.log().report(out, shortNames_); });
    ReportCase const expected(workload_.ports(), records_);
    expect(lines == writtenBy([&](std::FILE* out) { expected.floor(out, /*csv=*/true); }), "lines of a peer");
  }

 private:
  Workload workload_;
  AppendCase<Log> log_;
  U64 records_;
  std::vector<std::string> shortNames_;
  NullStream stream_;
};

template <class Case, class... Args>
void add(std::string const& name, bool smoke, U32 ports, U64 lines, Args const&... args) {
  addCase(sized(name, ports), smoke, lines, [=] { return std::make_unique<Case>(ports, args...); });
}

}  // namespace

void addCases(bool smoke) {
  for (U32 const ports : smoke ? std::vector<U32>{4} : std::vector<U32>{16, 128, 1024, 4096}) {
    U64 const records = smoke ? 2000 : 100'000;
    for (ReportKind const& kind : kinds)
      addCase(sized(kind.name, ports), smoke, records,
              [=, &kind] { return std::make_unique<RecorderReport>(ports, records, kind); });
    add<StatisticsReport>("statistics", smoke, ports, ports);
    add<FloorReport>("csv/floor", smoke, ports, records, records);
    // With fewer interfaces the bounded logs cannot hold so many.
    if (ports * U64{capacity} < records * 5 / 4) continue;
    add<PeerReport<DequeLog>>("csv/map of deques, sorted", smoke, ports, records, records);
#ifdef VORN_BENCH_SQLITE
    add<PeerReport<SqliteLog>>("csv/SQLite", smoke, ports, records, records);
#endif
  }
}

}  // namespace Bench
