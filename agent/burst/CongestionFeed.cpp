#include "agent/burst/CongestionFeed.h"

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Kes::U64;
using Vorn::Microseconds;

// The record that the log of an interface holds under `key`, which has just been merged into.
LinuxEntry& loggedRecord(Vorn::PortData const& port, QueueKey key) {
  Vorn::EntryIndex const position(port.entryIndex(key).value());
  return static_cast<LinuxEntry&>(*port.chunkTail()->entry(position));
}

// Statistics of gone queues that are kept.
constexpr std::size_t maxGoneQueues = 256;

bool isSilent(CongestionUpdate const& update, Vorn::Thresholds const& thresholds) {
  return update.qLen < thresholds.low && update.qLen < thresholds.high;
}

}  // namespace

CongestionFeed::CongestionFeed(Vorn::CongestionData::Ptr recorder, Vorn::Config::PtrConst config,
                               Vorn::Hardware::Status::PtrConst hwStatus, AgentClock::PtrConst clock)
    : recorder_(std::move(recorder)),
      config_(std::move(config)),
      hwStatus_(std::move(hwStatus)),
      clock_(std::move(clock)) {
  recorder_->allocateGlobalChunk();
}

// Merged updates are judged by nobody, so one that lifts its record over a threshold for the first time is
// made a record of its own. Returns whether its message is always due.
bool CongestionFeed::judge(Judgement& judgement, CongestionUpdate& update,
                           Vorn::Thresholds const& thresholds) {
  if (update.begins && update.timestamp - judgement.told > update.coalesceTime) judgement.level = 0;
  judgement.told = update.timestamp;
  int const level = update.qLen >= thresholds.high ? 2 : update.qLen >= thresholds.low ? 1 : 0;
  if (level <= judgement.level) return false;
  judgement.level = level;
  update.coalesceTime = 0;
  return level == 2;
}

void CongestionFeed::handleUpdate(QueueAddress const& queue, CongestionUpdate const& found) {
  CongestionUpdate update = found;
  update.timestamp = clock_->wallTime(found.timestamp).value();
  Vorn::Thresholds const thresholds = Vorn::portThresholds(config_, hwStatus_, queue.intfId);
  QueueId const id = {queue.intfId, queue.key};
  if (judged_.find(id) == nullptr) judged_.put(id, {});
  bool const alwaysLog = judge(*judged_.find(id), update, thresholds);
  if (update.begins) ++bursts_;
  auto const port = recorder_->portDataIs(queue.intfId);
  Kes::Seconds const lastMessage = port->lastSyslogTime();
  log(queue, update, alwaysLog);
  // A judgement that had nothing to say must not silence the next one for the log interval: most bursts are
  // small when they begin.
  if (isSilent(update, thresholds)) port->lastSyslogTimeIs(lastMessage);
  keepMetaData(queue, update);
}

void CongestionFeed::handleTotal(CongestionUpdate const& found) {
  CongestionUpdate update = found;
  update.timestamp = clock_->wallTime(found.timestamp).value();
  Vorn::Thresholds const thresholds = Vorn::globalThresholds(config_, hwStatus_);
  judge(globalJudged_, update, thresholds);
  auto const chunk = recorder_->globalBufferChunk();
  Kes::Seconds const lastMessage = chunk->lastSyslogTime();
  logGlobal(update);
  if (isSilent(update, thresholds)) chunk->lastSyslogTimeIs(lastMessage);
}

void CongestionFeed::handleGone(QueueAddress const& queue) {
  judged_.del({queue.intfId, queue.key});
  auto const port = recorder_->portData(queue.intfId);
  auto const metaData = port ? port->portMetaData(queue.key) : nullptr;
  if (!metaData) return;
  metaData->timeOfCongestionStartIs(Microseconds(0));
  goneQueues_.emplace_back(queue.intfId, queue.key);
  if (goneQueues_.size() <= maxGoneQueues) return;
  auto const [intfId, key] = goneQueues_.front();
  goneQueues_.pop_front();
  if (auto const log = recorder_->portData(intfId)) log->portMetaDataDel(key);
}

void CongestionFeed::handlePresent(QueueAddress const& queue) {
  std::erase(goneQueues_, std::pair(queue.intfId, queue.key));
}

void CongestionFeed::log(QueueAddress const& queue, CongestionUpdate const& update, bool alwaysLog) {
  if (spare_)
    spare_->entryIs(queue.key, queue.handle, update);
  else
    spare_ = Kes::makePtr<LinuxEntry>(queue.key, queue.handle, update);
  spare_->alwaysLogIs(alwaysLog);
  recorder_->updateEntry(queue.intfId, spare_, Microseconds(update.coalesceTime), queue.key);
  // The recorder keeps a record that it appends, and only the values of one that it merges.
  bool const appended = spare_->ptrCount() > 1;
  if (appended)
    spare_ = nullptr;
  else
    loggedRecord(*recorder_->portData(queue.intfId), queue.key).handleMerged(update);
}

void CongestionFeed::keepMetaData(QueueAddress const& queue, CongestionUpdate const& update) {
  auto const port = recorder_->portDataIs(queue.intfId);
  auto metaData = port->portMetaData(queue.key);
  if (!metaData) {
    metaData = Vorn::portMetaDataFactory(queue.key, queue.intfId);
    port->portMetaDataIs(metaData);
  }
  if (update.begins) {
    metaData->counterInc(1);
    metaData->timeOfCongestionStartIs(Microseconds(update.timestamp));
  }
  if (update.ends) metaData->timeOfCongestionStartIs(Microseconds(0));
  if (update.qLen > metaData->maxQLen()) {
    metaData->maxQLenIs(update.qLen);
    metaData->timeOfMaxQLenIs(Microseconds(update.timestamp));
  }
}

// The global log merges nothing by itself, so what updateEntry does for an interface is done here, by the
// same rule.
void CongestionFeed::logGlobal(CongestionUpdate const& update) {
  auto const& chunk = recorder_->globalBufferChunk();
  U64 const span = globalRecord_ ? update.timestamp - globalRecord_->timestamp().value() : 0;
  if (globalRecord_ && span - globalRecord_->duration().value() <= update.coalesceTime) {
    globalRecord_->durationIs(Microseconds(span));
    globalRecord_->qLenIs(std::max(globalRecord_->qLen(), update.qLen));
    globalRecord_->handleMerged(update);
  } else {
    globalRecord_ = Kes::makePtr<LinuxEntry>(noQueue, 0U, update);
    recorder_->doAddToGlobalLog(globalRecord_);
  }
  if (update.begins) chunk->counterInc(1);
  chunk->durationIs(globalRecord_->duration());
  if (update.qLen > chunk->maxBuffer()) {
    chunk->maxBufferIs(update.qLen);
    chunk->timeOfMaxBufferIs(Microseconds(update.timestamp));
  }
}

}  // namespace Agent
