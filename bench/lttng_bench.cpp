// A record into the recorder, beside one into a tracepoint that an LTTng snapshot session records. It stands
// apart from the other suites since LTTng has threads of its own in every process that it traces.
//
// LTTng's buffers are bounded by bytes a processor, not by records an interface: a busy interface pushes out
// the records of the quiet. And it stamps each record with its own clock too.

#include <cstdio>
#include <cstring>
#include <memory>

#include "bench/IntakeCases.h"
#include "bench/LttngSession.h"
#include "bench/LttngTracepoint.h"
#include "bench/Suite.h"

namespace Bench {

namespace {

class RecorderCase {
 public:
  RecorderCase(U32 ports, bool smoke) : workload_(ports), case_(workload_, Vorn::clockFactory()) {
    case_.fill();
    if (!smoke) case_.age();
  }
  double run(U64 count) { return case_.run(count); }
  void check() const { case_.check(); }

 private:
  Workload workload_;
  AppendCase<RecorderLog> case_;
};

class TracepointCase {
 public:
  TracepointCase(U32 ports, std::shared_ptr<LttngSession> session)
      : workload_(ports), session_(std::move(session)) {
    run(recordsOfBuffers);
  }

  double run(U64 count) {
    U64 const end = next_ + count;
    return secondsOf([&] {
      for (; next_ != end; ++next_)
        traceCongestion(workload_.names()[workload_.port(next_)].c_str(), Workload::qLen(next_),
                        Workload::timestamp(next_));
    });
  }

  // The latest records stand in a snapshot, name and time side by side.
  void check() const {
    std::string const bytes = session_->snapshot();
    for (U64 n = next_ - 100; n != next_; ++n) {
      U64 const timestamp = Workload::timestamp(n);
      std::string record = workload_.names()[workload_.port(n)] + '\0';
      record.append(reinterpret_cast<char const*>(&timestamp), sizeof timestamp);
      expect(bytes.find(record) != std::string::npos, "a record in the snapshot");
    }
  }

 private:
  // More than the 16 MiB of a processor's buffers hold of some 40 bytes each.
  static constexpr U64 recordsOfBuffers = 1'000'000;

  Workload workload_;
  std::shared_ptr<LttngSession> session_;
  U64 next_ = 0;
};

}  // namespace

void addCases(bool smoke) {
  auto const session = std::make_shared<LttngSession>();
  for (U32 const ports : smoke ? std::vector<U32>{4} : std::vector<U32>{1, 64, 512, 4096}) {
    U64 const batch = smoke ? 1000 : 200'000;
    addCase(sized("full/uniform/recorder with the real clock", ports), smoke, batch,
            [=] { return std::make_unique<RecorderCase>(ports, smoke); });
    addCase(sized("full/uniform/LTTng snapshot session", ports), smoke, batch,
            [=] { return std::make_unique<TracepointCase>(ports, session); });
  }
}

}  // namespace Bench
