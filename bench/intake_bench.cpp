// Each way of a record into the recorder, and into what could stand in its place.
//
//   private     into an interface's first chunk
//   newShared   each append gets a new shared chunk
//   steal       each append takes a full chunk from another interface
//   full        all logs are full: the mixture of a long run
//   merge       an update that merges, 8 keys an interface
//   global      into the full log of the global buffer

#include "bench/Floor.h"
#include "bench/IntakeCases.h"
#include "bench/StandardLog.h"
#include "bench/Suite.h"
#ifdef VORN_BENCH_SPDLOG
#include "bench/SpdlogLog.h"
#endif
#ifdef VORN_BENCH_SQLITE
#include "bench/SqliteLog.h"
#endif

namespace Bench {

namespace {

// Recorders that are made anew for every batch and given a first part of the records before the clock runs; a
// few of them where one interface would give too little to time.
class FreshCase {
 public:
  enum class Kind { privateChunk, newShared };

  FreshCase(U32 ports, Kind kind) : workload_(ports), kind_(kind) {}

  // Operations of a batch: as many as there is room for.
  static U64 batch(U32 ports, Kind kind) { return recorders(ports) * appendsEach(ports, kind); }

  double run(U64) {
    logs_.clear();
    for (U32 i = 0; i < recorders(workload_.ports()); ++i) {
      RecorderLog& log = *logs_.emplace_back(std::make_unique<RecorderLog>(workload_));
      for (U64 n = 0; n < timedFrom(); ++n) append(log, n);
    }
    return secondsOf([&] {
      for (auto const& log : logs_)
        for (U64 n = timedFrom(); n < timedTo(); ++n) append(*log, n);
    });
  }

  void check() const {
    for (auto const& log : logs_) {
      expect(log->recorder().chunkArrayCount() == (kind_ == Kind::newShared ? workload_.ports() : 0),
             "number of shared chunks");
      for (U32 const port : checkedPorts(workload_.ports()))
        expect(log->kept(port) == given(port), "records");
    }
  }

 private:
  static U32 recorders(U32 ports) { return std::max(64 / ports, 1U); }
  static U64 appendsEach(U32 ports, Kind kind) { return kind == Kind::newShared ? ports : ports * U64{300}; }

  // All interfaces have their first chunk before the clock runs; it is full where the next is to be a new
  // one.
  U64 timedFrom() const {
    return U64{workload_.ports()} * (kind_ == Kind::newShared ? Vorn::entriesPerChunk : 1);
  }
  U64 timedTo() const { return timedFrom() + appendsEach(workload_.ports(), kind_); }
  U32 portOf(U64 n) const {
    bool const inTurn = n < timedFrom() || kind_ == Kind::newShared;
    return inTurn ? static_cast<U32>(n % workload_.ports()) : workload_.port(n);
  }
  void append(RecorderLog& log, U64 n) const {
    log.append(portOf(n), Workload::qLen(n), Workload::timestamp(n));
  }
  std::vector<Kept> given(U32 port) const {
    std::vector<Kept> records;
    for (U64 n = 0; n < timedTo(); ++n)
      if (portOf(n) == port) records.push_back({Workload::timestamp(n), 0, Workload::qLen(n)});
    return records;
  }

  Workload workload_;
  Kind const kind_;
  std::vector<std::unique_ptr<RecorderLog>> logs_;
};

class StealBatches {
 public:
  explicit StealBatches(U32 ports) : case_(ports) {}
  double run(U64) { return case_.runPass(); }
  void check() const { case_.check(); }

 private:
  StealCase case_;
};

class GlobalCase {
 public:
  GlobalCase() { recorder_->allocateGlobalChunk(); }

  double run(U64 count) {
    U64 const end = next_ + count;
    return secondsOf([&] {
      for (; next_ != end; ++next_)
        recorder_->doAddToGlobalLog(
            Kes::makePtr<Vorn::Entry>(Workload::qLen(next_), Vorn::Microseconds(Workload::timestamp(next_))));
    });
  }
  void check() const {
    U64 n = next_ - Vorn::entriesPerChunk;
    for (auto entry = recorder_->globalBufferChunk()->entryIterator(); entry; ++entry, ++n)
      expect((*entry)->timestamp().value() == Workload::timestamp(n), "global records");
    expect(n == next_, "number of global records");
  }

 private:
  Vorn::CongestionData::Ptr recorder_ = newRecorder();
  U64 next_ = 0;
};

// A case of its own workload, filled, and where it matters aged.
template <class Case>
class Owning {
 public:
  template <class... Args>
  explicit Owning(bool smoke, U32 ports, Spread spread, Args&&... args)
      : workload_(ports, spread), case_(workload_, std::forward<Args>(args)...) {
    case_.fill();
    if constexpr (requires { case_.age(); })
      if (!smoke) case_.age();
  }
  double run(U64 count) { return case_.run(count); }
  void check() const { case_.check(); }

 private:
  Workload workload_;
  Case case_;
};

template <class Case, class... Args>
auto make(Args... args) {
  return [args...] { return std::make_unique<Case>(args...); };
}

template <class Log>
void addFull(std::string const& log, bool smoke, U32 ports) {
  using Case = Owning<AppendCase<Log>>;
  U64 const batch = smoke ? 1000 : 200'000;
  addCase(sized("full/uniform/" + log, ports), smoke, batch, make<Case>(smoke, ports, Spread::uniform));
  addCase(sized("full/skewed/" + log, ports), smoke, batch, make<Case>(smoke, ports, Spread::skewed));
  addCase(sized("full/in turn/" + log, ports), smoke, batch, make<Case>(smoke, ports, Spread::inTurn));
}

void addRecorderCases(bool smoke, U32 ports) {
  using Full = Owning<AppendCase<RecorderLog>>;
  using Kind = FreshCase::Kind;
  U64 const batch = smoke ? 1000 : 200'000;
  for (auto const& [name, kind] : {std::pair{"private", Kind::privateChunk}, {"newShared", Kind::newShared}})
    addCase(sized(name, ports), smoke, FreshCase::batch(ports, kind), make<FreshCase>(ports, kind));
  // An only interface has nobody to take from.
  if (ports > 1) addCase(sized("steal", ports), smoke, ports, make<StealBatches>(ports));
  addFull<RecorderLog>("recorder", smoke, ports);
  addCase(sized("full/uniform/recorder with the real clock", ports), smoke, batch,
          make<Full>(smoke, ports, Spread::uniform, Vorn::clockFactory()));
}

void addPeerCases(bool smoke, U32 ports) {
  addFull<FloorLog>("floor", smoke, ports);
  addFull<StructFloorLog>("floor of plain structs", smoke, ports);
  addFull<DequeLog>("map of deques", smoke, ports);
#ifdef VORN_BENCH_BOOST
  addFull<CircularBufferLog>("map of circular buffers", smoke, ports);
#endif
#ifdef VORN_BENCH_SPDLOG
  addFull<SpdlogLog>("spdlog ring buffer", smoke, ports);
#endif
#ifdef VORN_BENCH_SQLITE
  // Filling four million rows would take longer than all else.
  if (ports <= 512) addFull<SqliteLog>("SQLite", smoke, ports);
#endif
}

void addMergeCases(bool smoke, U32 ports) {
  U64 const batch = smoke ? 1000 : 200'000;
  addCase(sized("merge/floor", ports), smoke, batch,
          make<Owning<MergeCase<FloorLog>>>(smoke, ports, Spread::uniform));
  addCase(sized("merge/floor of plain structs", ports), smoke, batch,
          make<Owning<MergeCase<StructFloorLog>>>(smoke, ports, Spread::uniform));
  addCase(sized("merge/recorder", ports), smoke, batch,
          make<Owning<MergeCase<RecorderLog>>>(smoke, ports, Spread::uniform));
}

}  // namespace

void addCases(bool smoke) {
  for (U32 const ports : smoke ? std::vector<U32>{4} : std::vector<U32>{1, 64, 512, 4096}) {
    addRecorderCases(smoke, ports);
    addPeerCases(smoke, ports);
    addMergeCases(smoke, ports);
  }
  addCase("global", smoke, 10'000, make<GlobalCase>());
}

}  // namespace Bench
