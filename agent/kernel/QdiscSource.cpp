#include "agent/kernel/QdiscSource.h"

#include <fnmatch.h>
#include <linux/pkt_sched.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <functional>
#include <iterator>
#include <limits>
#include <utility>

#include "Kes/Format.h"
#include "Vorn/VornUtils.h"
#include "agent/kernel/LeafQueues.h"

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

// How long a queue that is missing from the dumps is remembered.
constexpr U64 missingTime = 1'000'000;

// Logs of gone interfaces that are kept.
constexpr std::size_t maxGoneInterfaces = 256;

// Marks a queue that has been carried over.
constexpr std::size_t taken = std::numeric_limits<std::size_t>::max();

double microsecondsOf(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

QueueKey keyOf(QdiscId const& id) { return id.parent == TC_H_ROOT ? 0 : id.parent; }

QueueReading readingOf(QdiscSample const& sample) {
  return {sample.stamp, sample.bytes, sample.backlog, sample.drops};
}

}  // namespace

QdiscSource::QdiscSource(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
                         Vorn::Hardware::Status::PtrConst hwStatus, AgentClock::Ptr clock,
                         QdiscSourceOptions options)
    : recorder_(std::move(recorder)),
      config_(std::move(config)),
      hwStatus_(std::move(hwStatus)),
      options_(std::move(options)),
      feed_(recorder_, config_, hwStatus_, std::move(clock)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (!timer_) throwErrno("cannot make a timer");
}

QdiscSource::~QdiscSource() {
  if (loop_ == nullptr) return;
  loop_->remove(timer_.get());
  loop_->remove(interfaces_.fd());
}

void QdiscSource::start(EventLoop& loop) {
  loop_ = &loop;
  loop.add(timer_.get(), EPOLLIN, [this](std::uint32_t) { handleTimer(); });
  loop.add(interfaces_.fd(), EPOLLIN, [this](std::uint32_t) {
    interfaces_.changesTaken();
    interfacesChanged_ = true;
  });
  timerIs(static_cast<U64>(options_.interval.count()));
}

void QdiscSource::handleTimer() {
  std::uint64_t expirations = 0;
  // Several expirations at once are one late tick; none at all means that the timer was set anew meanwhile.
  if (read(timer_.get(), &expirations, sizeof expirations) < 0) return;
  if (!Vorn::isVornEnabled(config_, hwStatus_)) return forgetAll();
  double const before = microsecondsOf(CLOCK_THREAD_CPUTIME_ID);
  if (poll()) handleSamples();
  handleCost(microsecondsOf(CLOCK_THREAD_CPUTIME_ID) - before);
}

// Whether `samples_` and `queues_` fit each other now.
bool QdiscSource::poll() {
  auto const outcome = dump_.poll(samples_);
  if (outcome == QdiscDump::Outcome::failed) {
    ++failedDumps_;
    return false;
  }
  bool const interrupted = outcome == QdiscDump::Outcome::interrupted;
  if (interrupted) ++interruptedDumps_;
  if (sameQueues() && !interfacesChanged_) return true;
  // What an interrupted dump shows of each queue is right, but which queues there are the next one will tell.
  if (interrupted) return false;
  learnQueues();
  return true;
}

void QdiscSource::handleSamples() {
  for (Queue& queue : queues_) {
    QueueReading const reading = readingOf(samples_[queue.position]);
    sum_.add(queue.sampled, queue.sampled.handleReading(reading, timerInterval_, feed_));
  }
  sum_.finishLook(timerInterval_, feed_);
  if (!missing_.empty()) forgetMissing(static_cast<U64>(microsecondsOf(CLOCK_MONOTONIC)));
}

bool QdiscSource::sameQueues() const {
  auto const same = [](QdiscSample const& sample, QdiscId const& id) { return sample.id == id; };
  return std::equal(samples_.begin(), samples_.end(), known_.begin(), known_.end(), same);
}

void QdiscSource::learnQueues() {
  std::vector<Queue> before = std::exchange(queues_, {});
  std::move(missing_.begin(), missing_.end(), std::back_inserter(before));
  missing_.clear();
  std::sort(before.begin(), before.end(), [](Queue const& a, Queue const& b) { return a.id < b.id; });
  U32 ifindex = 0;
  std::optional<Interface> interface;
  for (std::size_t const position : leafQueues(samples_)) {
    U32 const own = samples_[position].id.ifindex;
    if (own != ifindex) interface = watchedInterface(own);
    ifindex = own;
    if (interface) learnQueue(position, *interface, before);
  }
  for (Queue& queue : before)
    if (queue.position != taken) missing_.push_back(std::move(queue));
  known_.clear();
  for (QdiscSample const& sample : samples_) known_.push_back(sample.id);
  interfacesChanged_ = false;
}

// Takes the queue over from `before`, where it is marked as taken, or makes it.
void QdiscSource::learnQueue(std::size_t position, Interface const& interface, std::vector<Queue>& before) {
  QdiscSample const& sample = samples_[position];
  QueueAddress const address = {interface.intfId, keyOf(sample.id), sample.id.handle};
  QueueTraits const traits = {
      .startThreshold = std::max(2 * interface.frameBytes, options_.startThresholdBytes),
      .packetBytes = interface.frameBytes};
  auto const known = std::lower_bound(before.begin(), before.end(), sample.id,
                                      [](Queue const& queue, QdiscId const& id) { return queue.id < id; });
  if (known == before.end() || known->id != sample.id) {
    queues_.push_back({sample.id, position, SampledQueue(address, traits, readingOf(sample))});
    feed_.handlePresent(address);
    return;
  }
  Pylo::IntfId const nameBefore = known->sampled.address().intfId;
  known->position = taken;
  queues_.push_back({sample.id, position, std::move(known->sampled)});
  SampledQueue& sampled = queues_.back().sampled;
  sampled.traitsIs(traits);
  if (nameBefore == address.intfId) return;
  sampled.addressIs(address, feed_);
  handleInterfaceGone(nameBefore);
}

std::optional<Interface> QdiscSource::watchedInterface(U32 ifindex) {
  auto const interface = interfaces_.interface(ifindex);
  if (!interface) return std::nullopt;
  char const* const name = interface->intfId.stringValue().charPtr();
  auto const fits = [name](std::string const& pattern) { return fnmatch(pattern.c_str(), name, 0) == 0; };
  if (!options_.interfaces.empty() &&
      std::none_of(options_.interfaces.begin(), options_.interfaces.end(), fits))
    return std::nullopt;
  std::erase(goneInterfaces_, interface->intfId);
  return interface;
}

void QdiscSource::forgetMissing(U64 now) {
  auto const old = [now](Queue const& queue) {
    return now - queue.sampled.lastReading().stamp > missingTime;
  };
  auto const end = std::stable_partition(missing_.begin(), missing_.end(), std::not_fn(old));
  std::vector<Queue> gone(std::make_move_iterator(end), std::make_move_iterator(missing_.end()));
  missing_.erase(end, missing_.end());
  for (Queue& queue : gone) {
    QueueAddress const& address = queue.sampled.address();
    // A discipline that was replaced has a successor in the same place, which goes on under its key.
    auto const succeeds = [&address](Queue const& other) {
      return other.sampled.address().intfId == address.intfId && other.sampled.address().key == address.key;
    };
    if (std::none_of(queues_.begin(), queues_.end(), succeeds)) queue.sampled.handleGone(feed_);
    if (!present(address.intfId)) handleInterfaceGone(address.intfId);
  }
}

bool QdiscSource::present(Pylo::IntfId const& intfId) const {
  auto const same = [&intfId](Queue const& queue) { return queue.sampled.address().intfId == intfId; };
  return std::any_of(queues_.begin(), queues_.end(), same);
}

void QdiscSource::forgetAll() {
  for (Queue& queue : queues_) queue.sampled.handleGone(feed_);
  for (Queue& queue : missing_) queue.sampled.handleGone(feed_);
  queues_.clear();
  missing_.clear();
  known_.clear();
  sum_ = QueueSum();
  lastTick_ = 0;
  timerIs(idleInterval);
}

void QdiscSource::handleInterfaceGone(Pylo::IntfId const& intfId) {
  bool const noted =
      std::find(goneInterfaces_.begin(), goneInterfaces_.end(), intfId) != goneInterfaces_.end();
  if (noted || !recorder_->portData(intfId)) return;
  goneInterfaces_.push_back(intfId);
  if (goneInterfaces_.size() <= maxGoneInterfaces) return;
  // A name may have come back to another interface.
  if (!present(goneInterfaces_.front())) recorder_->portDataDel(goneInterfaces_.front());
  goneInterfaces_.pop_front();
}

void QdiscSource::handleCost(double cost) {
  // Not the agent's clock, which follows a wall clock that is set.
  auto const stamp = static_cast<U64>(microsecondsOf(CLOCK_MONOTONIC));
  if (lastTick_ != 0) {
    auto const interval = static_cast<double>(stamp - lastTick_);
    if (stamp - lastTick_ > lateIntervals * timerInterval_) ++lateTicks_;
    longestInterval_ = std::max(longestInterval_, interval);
    meanInterval_ += (interval - meanInterval_) * (meanInterval_ == 0 ? 1 : newShare);
  }
  lastTick_ = stamp;
  meanCost_ += (cost - meanCost_) * newShare;
  auto const configured = static_cast<U64>(options_.interval.count());
  U64 const wanted = std::max(configured, static_cast<U64>(std::ceil(costShare * meanCost_)));
  // Setting the timer shifts its phase, so small changes are let pass but for the return to what is
  // configured.
  U64 const change = wanted > timerInterval_ ? wanted - timerInterval_ : timerInterval_ - wanted;
  if (wanted == configured || change > timerInterval_ / 10) timerIs(wanted);
}

void QdiscSource::timerIs(U64 interval) {
  if (interval == timerInterval_) return;
  timespec const time = {static_cast<time_t>(interval / 1'000'000),
                         static_cast<long>(interval % 1'000'000 * 1000)};
  itimerspec const setting = {time, time};
  if (timerfd_settime(timer_.get(), 0, &setting, nullptr) != 0) throwErrno("cannot set the timer");
  timerInterval_ = interval;
}

std::string QdiscSource::status() const {
  if (!Vorn::isVornEnabled(config_, hwStatus_)) return "switched off";
  return Kes::format(
             "looking every %.2f ms (%.2f ms asked, %.2f ms achieved, %.2f ms at worst, %u ticks late) "
             "at %u %s, %.0f us of processor time a tick; %u dumps interrupted, %u failed; %u bursts "
             "seen",
             static_cast<double>(timerInterval_) / 1e3, static_cast<double>(options_.interval.count()) / 1e3,
             meanInterval_ / 1e3, longestInterval_ / 1e3, lateTicks_, queues_.size(),
             queues_.size() == 1 ? "queue" : "queues", meanCost_, interruptedDumps_, failedDumps_,
             feed_.bursts())
      .str();
}

}  // namespace Agent
