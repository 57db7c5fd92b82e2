// SPDX-License-Identifier: Apache-2.0
#include "agent/history/HistoryReader.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Kes/Format.h"
#include "agent/base/PoolLimit.h"
#include "agent/history/FlowFields.h"
#include "agent/history/HistoryFormat.h"
#include "agent/record/LinuxEntry.h"

namespace Agent {

namespace {

using HistoryFormat::FieldReader;
using HistoryFormat::Section;
using Kes::U16;
using Kes::U32;
using Kes::U64;
using Kes::U8;
using Vorn::Microseconds;

// Where reading ends, and why.
struct Damage {
  std::string_view reason;
};

void require(bool holds, std::string_view otherwise) {
  if (!holds) throw Damage{otherwise};
}

class Reading {
 public:
  Reading(std::string_view bytes, Vorn::CongestionData& recorder, BurstLedger& ledger)
      : rest_(bytes), recorder_(recorder), ledger_(ledger) {}

  HistoryRead read() {
    std::size_t const size = rest_.size();
    if (!readHeader()) return std::move(result_);
    std::size_t sectionAt = size - rest_.size();
    try {
      while (!ended_) {
        sectionAt = size - rest_.size();
        readSection();
      }
      sectionAt = size - rest_.size();
      require(rest_.empty(), "more bytes stand behind the end");
    } catch (Damage const& damage) {
      result_.kind = HistoryRead::Kind::damaged;
      result_.fault =
          Kes::format("damaged at byte %u of %u: %s", sectionAt, size, std::string(damage.reason)).str();
    }
    enterPool();
    for (auto const& [intfId, port] : recorder_.portDataMap()) ledger_.orderIs(intfId, LogOrder(*port));
    return std::move(result_);
  }

 private:
  // A chunk that the pool shares out.
  struct Shared {
    U32 place;  // in the order in which they were handed out
    Vorn::PortData::Ptr port;
    U32 key;
    Vorn::Chunk::Ptr chunk;
  };

  bool readHeader() {
    std::string_view const header = rest_.substr(0, HistoryFormat::headerBytes);
    std::string_view const known = HistoryFormat::magic.substr(0, header.size());
    if (header.empty()) return refuse(HistoryRead::Kind::damaged, "the file is empty");
    if (!header.starts_with(known))
      return refuse(HistoryRead::Kind::foreign, "it is no history of vorn-agent");
    if (header.size() < HistoryFormat::headerBytes)
      return refuse(HistoryRead::Kind::damaged, "it is cut off in its header");
    FieldReader fields(header.substr(known.size()));
    bool const ordered = fields.take<U32>() == HistoryFormat::byteOrder;
    U32 const version = fields.take<U32>();
    checksum_ = HistoryFormat::checksum(0, header.substr(0, header.size() - HistoryFormat::checksumBytes));
    if (fields.take<U32>() != checksum_) return refuse(HistoryRead::Kind::damaged, "its header is damaged");
    if (!ordered) return refuse(HistoryRead::Kind::foreign, "its numbers have another order of bytes");
    if (version > HistoryFormat::version || version == 0) {
      return refuse(
          HistoryRead::Kind::newer,
          Kes::format("its format is version %u, and this program knows %u", version, HistoryFormat::version)
              .str());
    }
    rest_.remove_prefix(header.size());
    return true;
  }

  bool refuse(HistoryRead::Kind kind, std::string fault) {
    result_.kind = kind;
    result_.fault = std::move(fault);
    return false;
  }

  void readSection() {
    std::string_view const head = rest_.substr(0, HistoryFormat::sectionHeadBytes);
    FieldReader headFields(head);
    auto const type = static_cast<Section>(headFields.take<U16>());
    std::size_t const length = headFields.take<U16>();
    require(headFields.isWhole() && rest_.size() >= head.size() + length + HistoryFormat::checksumBytes,
            "it is cut off there");
    U32 const sum = HistoryFormat::checksum(checksum_, rest_.substr(0, head.size() + length));
    require(FieldReader(rest_.substr(head.size() + length)).take<U32>() == sum, "the checksum does not fit");
    FieldReader fields(rest_.substr(head.size(), length));
    readFields(type, fields);
    checksum_ = sum;
    rest_.remove_prefix(head.size() + length + HistoryFormat::checksumBytes);
  }

  void readFields(Section type, FieldReader& fields) {
    require((type == Section::state) == (result_.savedAt == Microseconds(0)), "the state is not the first");
    LinuxEntry* const last = std::exchange(record_, nullptr);
    switch (type) {
      case Section::state: return readState(fields);
      case Section::interface: return readInterface(fields);
      case Section::queue: return readQueue(fields);
      case Section::chunk: return readChunk(fields);
      case Section::record: return readRecord(fields);
      case Section::globalLog: return readGlobalLog(fields);
      case Section::end: return readEnd(fields);
      case Section::totals: return readTotals(fields);
      case Section::flows: return readFlows(fields, last);
    }
    throw Damage{"there is no such section"};
  }

  void readState(FieldReader& fields) {
    Microseconds const savedAt(fields.take<U64>());
    U32 const limit = fields.take<U32>();
    U32 const head = fields.take<U32>();
    U64 const appends = fields.take<U64>();
    U64 const merges = fields.take<U64>();
    U64 const steals = fields.take<U64>();
    require(fields.isWhole() && savedAt != Microseconds(0) && limit >= 1 && limit <= maxPoolChunks,
            "the state is none");
    result_.savedAt = savedAt;
    result_.poolLimit = limit;
    poolHead_ = head;
    recorder_.countsAre({appends, merges, steals});
  }

  void readInterface(FieldReader& fields) {
    std::string const name(fields.takeText());
    Kes::Seconds const lastMessage = fields.takeReal();
    U32 const nextKey = fields.take<U32>();
    U64 const lost = fields.take<U64>();
    Microseconds const newestLost(fields.take<U64>());
    require(fields.isWhole() && std::isfinite(lastMessage), "an interface is none");
    require((lost == 0) == (newestLost == Microseconds(0)), "what an interface has lost has no time");
    require(
        !name.empty() && name.size() <= HistoryFormat::longestName && name.find('\0') == std::string::npos,
        "an interface's name is none");
    Pylo::IntfId const intfId(name);
    require(!recorder_.portData(intfId), "an interface is there twice");
    require(!recorder_.globalBufferChunk(), "an interface stands behind the log of the sum");
    port_ = recorder_.portDataIs(intfId);
    port_->lastSyslogTimeIs(lastMessage);
    port_->lossIs({lost, newestLost});
    port_->chunkMetadataIs({nextKey, nextKey});
    nextKey_ = nextKey;
    chunk_ = nullptr;
  }

  void readQueue(FieldReader& fields) {
    require(port_ != nullptr && chunk_ == nullptr, "a queue stands in no interface");
    auto const queue = Vorn::portMetaDataFactory(fields.take<U32>(), port_->intfId());
    queue->counterIs(fields.take<U32>());
    queue->maxQLenIs(fields.take<U32>());
    queue->timeOfMaxQLenIs(Microseconds(fields.take<U64>()));
    queue->timeOfCongestionStartIs(Microseconds(fields.take<U64>()));
    queue->cardSlotIs(fields.take<U8>());
    queue->chipIndexIs(fields.take<U8>());
    queue->numCpuQueuesIs(fields.take<U8>());
    std::string const peer(fields.takeText());
    queue->fabricPeerIntfIs(Pylo::IntfId(peer));
    require(fields.isWhole() && peer.size() <= HistoryFormat::longestName, "a queue is none");
    require(port_->portMetaData(queue->identifier()) == nullptr, "a queue is there twice");
    port_->portMetaDataIs(queue);
  }

  void readTotals(FieldReader& fields) {
    require(port_ != nullptr && chunk_ == nullptr, "what a queue's bursts add up to stands in no interface");
    QueueAddress queue{port_->intfId(), fields.take<U32>(), fields.take<U32>()};
    std::string_view const kind = fields.takeText();
    QueueTotals totals;
    totals.bursts = fields.take<U64>();
    totals.congested = fields.take<U64>();
    totals.drops = fields.take<U64>();
    bool fits = kind.size() <= HistoryFormat::longestKind && kind.find('\0') == std::string_view::npos;
    for (Histogram* const histogram : {&totals.peak, &totals.duration, &totals.latency}) {
      U64 left = totals.bursts;
      for (U64& count : histogram->counts) {
        count = fields.take<U64>();
        fits = fits && count <= left;
        left -= count;
      }
      histogram->sum = fields.take<U64>();
    }
    require(fields.isWhole() && fits, "what a queue's bursts add up to is none");
    require(port_->portMetaData(queue.key) != nullptr, "what bursts add up to is of no queue");
    require(ledger_.accounts().find({queue.intfId, queue.key}) == nullptr,
            "what a queue's bursts add up to is there twice");
    kind.copy(queue.kind.data(), kind.size());
    ledger_.accountIs(queue, totals);
  }

  void readChunk(FieldReader& fields) {
    U32 const key = fields.take<U32>();
    U8 const shared = fields.take<U8>();
    U32 const place = fields.take<U32>() - poolHead_;
    U16 const head = fields.take<U16>();
    require(fields.isWhole() && shared <= HistoryFormat::isShared && head <= Vorn::EntryIndex::max(),
            "a chunk is none");
    require(port_ != nullptr, "a chunk stands in no interface");
    Vorn::PortData::ChunkNode const* const tail = port_->chunkQueue().tail();
    require((shared == 0) == (tail == nullptr), "an interface's first chunk, and no other, is its own");
    require(key < nextKey_ && (tail == nullptr || key > tail->key), "a chunk's key is out of order");
    require(tail == nullptr || tail->value->entrys() == Vorn::entriesPerChunk,
            "a chunk stands behind one that is not full");
    require(shared == 0 || (place < maxPoolChunks && places_.insert(place).second),
            "two chunks have one place in the pool");
    Vorn::Chunk::Ptr const chunk = append(key, head);
    if (shared != 0) shared_.push_back({place, port_, key, chunk});
  }

  Vorn::Chunk::Ptr append(U32 key, U16 head) {
    auto const chunk = Vorn::Chunk::ChunkIs();
    chunk->intfIdIs(port_->intfId());
    chunk->entryMetadataIs({Vorn::EntryIndex(head), 0});
    Vorn::Chunk::Ptr const older(port_->chunkTail());
    port_->entryIndexDelAll();
    // As the next key it goes to the tail without a walk.
    port_->chunkMetadataIs({port_->chunkMetadata().headKey, key});
    port_->newChunk(key, chunk);
    port_->chunkMetadataIs({port_->chunkMetadata().headKey, nextKey_});
    chunk->prevChunkIs(older);
    if (older) older->nextChunkIs(chunk);
    chunk_ = chunk.get();
    return chunk;
  }

  void readRecord(FieldReader& fields) {
    CongestionUpdate update;
    update.timestamp = fields.take<U64>();
    Microseconds const duration(fields.take<U64>());
    update.qLen = fields.take<U32>();
    QueueKey const queue = fields.take<U32>();
    U32 const handle = fields.take<U32>();
    update.peakBound = fields.take<U32>();
    update.drops = fields.take<U32>();
    update.latency = fields.take<U32>();
    U8 const flags = fields.take<U8>();
    constexpr U8 known = HistoryFormat::alwaysLogged | HistoryFormat::latestOfItsQueue;
    require(fields.isWhole() && update.timestamp != 0 && (flags & ~known) == 0, "a record is none");
    auto const log = recorder_.globalBufferChunk();
    Vorn::EntryQueue* const into = log ? static_cast<Vorn::EntryQueue*>(log.get()) : chunk_;
    require(into != nullptr && into->entrys() < Vorn::entriesPerChunk, "a record has no place");
    auto const record = Kes::makePtr<LinuxEntry>(queue, handle, update);
    record->durationIs(duration);
    record->alwaysLogIs((flags & HistoryFormat::alwaysLogged) != 0);
    into->entryEnq(record);
    if (!log && (flags & HistoryFormat::latestOfItsQueue) != 0)
      port_->entryIndexIs(queue, Vorn::EntryIndexOrNull(into->entryTailIndex().value()));
    record_ = record.get();
    ++result_.records;
  }

  // They stand behind the record that they are of.
  static void readFlows(FieldReader& fields, LinuxEntry* record) {
    require(record != nullptr, "flows are of no record");
    std::optional<BurstFlows> const flows = takeFlows(fields);
    require(flows && fields.isWhole(), "a record's flows are none");
    record->flowsAre(*flows);
  }

  void readGlobalLog(FieldReader& fields) {
    Microseconds const duration(fields.take<U64>());
    U32 const maxBuffer = fields.take<U32>();
    Microseconds const timeOfMaxBuffer(fields.take<U64>());
    Kes::Seconds const lastMessage = fields.takeReal();
    U32 const counter = fields.take<U32>();
    U16 const head = fields.take<U16>();
    require(fields.isWhole() && std::isfinite(lastMessage) && head <= Vorn::EntryIndex::max(),
            "the log of the sum is none");
    require(!recorder_.globalBufferChunk(), "the log of the sum is there twice");
    recorder_.allocateGlobalChunk();
    auto const log = recorder_.globalBufferChunk();
    log->durationIs(duration);
    log->maxBufferIs(maxBuffer);
    log->timeOfMaxBufferIs(timeOfMaxBuffer);
    log->lastSyslogTimeIs(lastMessage);
    log->counterIs(counter);
    log->entryMetadataIs({Vorn::EntryIndex(head), 0});
    port_ = nullptr;
    chunk_ = nullptr;
  }

  void readEnd(FieldReader& fields) {
    U64 const records = fields.take<U64>();
    require(fields.isWhole() && records == result_.records, "the number of records does not fit");
    ended_ = true;
  }

  // The pool in its order, as far as it has room.
  void enterPool() {
    std::sort(shared_.begin(), shared_.end(), [](auto& a, auto& b) { return a.place < b.place; });
    std::size_t const limit = recorder_.numSharedChunks();
    std::size_t const leftOut = shared_.size() > limit ? shared_.size() - limit : 0;
    for (std::size_t i = 0; i < leftOut; ++i) leaveOut(shared_[i]);
    auto const [appends, merges, steals] = recorder_.counts();
    recorder_.countsAre({appends, merges, steals + leftOut});
    for (std::size_t i = leftOut; i < shared_.size(); ++i) recorder_.chunkArrayEnq(shared_[i].chunk);
    U32 const head = poolHead_ + (leftOut < shared_.size() ? shared_[leftOut].place : 0);
    recorder_.chunkArrayMetadataIs({head, 0});
    result_.chunksLeftOut = leftOut;
  }

  void leaveOut(Shared const& shared) {
    Vorn::Chunk::Ptr const& chunk = shared.chunk;
    shared.port->chunkDel(shared.key);
    if (chunk->prevChunk()) chunk->prevChunk()->nextChunkIs(chunk->nextChunk());
    if (chunk->nextChunk())
      chunk->nextChunk()->prevChunkIs(chunk->prevChunk());
    else
      shared.port->entryIndexDelAll();
    result_.records -= chunk->entrys();
    Vorn::PortData::Loss loss;
    for (Vorn::Entry::Ptr const& record : chunk->entryIterator()) loss.add(*record);
    shared.port->lossInc(loss);
    chunk->doClear();
  }

  std::string_view rest_;
  Vorn::CongestionData& recorder_;
  BurstLedger& ledger_;
  HistoryRead result_;
  U32 checksum_ = 0;
  U32 poolHead_ = 0;
  Vorn::PortData::Ptr port_;      // whose sections are being read,
  U32 nextKey_ = 0;               // the key that its next chunk gets one day,
  Vorn::Chunk* chunk_ = nullptr;  // and its newest chunk so far
  LinuxEntry* record_ = nullptr;  // that the section before held
  std::vector<Shared> shared_;
  std::unordered_set<U32> places_;
  bool ended_ = false;
};

}  // namespace

HistoryRead readHistory(std::string_view bytes, Vorn::CongestionData& recorder, BurstLedger& ledger) {
  return Reading(bytes, recorder, ledger).read();
}

}  // namespace Agent
