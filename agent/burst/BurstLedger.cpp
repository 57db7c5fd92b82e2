// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/BurstLedger.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

namespace Agent {

namespace {

using Kes::U64;

constexpr U64 inSecond = 1'000'000;
constexpr U64 shortestSettling = inSecond / 4;

U64 monotonicNow() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<U64>(time.tv_sec) * inSecond + static_cast<U64>(time.tv_nsec) / 1000;
}

}  // namespace

BurstLedger::~BurstLedger() {
  if (loop_ != nullptr) loop_->remove(timer_.get());
}

void BurstLedger::start(EventLoop& loop) {
  timer_ = FileDescriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!timer_) throwErrno("timerfd_create");
  loop.add(timer_.get(), EPOLLIN, [this](std::uint32_t) {
    std::uint64_t expirations = 0;
    if (::read(timer_.get(), &expirations, sizeof expirations) > 0) settle(monotonicNow());
  });
  loop_ = &loop;
}

void BurstLedger::settle(U64 now) {
  U64 next = 0;
  std::erase_if(waiting_, [&](QueueId const& id) {
    Account* const account = accounts_.find(id);
    if (account == nullptr) return true;
    bool const waits = account->burst == Account::Burst::running && !account->open;
    if (waits && account->settled > now) {
      next = next == 0 ? account->settled : std::min(next, account->settled);
      return false;
    }
    account->waits = false;
    if (waits) close(*account);
    return true;
  });
  timerIs(next);
}

void BurstLedger::timerIs(U64 moment) {
  timerAt_ = moment;
  if (loop_ == nullptr) return;
  itimerspec setting{};
  setting.it_value = {static_cast<time_t>(moment / inSecond), static_cast<long>(moment % inSecond * 1000)};
  if (::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr) != 0)
    throwErrno("timerfd_settime");
}

void BurstLedger::close(QueueId const& queue) {
  Account* const account = accounts_.find(queue);
  if (account != nullptr && account->burst == Account::Burst::running) close(*account);
}

void BurstLedger::close(Account& account) {
  account.burst = Account::Burst::closed;
  account.totals.peak.add(account.peak, QueueTotals::peakBounds);
  account.totals.duration.add(account.until - account.beginning, QueueTotals::durationBounds);
  addLatency(account);
  if (closed_) closed_(account.address);
}

void BurstLedger::handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) {
  QueueId const id = {queue.intfId, queue.key};
  if (accounts_.find(id) == nullptr) accounts_.put(id, {});
  Account& account = *accounts_.find(id);
  account.address = queue;
  QueueTotals& totals = account.totals;
  if (update.begins || account.burst == Account::Burst::none) {
    ++totals.bursts;
    account.burst = Account::Burst::running;
    account.beginning = account.until = update.timestamp;
    account.latencyKnown = false;
  } else if (update.timestamp > account.until) {
    totals.congested += update.timestamp - account.until;
    account.until = update.timestamp;
  }
  totals.drops += update.drops;
  account.peak = update.qLen;
  account.latency = update.latency;
  if (!update.late) account.open = !update.ends;
  if (account.burst == Account::Burst::closed) return addLatency(account);
  if (update.ends) account.settled = update.timestamp + std::max(shortestSettling, 2 * update.coalescing);
  if (account.open) return;
  if (!std::exchange(account.waits, true)) waiting_.push_back(id);
  if (timerAt_ == 0 || account.settled < timerAt_) timerIs(account.settled);
}

void BurstLedger::addLatency(Account& account) {
  if (account.latency == 0 || std::exchange(account.latencyKnown, true)) return;
  account.totals.latency.add(account.latency, QueueTotals::latencyBounds);
}

void BurstLedger::handleRecord(Pylo::IntfId const& intfId, Vorn::Entry const& record) {
  if (orders_.find(intfId) == nullptr) orders_.put(intfId, {});
  orders_.find(intfId)->handleRecord(record);
}

void BurstLedger::handleGone(QueueId const& queue) {
  close(queue);
  Account* const account = accounts_.find(queue);
  if (account == nullptr) return;
  account->burst = Account::Burst::none;
  account->open = false;
}

void BurstLedger::forget(Pylo::IntfId const& intfId) {
  orders_.del(intfId);
  for (auto at = accounts_.iterator(); at;) {
    if (at.key().intfId == intfId)
      accounts_.del(at);
    else
      ++at;
  }
}

void BurstLedger::accountIs(QueueAddress const& queue, QueueTotals const& totals) {
  Account account;
  account.address = queue;
  account.totals = totals;
  accounts_.put({queue.intfId, queue.key}, std::move(account));
}

U64 BurstLedger::slack(Pylo::IntfId const& intfId) const {
  LogOrder const* const order = orders_.find(intfId);
  return order == nullptr ? 0 : order->slack();
}

}  // namespace Agent
