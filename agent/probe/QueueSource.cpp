// SPDX-License-Identifier: Apache-2.0
#include "agent/probe/QueueSource.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>
#include <vector>

#include "Vorn/VornUtils.h"
#include "agent/base/Journal.h"
#include "agent/base/Saturated.h"
#include "agent/probe/LargestFlows.h"

namespace Agent {

using Kes::U32;
using Kes::U64;
using Standing = QueueRoster::Standing;

namespace {

constexpr U64 inMicrosecond = 1000;

// Between two looks at the bursts that are open, microseconds.
constexpr U64 refreshInterval = 10'000;

// What the probe has seen by now may have happened so much later than it says; nanoseconds.
constexpr U64 seeingTime = 1'000'000;

// How long a burst is looked after once it is over, for what is to be known of its latency; nanoseconds.
constexpr U64 longestMeasuring = 1'000'000'000;

// How long the queues of a discipline are looked at after the last congestion, for what comes late of it;
// nanoseconds.
constexpr U64 lookingOn = 50'000'000;

// Where every packet is seen.
constexpr std::chrono::microseconds exactCoalescing{1000};

U64 nanoseconds() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<U64>(time.tv_sec) * 1'000'000'000 + static_cast<U64>(time.tv_nsec);
}

// An interval of time has length, however short it was.
U32 microsecondsOf(U64 nanoseconds) {
  return saturated((nanoseconds + inMicrosecond / 2) / inMicrosecond +
                   (nanoseconds != 0 && nanoseconds < 500));
}

QdiscId idOf(ProbedQueueId const& id) {
  QdiscId own = {id.ifindex, id.parent, id.handle, {}};
  std::copy_n(id.kind, own.kind.size() - 1, own.kind.begin());
  return own;
}

}  // namespace

QueueSource::QueueSource(CongestionSink& sink, Vorn::Config::PtrConst config,
                         Vorn::Hardware::Status::PtrConst hwStatus, QdiscSourceOptions options, Means means,
                         Probe::Options const& probeOptions)
    : sink_(sink),
      config_(config),
      hwStatus_(hwStatus),
      options_(std::move(options)),
      probeOptions_(probeOptions),
      sum_(sink),
      looks_(*this, std::move(config), std::move(hwStatus), options_),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (!timer_) throwErrno("cannot make a timer");
  if (means == Means::poll) {
    reason_ = "as asked for";
  } else {
    try {
      probe_.emplace(probeOptions_, probeLimits());
    } catch (ProbeRefused const& refused) {
      if (means == Means::exact) throw;
      reason_ = refused.what();
    }
  }
}

QueueSource::~QueueSource() {
  if (loop_ == nullptr || !probe_) return;
  loop_->remove(probe_->fd());
  loop_->remove(timer_.get());
}

void QueueSource::start(EventLoop& loop) {
  loop_ = &loop;
  if (probe_) {
    std::string const& slow = probe_->slowBecause();
    note(LOG_INFO, "every packet is seen, by a probe in the kernel" +
                       (slow.empty() ? "" : "; its faster form was refused: " + slow));
    sum_.coalescingIs(static_cast<U64>(coalescing().count()));
    loop.add(probe_->fd(), EPOLLIN, [this](std::uint32_t) { handleNotices(); });
    loop.add(timer_.get(), EPOLLIN, [this](std::uint32_t) { handleTimer(); });
    looks_.learnedHandlerIs([this] {
      if (!probe_) return;
      probe_->limitsAre(probeLimits());
      askAgain();
    });
  } else {
    note(LOG_INFO, "looking at the queues, not seeing every packet: " + reason_);
  }
  looks_.onDemandIs(probe_.has_value());
  looks_.start(loop);
}

void QueueSource::optionsAre(QdiscSourceOptions const& options) {
  options_ = options;
  looks_.optionsAre(options);
  if (!probe_) return;
  probe_->limitsAre(probeLimits());
  sum_.coalescingIs(static_cast<U64>(coalescing().count()));
  askAgain();
}

// Interfaces may have been given another name, or be asked for now.
void QueueSource::askAgain() {
  for (U32 const ifindex : std::exchange(unasked_, {})) probe_->ignoredIs(ifindex, false);
  for (auto& [number, watched] : watched_)
    if (watched.standing != Standing::queue) watched.standing = Standing::unknown;
}

std::chrono::microseconds QueueSource::coalescing() const {
  return options_.coalescing.value_or(exactCoalescing);
}

Probe::Limits QueueSource::probeLimits() const {
  return {options_.startThresholdBytes, coalescing(), looks_.smallestFrame()};
}

// What the looks tell of.
void QueueSource::handlePresent(QueueAddress const& queue) { below().handlePresent(queue); }
void QueueSource::handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) {
  CongestionUpdate known = update;
  // Packets are told apart where they enter: which of the classes they go to is not to be seen.
  for (auto& [number, watched] : watched_) {
    if (!watched.open || !watched.whole || watched.whole->intfId != queue.intfId || update.late) continue;
    watched.foundInside = true;
    known.flows = flowsOf(watched.burst);
  }
  below().handleUpdate(queue, known);
}
void QueueSource::handleTotal(CongestionUpdate const& update) { below().handleTotal(update); }

void QueueSource::handleGone(QueueAddress const& queue) {
  // The probe has told how that ended which was congested when it went.
  if (probe_) handleNotices();
  below().handleGone(queue);
  for (auto& [number, watched] : watched_) {
    if (!watched.address || watched.address->intfId != queue.intfId || watched.address->key != queue.key)
      continue;
    watched.standing = Standing::unknown;
    watched.address.reset();
  }
}

CongestionSink& QueueSource::below() { return probe_ ? static_cast<CongestionSink&>(sum_) : sink_; }

void QueueSource::handleNotices() {
  if (std::exchange(taking_, true)) return;
  struct Taken {
    bool& taking;
    ~Taken() { taking = false; }
  } const taken{taking_};
  handleSwitch();
  auto const handler = [this](ProbeNotice const& notice) { handleNotice(notice); };
  probe_->takeNotices(handler);
  U64 const lost = probe_->counts().lostNotices;
  if (std::exchange(lostNotices_, lost) == lost) return;
  if (!std::exchange(losing_, true))
    note(LOG_WARNING, "the probe tells of bursts faster than they can be taken: some are told late, or lost");
  probe_->takeUntold(handler);
}

// The feature may have been switched on or off since.
void QueueSource::handleSwitch() {
  bool const on = Vorn::isVornEnabled(config_, hwStatus_);
  if (std::exchange(on_, on) == on) return;
  if (!on) looks_.forget();
  for (auto& [number, watched] : watched_) {
    watched.standing = Standing::unknown;
    watched.address.reset();
  }
}

void QueueSource::handleNotice(ProbeNotice const& notice) {
  Watched& watched = watched_[notice.queue];
  QdiscId const id = idOf(notice.id);
  if (watched.id != id) {
    finish(watched, notice.burst.begin);
    watched = {.id = id};
  }
  if (watched.standing == Standing::unknown) place(watched);
  if (notice.news & burstBegins) {
    // Those that are over by now are no company for this one.
    for (U64 const number : unsettled_)
      if (number != notice.queue) refresh(number, watched_.at(number), notice.burst.begin + seeingTime);
    follow(watched, notice.before, true);
  }
  follow(watched, notice.burst, (notice.news & burstIsOver) != 0);
  if (notice.news & burstIsOver) watched.settled = true;
  if (notice.news & queueIsGone) watched.gone = true;
  if (std::find(unsettled_.begin(), unsettled_.end(), notice.queue) == unsettled_.end())
    unsettled_.push_back(notice.queue);
  timerIs(true);
}

// Finds out what stands where the probe has seen something. What is gone again already has no place; its
// bursts are told of under the name that it had.
void QueueSource::place(Watched& watched) {
  if (!on_) return;
  QueueRoster const& roster = looks_.roster();
  watched.standing = roster.standing(watched.id);
  if (watched.standing == Standing::unknown) {
    looks_.learn();
    watched.standing = roster.standing(watched.id);
  }
  watched.address.reset();
  watched.whole.reset();
  if (watched.standing == Standing::queue) {
    watched.address = roster.address(watched.id);
  } else if (watched.standing == Standing::unknown) {
    if (Interface const* const interface = looks_.interface(watched.id.ifindex))
      watched.address = {interface->intfId, keyOf(watched.id), watched.id.handle, watched.id.kind};
  } else if (watched.standing == Standing::unasked) {
    unasked_.insert(watched.id.ifindex);
    probe_->ignoredIs(watched.id.ifindex, true);
  } else {
    watched.whole = roster.address(watched.id);
  }
}

// Brings what is recorded up to a burst, as it is now or, if it is over, as it was.
void QueueSource::follow(Watched& watched, ProbedBurst const& burst, bool over) {
  if (burst.number < watched.burst.number || burst.number == 0) return;
  bool const begins = burst.number > watched.burst.number;
  if (!begins && watched.settled) return;
  U64 const now = nanoseconds();
  U64 const until = burst.end == 0 ? now : burst.end;
  if (begins) {
    if (watched.open) finish(watched, burst.begin);
    if (watched.burst.number != 0) lostBursts_ += burst.number - watched.burst.number - 1;
    watched.burst = {};
    watched.open = true;
    watched.settled = false;
    watched.foundInside = false;
    if (watched.standing == Standing::classes && watched.address)
      watched.whole = std::exchange(watched.address, std::nullopt);
    CongestionUpdate update;
    update.begins = true;
    update.timestamp = burst.begin / inMicrosecond;
    tell(watched, burst, update);
  }
  if (watched.standing == Standing::classes) {
    lookUntil_ = std::max(lookUntil_, until + lookingOn);
    if (begins && !over) {
      looking_ = true;
      looks_.demand(watched.id.ifindex, burst.begin / inMicrosecond, burst.bytes);
    }
  }
  CongestionUpdate update;
  update.timestamp = until / inMicrosecond;
  update.late = !watched.open;
  update.ends = over && watched.open;
  if (update.ends) update.coalescing = static_cast<U64>(coalescing().count());
  if (over && watched.open && watched.whole && !watched.foundInside) {
    // The first look came when all was over: it is known that the discipline was congested, and no more.
    CongestionUpdate whole = {.begins = true, .timestamp = burst.begin / inMicrosecond, .qLen = burst.peak};
    whole.peakBound = burst.peak;
    sum_.handleUpdate(*watched.whole, whole);
    watched.burst = {};
    watched.burst.number = burst.number;
    watched.address = std::exchange(watched.whole, std::nullopt);
  }
  if (!begins || over) tell(watched, burst, update);
  if (over && std::exchange(watched.open, false) && burst.table != 0) probe_->giveBack(burst.table);
}

void QueueSource::tell(Watched& watched, ProbedBurst const& burst, CongestionUpdate update) {
  update.qLen = update.peakBound = burst.peak;
  update.drops = burst.drops - watched.burst.drops;
  update.latency = microsecondsOf(burst.latency);
  if (!update.late) update.flows = flowsOf(burst);
  bool const nothingNew = update.late && update.drops == 0 && watched.burst.latency == burst.latency;
  watched.burst = burst;
  if (watched.address && !nothingNew) sum_.handleUpdate(*watched.address, update);
}

BurstFlows const* QueueSource::flowsOf(ProbedBurst const& burst) {
  if (burst.table == 0) return nullptr;
  FlowTable const& table = probe_->flows(burst.table);
  if (table.packets == 0) return nullptr;
  flows_ = largestFlows(table, probeOptions_, groups_);
  return &flows_;
}

// Nothing more will come of its burst than is known; it was over by then.
void QueueSource::finish(Watched& watched, U64 moment) {
  ProbedBurst last = watched.burst;
  if (last.end == 0) last.end = std::max<U64>(moment, last.begin);
  follow(watched, last, true);
  watched.settled = true;
}

void QueueSource::refresh(U64 number, Watched& watched, U64 now) {
  auto const queue = probe_->queue(number);
  if (!queue) {
    // It has gone, and the notice found no room.
    finish(watched, now);
    watched.gone = true;
    return;
  }
  ProbedBurst const& burst = queue->state.burst;
  if (burst.number != watched.burst.number) return;  // its notice is under way
  U64 const pause = static_cast<U64>(coalescing().count()) * inMicrosecond;
  bool const over = burst.end != 0 && now > burst.end + pause + seeingTime;
  follow(watched, burst, over);
  watched.settled = over && (!queue->state.measuring || now > burst.end + longestMeasuring);
}

void QueueSource::handleTimer() {
  std::uint64_t expirations = 0;
  if (read(timer_.get(), &expirations, sizeof expirations) < 0) return;
  handleNotices();
  U64 const now = nanoseconds();
  // What is looked at meanwhile may add to them.
  for (std::size_t i = 0; i < unsettled_.size(); ++i) {
    U64 const number = unsettled_[i];
    Watched& watched = watched_.at(number);
    if (watched.settled) continue;
    if (watched.standing == Standing::unknown && !watched.address) place(watched);
    refresh(number, watched, now);
  }
  std::erase_if(unsettled_, [this](U64 number) { return watched_.at(number).settled; });
  sweep();
  if (probe_->counts().unseenQueues != 0) return giveUp();
  if (looking_ && now > lookUntil_) {
    looking_ = false;
    looks_.demandEnds();
  }
  if (unsettled_.empty() && !looking_) timerIs(false);
}

// Forgets the queues that are gone, also those of which no notice came.
void QueueSource::sweep() {
  std::erase_if(watched_, [&](auto const& watched) {
    auto const& [number, queue] = watched;
    return queue.settled && (queue.gone || !probe_->queue(number));
  });
}

// There are more queues than the probe has room for: the others would not be seen at all.
void QueueSource::giveUp() {
  reason_ = "there are more queues than the probe has room for";
  note(LOG_ERR, "looking at the queues from now on: " + reason_);
  for (auto& [number, watched] : watched_)
    if (watched.open) finish(watched, nanoseconds());
  watched_.clear();
  unsettled_.clear();
  timerIs(false);
  loop_->remove(probe_->fd());
  loop_->remove(timer_.get());
  probe_.reset();
  looks_.onDemandIs(false);
}

void QueueSource::timerIs(bool runs) {
  if (std::exchange(running_, runs) == runs) return;
  timespec const interval = {0, runs ? static_cast<long>(refreshInterval * inMicrosecond) : 0};
  itimerspec const setting = {interval, interval};
  if (timerfd_settime(timer_.get(), 0, &setting, nullptr) != 0) throwErrno("cannot set the timer");
}

SourceStatus QueueSource::status() const {
  SourceStatus status = looks_.status();
  status.means = probe_ ? SourceStatus::Means::probe : SourceStatus::Means::looks;
  status.meansReason = reason_;
  if (!probe_) return status;
  ProbeCounts const counts = probe_->counts();
  status.lostNotices = counts.lostNotices;
  status.lostBursts = lostBursts_;
  status.flowlessBursts = counts.flowlessBursts;
  status.lostEvents = counts.crowdedEvents + probe_->missedRuns();
  return status;
}

}  // namespace Agent
