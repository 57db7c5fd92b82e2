// One look of the agent at all queues of this network namespace, beside a system call that does next to
// nothing.

#include <unistd.h>

#include "agent/QdiscDump.h"
#include "bench/Suite.h"

namespace Bench {

namespace {

void poll(benchmark::State& state) {
  Agent::QdiscDump dump(Kes::makePtr<Agent::AgentClock>());
  std::vector<Agent::QdiscSample> samples;
  if (dump.poll(samples) == Agent::QdiscDump::Outcome::failed)
    return state.SkipWithError("the queues of this machine cannot be read");
  for (auto _ : state) benchmark::DoNotOptimize(dump.poll(samples));
  state.counters["queues"] = static_cast<double>(samples.size());
}

}  // namespace

void addCases(bool) {
  benchmark::RegisterBenchmark("poll", poll);
  addLoop("getppid", [] { return getppid(); });
}

}  // namespace Bench
