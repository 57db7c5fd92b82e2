// SPDX-License-Identifier: Apache-2.0
#include "agent/kernel/QdiscSource.h"

#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <system_error>
#include <utility>

#include "Vorn/VornUtils.h"
#include "agent/base/Journal.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

// A tick may take this part of the processor at most.
constexpr double costShare = 20;

// Weight of a new value in the means.
constexpr double newShare = 1.0 / 32;

// Ticks that come later than this many intervals are counted as late.
constexpr U64 lateIntervals = 2;

// How often a source that is switched off looks whether it still is.
constexpr U64 idleInterval = 100'000;

// How long torn dumps in a row are not learned from.
constexpr U64 tornTime = 1'000'000;

// How long what was changed waits to be learned where nobody looks: more of the kind mostly follows.
constexpr U64 learningDelay = 50'000;

// Of an ordinary look: none, but for memory that grows.
constexpr long maxPageFaults = 8;

constexpr char const* cannotRead = "cannot read this machine's queues";

double microsecondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

long pageFaults() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_minflt;
}

}  // namespace

QdiscSource::QdiscSource(CongestionSink& sink, Vorn::Config::PtrConst config,
                         Vorn::Hardware::Status::PtrConst hwStatus, QdiscSourceOptions options)
    : sink_(sink),
      config_(std::move(config)),
      hwStatus_(std::move(hwStatus)),
      options_(std::move(options)),
      interfaces_({}, [this](U32 ifindex) { return interfaceTable_.interface(ifindex); }),
      roster_(options_.startThresholdBytes),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (!timer_) throwErrno("cannot make a timer");
  interfaces_.patternsAre(options_.interfaces, options_.excluded);
}

QdiscSource::~QdiscSource() {
  if (loop_ == nullptr) return;
  loop_->remove(timer_.get());
  loop_->remove(changeWatch_.fd());
}

void QdiscSource::start(EventLoop& loop) {
  if (dump_.poll(samples_) == QdiscDump::Outcome::failed)
    throw std::system_error(dump_.error(), std::generic_category(), cannotRead);
  loop_ = &loop;
  loop.add(timer_.get(), EPOLLIN, [this](std::uint32_t) { handleTimer(); });
  loop.add(changeWatch_.fd(), EPOLLIN, [this](std::uint32_t) {
    if (takeChanges()) lookSoon();
  });
  if (onDemand_) return look();
  timerIs(static_cast<U64>(options_.interval.count()));
}

void QdiscSource::optionsAre(QdiscSourceOptions options) {
  bool const otherInterval = options.interval != options_.interval;
  options_ = std::move(options);
  interfaces_.patternsAre(options_.interfaces, options_.excluded);
  roster_.startThresholdIs(options_.startThresholdBytes);
  interfacesChanged_ = true;
  if (onDemand_ && !demanded_) return lookSoon();
  if (!otherInterval) return;
  timerIs(wantedInterval());
  // What was achieved was another interval's.
  lastTick_ = 0;
  meanInterval_ = longestInterval_ = 0;
}

Pace QdiscSource::pace() const {
  if (!options_.coalescing) return timerInterval_;
  return {timerInterval_, static_cast<U64>(options_.coalescing->count())};
}

void QdiscSource::handleTimer() {
  std::uint64_t expirations = 0;
  // Several expirations at once are one late tick; none at all means that the timer was set anew meanwhile.
  if (read(timer_.get(), &expirations, sizeof expirations) < 0) return;
  bool const once = std::exchange(soon_, false);
  if (once) timerInterval_ = 0;
  if (!Vorn::isVornEnabled(config_, hwStatus_)) return forgetAll();
  if (once) return look();
  double const before = microsecondsOf(CLOCK_THREAD_CPUTIME_ID);
  long const faultsBefore = pageFaults();
  look();
  handleInterval();
  // After a report's process has been forked the agent copies the pages that it writes. That is no cost of
  // looking, and must not make the looks fewer.
  if (pageFaults() - faultsBefore <= maxPageFaults)
    handleCost(microsecondsOf(CLOCK_THREAD_CPUTIME_ID) - before);
}

void QdiscSource::look() {
  auto const outcome = dump_.poll(samples_);
  bool const changed = takeChanges();
  if (outcome == QdiscDump::Outcome::failed) return handleFailure();
  if (std::exchange(failing_, false)) note(LOG_NOTICE, "this machine's queues can be read again");
  bool const torn = changed || outcome == QdiscDump::Outcome::interrupted;
  if (torn) ++interruptedDumps_;
  auto const now = static_cast<U64>(microsecondsOf(CLOCK_MONOTONIC));
  bool const learnable = !torn || now - learnable_ > tornTime;
  if (learnable) learnable_ = now;
  if (interfacesChanged_ || !roster_.fits(samples_)) {
    if (learnable) {
      roster_.learn(samples_, interfaces_, sink_);
      interfacesChanged_ = false;
      if (learnedHandler_) learnedHandler_();
    } else {
      roster_.locate(samples_);
      lookSoon();
    }
  }
  for (Demand const& demand : demands_)
    roster_.quietUntil(demand.ifindex, demand.since, demand.sent, samples_);
  demands_.clear();
  roster_.handleSamples(samples_, pace(), sum_, sink_);
  ++looks_;
}

// Whether there were any.
bool QdiscSource::takeChanges() {
  if (!changeWatch_.take(changes_)) return false;
  for (TrafficNotice const& notice : changes_.traffic)
    if (notice.gone && interfaces_.isWatched(notice.ifindex)) roster_.handleRemoval(notice);
  if (changes_.lost) {
    interfaces_.forgetAll();
    interfacesChanged_ = true;
  }
  for (LinkNotice const& notice : changes_.links)
    if (interfaces_.handleNotice(notice)) interfacesChanged_ = true;
  changes_.clear();
  return true;
}

void QdiscSource::onDemandIs(bool onDemand) {
  onDemand_ = onDemand;
  roster_.probedIs(onDemand);
  interfacesChanged_ = true;
  if (!onDemand && loop_ != nullptr) timerIs(wantedInterval());
}

void QdiscSource::demand(U32 ifindex, U64 since, U64 sent) {
  demands_.push_back({ifindex, since, sent});
  if (std::exchange(soon_, false)) timerInterval_ = 0;
  if (!std::exchange(demanded_, true)) lastTick_ = 0;
  timerIs(wantedInterval());
  look();
}

void QdiscSource::demandEnds() {
  demanded_ = false;
  timerIs(0);
  if (interfacesChanged_) lookSoon();
}

// Once, where no look is to be expected.
void QdiscSource::lookSoon() {
  if (!onDemand_ || demanded_ || std::exchange(soon_, true)) return;
  learnable_ = static_cast<U64>(microsecondsOf(CLOCK_MONOTONIC));
  timerIs(learningDelay);
}

void QdiscSource::handleFailure() {
  ++failedDumps_;
  if (!std::exchange(failing_, true))
    note(LOG_ERR, std::string(cannotRead) + ": " + std::generic_category().message(dump_.error()));
}

void QdiscSource::forgetAll() {
  roster_.forgetAll(sink_);
  sum_ = QueueSum();
  lastTick_ = 0;
  if (!onDemand_ || demanded_) timerIs(idleInterval);
}

void QdiscSource::handleInterval() {
  // Not the agent's clock, which follows a wall clock that is set.
  auto const stamp = static_cast<U64>(microsecondsOf(CLOCK_MONOTONIC));
  if (lastTick_ != 0) {
    auto const interval = static_cast<double>(stamp - lastTick_);
    if (stamp - lastTick_ > lateIntervals * timerInterval_) ++lateTicks_;
    longestInterval_ = std::max(longestInterval_, interval);
    meanInterval_ += (interval - meanInterval_) * (meanInterval_ == 0 ? 1 : newShare);
  }
  lastTick_ = stamp;
}

U64 QdiscSource::wantedInterval() const {
  auto const configured = static_cast<U64>(options_.interval.count());
  return std::max(configured, static_cast<U64>(std::ceil(costShare * meanCost_)));
}

void QdiscSource::handleCost(double cost) {
  meanCost_ += (cost - meanCost_) * newShare;
  auto const configured = static_cast<U64>(options_.interval.count());
  U64 const wanted = wantedInterval();
  // Setting the timer shifts its phase, so small changes are let pass but for the return to what is
  // configured.
  U64 const change = wanted > timerInterval_ ? wanted - timerInterval_ : timerInterval_ - wanted;
  if (wanted == configured || change > timerInterval_ / 10) timerIs(wanted);
}

void QdiscSource::timerIs(U64 interval) {
  if (interval == timerInterval_) return;
  timespec const time = {static_cast<time_t>(interval / 1'000'000),
                         static_cast<long>(interval % 1'000'000 * 1000)};
  itimerspec const setting = {soon_ ? timespec{} : time, time};
  if (timerfd_settime(timer_.get(), 0, &setting, nullptr) != 0) throwErrno("cannot set the timer");
  timerInterval_ = interval;
}

SourceStatus QdiscSource::status() const {
  std::string const reason = failedDumps_ == 0 ? "" : std::generic_category().message(dump_.error());
  return {.enabled = Vorn::isVornEnabled(config_, hwStatus_),
          .fault = failing_ ? std::string(cannotRead) + " (" + reason + ')' : "",
          .askedInterval = static_cast<U64>(options_.interval.count()),
          .interval = timerInterval_,
          .achievedInterval = meanInterval_,
          .longestInterval = longestInterval_,
          .looks = looks_,
          .lateLooks = lateTicks_,
          .lookCost = meanCost_,
          .queues = roster_.size(),
          .interruptedLooks = interruptedDumps_,
          .failedLooks = failedDumps_,
          .lastFailure = reason};
}

}  // namespace Agent
