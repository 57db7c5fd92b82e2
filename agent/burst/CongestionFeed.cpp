// SPDX-License-Identifier: Apache-2.0
#include "agent/burst/CongestionFeed.h"

#include <syslog.h>

#include <algorithm>
#include <utility>

#include "Kes/Format.h"
#include "agent/base/Journal.h"
#include "agent/base/PoolLimit.h"

namespace Agent {

namespace {

using Kes::Seconds;
using Kes::U64;
using Vorn::Microseconds;

// A record never has timestamp 0.
Microseconds wallTime(U64 monotonic, Kes::S64 offset) {
  return Microseconds(static_cast<U64>(std::max(static_cast<Kes::S64>(monotonic) + offset, Kes::S64{1})));
}

// A burst may have begun before what another queue has just noted.
bool isOver(U64 since, U64 moment, Seconds interval) {
  return moment > since && static_cast<double>(moment - since) > interval * 1e6;
}

}  // namespace

CongestionFeed::CongestionFeed(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
                               Vorn::Hardware::Status::PtrConst hwStatus, AgentClock::PtrConst clock,
                               BurstLedger& ledger)
    : recorder_(std::move(recorder)),
      config_(std::move(config)),
      hwStatus_(std::move(hwStatus)),
      clock_(std::move(clock)),
      ledger_(ledger),
      interfaces_(recorder_, ledger) {
  recorder_->allocateGlobalChunk();
  ledger_.closedHandlerIs([this](QueueAddress const& queue) {
    ++changes_;
    if (closedHandler_) closedHandler_(queue, latest_.find({queue.intfId, queue.key})->record);
  });
  for (auto const& [intfId, port] : recorder_->portDataMap()) {
    for (Vorn::PortMetaData::Ptr const& queue : port->portMetaDataIterator()) {
      queue->timeOfCongestionStartIs(Microseconds(0));
      goneQueues_.addUnseen({intfId, queue->identifier()});
    }
  }
}

CongestionFeed::~CongestionFeed() { ledger_.closedHandlerIs({}); }

void CongestionFeed::handlePresent(QueueAddress const& queue) {
  if (interfaces_.handleQueuePresent(queue.intfId) && interfaceHandler_)
    interfaceHandler_(queue.intfId, true);
  goneQueues_.remove({queue.intfId, queue.key});
}

void CongestionFeed::handleUpdate(QueueAddress const& queue, CongestionUpdate const& update) {
  ++changes_;
  QueueId const id = {queue.intfId, queue.key};
  if (update.begins) ledger_.close(id);
  if (latest_.find(id) == nullptr) latest_.put(id, {});
  Burst& burst = *latest_.find(id);
  if (update.begins) ++bursts_;
  bool const known = burst.record != nullptr;
  auto const port = recorder_->portDataIs(queue.intfId);
  watchPool();
  Rule const rule = {queue.intfId, Vorn::portThresholds(config_, hwStatus_, queue.intfId),
                     config_->logInterval()};
  auto const append = [&](LinuxEntry::Ptr const& record) {
    recorder_->updateEntry(queue.intfId, record, Microseconds(0), queue.key);
  };
  record(burst, queue, update, *port, rule, append);
  // A burst that was open when its queue was renamed has its first record under the new name now.
  if (!burst.record) return;
  keepMetaData(queue, burst, update, update.begins || !known);
  ledger_.handleUpdate(queue, update);
  ledger_.handleRecord(queue.intfId, *burst.record);
}

std::size_t CongestionFeed::wantedPool() const {
  constexpr std::size_t each = 2;
  return std::min<std::size_t>(each * recorder_->portDataMap().size(), maxPoolChunks);
}

std::string CongestionFeed::poolFault() const {
  if (poolGrows_ || wantedPool() <= recorder_->numSharedChunks()) return {};
  std::size_t const interfaces = recorder_->portDataMap().size();
  return Kes::format("pool: %u is less than two chunks for each of %u congested %s; --pool auto lets it grow",
                     recorder_->numSharedChunks(), interfaces, interfaces == 1 ? "interface" : "interfaces")
      .str();
}

void CongestionFeed::watchPool() {
  std::size_t const wanted = wantedPool();
  Kes::U32 const size = recorder_->numSharedChunks();
  if (wanted <= size) return;
  if (poolGrows_)
    recorder_->numSharedChunksIs(static_cast<Kes::U32>(wanted));
  else if (std::exchange(notedPool_, size) != size)
    note(LOG_WARNING, poolFault() + "; as it is, recent history is lost when all are busy");
}

void CongestionFeed::handleTotal(CongestionUpdate const& update) {
  ++changes_;
  auto const log = recorder_->globalBufferChunk();
  QueueAddress const sum = {{}, noQueue, 0};
  Rule const rule = {sum.intfId, Vorn::globalThresholds(config_, hwStatus_), config_->globalLogInterval()};
  auto const append = [&](LinuxEntry::Ptr const& record) { recorder_->doAddToGlobalLog(record); };
  record(latestOfAll_, sum, update, *log, rule, append);
  if (!latestOfAll_.record) return;
  if (update.begins) log->counterInc(1);
  log->durationIs(latestOfAll_.record->duration());
  if (update.qLen <= log->maxBuffer()) return;
  log->maxBufferIs(update.qLen);
  log->timeOfMaxBufferIs(wallTime(update.timestamp, latestOfAll_.offset));
}

void CongestionFeed::handleGone(QueueAddress const& queue) {
  ++changes_;
  QueueId const id = {queue.intfId, queue.key};
  ledger_.handleGone(id);
  latest_.del(id);
  if (interfaces_.handleQueueGone(queue.intfId) && interfaceHandler_) interfaceHandler_(queue.intfId, false);
  auto const port = recorder_->portData(queue.intfId);
  auto const metaData = port ? port->portMetaData(queue.key) : nullptr;
  if (!metaData) return;
  metaData->timeOfCongestionStartIs(Microseconds(0));
  goneQueues_.add(id);
  while (auto const forgotten = goneQueues_.takeSurplus()) {
    if (auto const log = recorder_->portData(forgotten->intfId)) log->portMetaDataDel(forgotten->key);
    ledger_.forget(*forgotten);
  }
}

// Brings the record of the burst up to the update.
template <class Log, class Append>
void CongestionFeed::record(Burst& burst, QueueAddress const& queue, CongestionUpdate const& update, Log& log,
                            Rule const& rule, Append append) {
  // A time that lies ahead was noted before the wall clock was set back.
  if (log.lastSyslogTime() > recorder_->clock()->getUTCTime()) log.lastSyslogTimeIs(0);
  bool const first = update.begins || !burst.record;
  bool const logged = burst.record && burst.record->ptrCount() > 1;
  if (!first && logged) {
    burst.record->updateIs(update, wallTime(update.timestamp, burst.offset));
    if (!rule.intfId.empty()) countMerge();
    judge(burst, update.timestamp, log, rule);
    return;
  }
  // A burst without a record goes on in a new one, unless nothing is left to say of it.
  if (update.late || (update.ends && !update.begins && update.drops == 0)) return;
  if (first) {
    burst.offset = clock_->offset();
    burst.beginning = wallTime(update.timestamp, burst.offset);
    burst.judged = Level::none;
  }
  burst.record = Kes::makePtr<LinuxEntry>(queue.key, queue.handle, update);
  burst.record->timestampIs(wallTime(update.timestamp, burst.offset));
  Seconds const lastMessage = log.lastSyslogTime();
  append(burst.record);
  if (log.lastSyslogTime() != lastMessage) {
    // The recorder has judged it. If it had nothing to say, that must not silence the next message: most
    // bursts are small when they begin.
    Level const level = rule.levelOf(*burst.record);
    if (level == Level::none) log.lastSyslogTimeIs(lastMessage);
    if (level == Level::high) noteHigh(rule.intfId, update.timestamp);
    burst.judged = std::max(burst.judged, level);
  }
  judge(burst, update.timestamp, log, rule);
}

// As the recorder merges itself, but in whichever chunk the record stands.
void CongestionFeed::countMerge() {
  Vorn::CongestionData::Counts counts = recorder_->counts();
  ++counts.merges;
  recorder_->countsAre(counts);
}

// Raises the message of a threshold that the burst has now crossed for the first time, if it is due.
template <class Log>
void CongestionFeed::judge(Burst& burst, U64 moment, Log& log, Rule const& rule) {
  Level const level = rule.levelOf(*burst.record);
  if (level <= burst.judged) return;
  burst.judged = level;
  if (rule.interval == 0) return;
  Seconds const now = recorder_->clock()->getUTCTime();
  bool due = now > log.lastSyslogTime() + rule.interval;
  if (level == Level::high) {
    U64 const* const lastHigh = lastHigh_.find(rule.intfId);
    due = lastHigh == nullptr || isOver(*lastHigh, moment, rule.interval);
  }
  if (!due) return;
  if (level == Level::high) noteHigh(rule.intfId, moment);
  log.lastSyslogTimeIs(now);
  burst.record->doSyslog(rule.intfId.shortName().charPtr(), rule.thresholds.low, rule.thresholds.high);
}

void CongestionFeed::noteHigh(Pylo::IntfId const& intfId, U64 moment) {
  Seconds const longest = std::max(config_->logInterval(), config_->globalLogInterval());
  for (auto at = lastHigh_.iterator(); at;) {
    if (isOver(*at, moment, longest))
      lastHigh_.del(at);
    else
      ++at;
  }
  lastHigh_.put(intfId, moment);
}

CongestionFeed::Level CongestionFeed::Rule::levelOf(LinuxEntry const& record) const {
  if (record.qLen() >= thresholds.high) return Level::high;
  return record.qLen() >= thresholds.low ? Level::low : Level::none;
}

void CongestionFeed::keepMetaData(QueueAddress const& queue, Burst const& burst,
                                  CongestionUpdate const& update, bool counts) {
  auto const port = recorder_->portDataIs(queue.intfId);
  auto metaData = port->portMetaData(queue.key);
  if (!metaData) {
    metaData = Vorn::portMetaDataFactory(queue.key, queue.intfId);
    port->portMetaDataIs(metaData);
  }
  if (counts) metaData->counterInc(1);
  if (!update.late) metaData->timeOfCongestionStartIs(update.ends ? Microseconds(0) : burst.beginning);
  if (update.qLen > metaData->maxQLen()) {
    metaData->maxQLenIs(update.qLen);
    metaData->timeOfMaxQLenIs(wallTime(update.timestamp, burst.offset));
  }
}

}  // namespace Agent
