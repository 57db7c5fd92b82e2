// SPDX-License-Identifier: Apache-2.0
// In Probe.cpp's place where the agent is built without the probe.
#include "agent/probe/Probe.h"

namespace Agent {

struct Probe::Kernel {};

Probe::Probe(Options const&, Limits const&) { throw ProbeRefused("this agent was built without the probe"); }
Probe::~Probe() = default;
void Probe::limitsAre(Limits const&) {}
void Probe::ignoredIs(Kes::U32, bool) {}
int Probe::fd() const { return -1; }
void Probe::takeNotices(Handler const&) {}
void Probe::takeUntold(Handler const&) {}
std::optional<ProbedQueue> Probe::queue(Kes::U64) const { return std::nullopt; }
FlowTable const& Probe::flows(Kes::U32) const {
  static FlowTable const none{};
  return none;
}
void Probe::giveBack(Kes::U32) {}
std::string const& Probe::slowBecause() const {
  static std::string const none;
  return none;
}
ProbeCounts Probe::counts() const { return {}; }
Kes::U64 Probe::missedRuns() const { return 0; }

}  // namespace Agent
