// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "Kes/Types.h"
#include "agent/probe/FlowTable.h"
#include "agent/probe/ProbeNotice.h"

namespace Agent {

// Why there is no probe, for people.
class ProbeRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The probe in the kernel (probe.bpf.c): loads it, attaches it, and reads what it keeps. It is of this
// network namespace alone. Nothing of it stays in the kernel when this object, or the process, is gone.
class Probe {
 public:
  struct Options {
    bool countFlows = true;
    // Bits of addresses that are kept.
    unsigned ipv4Prefix = 32;
    unsigned ipv6Prefix = 128;
  };
  // What can be changed at any time.
  struct Limits {
    Kes::U32 startThreshold = 0;             // bytes; none is below two full frames
    std::chrono::microseconds coalescing{};  // what exceeds it again after no more than this is one burst
    Kes::U32 smallestFrame = 0;              // bytes, of all interfaces
  };

  // Throws ProbeRefused. From then on the process has neither of the capabilities that this takes, CAP_BPF
  // and CAP_PERFMON, where the kernel lets it do without.
  Probe(Options const& options, Limits const& limits);
  ~Probe();
  Probe(Probe const&) = delete;
  Probe& operator=(Probe const&) = delete;

  void limitsAre(Limits const& limits);
  // Of that interface nothing is observed any more, or again.
  void ignoredIs(Kes::U32 ifindex, bool ignored);

  // Readable when there are notices to take.
  int fd() const;
  // Calls the handler with each that is there, in their order.
  using Handler = std::function<void(ProbeNotice const&)>;
  void takeNotices(Handler const& handler);
  // The same with what has found no room so far. It may come as a notice as well.
  void takeUntold(Handler const& handler);

  // What is kept of a queue, by the number that its notices have. Empty where it is gone.
  std::optional<ProbedQueue> queue(Kes::U64 number) const;

  // The flows of a burst by its table. The table is the caller's to give back once the burst is over; it is
  // emptied.
  FlowTable const& flows(Kes::U32 table) const;
  void giveBack(Kes::U32 table);

  // Why the kernel could not check beforehand what is read, so that every read has to be tried, and takes
  // longer. Empty: it could.
  std::string const& slowBecause() const;

  // What has been lost so far.
  ProbeCounts counts() const;
  // Runs that the kernel left out, for want of room.
  Kes::U64 missedRuns() const;

 private:
  struct Kernel;
  std::unique_ptr<Kernel> const kernel_;
};

}  // namespace Agent
