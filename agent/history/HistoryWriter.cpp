// SPDX-License-Identifier: Apache-2.0
#include "agent/history/HistoryWriter.h"

#include <stdexcept>
#include <unordered_map>

#include "agent/history/FlowFields.h"
#include "agent/history/HistoryFormat.h"
#include "agent/record/LinuxEntry.h"

namespace Agent {

namespace {

using HistoryFormat::Fields;
using HistoryFormat::Section;
using Kes::U16;
using Kes::U32;
using Kes::U64;
using Kes::U8;

class Writing {
 public:
  Writing(Vorn::CongestionData const& recorder, BurstLedger const& ledger, std::FILE* out)
      : recorder_(recorder), ledger_(ledger), out_(out) {
    for (auto i = recorder.chunkArrayIterator(); i; ++i) positions_.emplace((*i).get(), i.key());
  }

  void write() {
    writeHeader();
    writeState();
    for (auto const& [intfId, port] : recorder_.portDataMap()) writeLog(*port);
    if (recorder_.globalBufferChunk()) writeGlobalLog(*recorder_.globalBufferChunk());
    begin(Section::end).add(records_);
    end();
  }

 private:
  void writeHeader() {
    Fields header;
    header.addBytes(HistoryFormat::magic);
    header.add(HistoryFormat::byteOrder);
    header.add(HistoryFormat::version);
    put(header);
  }

  void writeState() {
    Fields& state = begin(Section::state);
    state.add(Vorn::Microseconds::fromSeconds(recorder_.clock()->getUTCTime()).value());
    state.add(recorder_.numSharedChunks());
    state.add(recorder_.chunkArrayMetadata().head);
    auto const [appends, merges, steals] = recorder_.counts();
    state.add(appends);
    state.add(merges);
    state.add(steals);
    end();
  }

  void writeLog(Vorn::PortData const& port) {
    Fields& interface = begin(Section::interface);
    interface.addText(port.intfId().stringValue().view());
    interface.addReal(port.lastSyslogTime());
    interface.add(port.chunkMetadata().nextKey);
    interface.add(port.loss().records);
    interface.add(port.loss().newest.value());
    end();
    for (Vorn::PortMetaData::Ptr const& queue : port.portMetaDataIterator()) writeQueue(*queue);
    for (auto i = port.chunkIterator(); i; ++i) writeChunk(port, i.key(), **i);
  }

  void writeQueue(Vorn::PortMetaData const& queue) {
    Fields& fields = begin(Section::queue);
    fields.add(queue.identifier());
    fields.add(queue.counter());
    fields.add(queue.maxQLen());
    fields.add(queue.timeOfMaxQLen().value());
    fields.add(queue.timeOfCongestionStart().value());
    fields.add(queue.cardSlot());
    fields.add(queue.chipIndex());
    fields.add(queue.numCpuQueues());
    fields.addText(queue.fabricPeerIntf().stringValue().view());
    end();
    if (auto const* const account = ledger_.accounts().find({queue.intfId(), queue.identifier()}))
      writeTotals(*account);
  }

  void writeTotals(BurstLedger::Account const& account) {
    QueueTotals const& totals = account.totals;
    Fields& fields = begin(Section::totals);
    fields.add(account.address.key);
    fields.add(account.address.handle);
    fields.addText(account.address.kind.data());
    fields.add(totals.bursts);
    fields.add(totals.congested);
    fields.add(totals.drops);
    for (Histogram const* const histogram : {&totals.peak, &totals.duration, &totals.latency}) {
      for (U64 const count : histogram->counts) fields.add(count);
      fields.add(histogram->sum);
    }
    end();
  }

  void writeChunk(Vorn::PortData const& port, U32 key, Vorn::Chunk const& chunk) {
    auto const position = positions_.find(&chunk);
    bool const shared = position != positions_.end();
    Fields& fields = begin(Section::chunk);
    fields.add(key);
    fields.add(U8{shared ? HistoryFormat::isShared : U8{0}});
    fields.add(shared ? position->second : U32{0});
    fields.add(chunk.entryMetadata().head.value());
    end();
    writeRecords(chunk, &chunk == port.chunkTail() ? &port : nullptr);
  }

  void writeGlobalLog(Vorn::GlobalBufferChunk const& log) {
    Fields& fields = begin(Section::globalLog);
    fields.add(log.duration().value());
    fields.add(log.maxBuffer());
    fields.add(log.timeOfMaxBuffer().value());
    fields.addReal(log.lastSyslogTime());
    fields.add(log.counter());
    fields.add(log.entryMetadata().head.value());
    end();
    writeRecords(log, nullptr);
  }

  // Oldest first. `port` if this is its newest chunk, of which it has an index.
  void writeRecords(Vorn::EntryQueue const& queue, Vorn::PortData const* port) {
    Vorn::EntryQueue::Slots const& slots = queue.entrySlots();
    U32 slot = slots.head();
    for (U32 left = slots.count(); left > 0; --left, slot = Vorn::EntryQueue::Slots::after(slot)) {
      auto const* const record = dynamic_cast<LinuxEntry const*>(slots.slot(slot).get());
      if (record == nullptr) throw std::logic_error("a chunk holds what is no record of this agent");
      writeRecord(*record, port != nullptr && port->entryIndex(record->queue()).value() == slot);
    }
  }

  void writeRecord(LinuxEntry const& record, bool latest) {
    Fields& fields = begin(Section::record);
    fields.add(record.timestamp().value());
    fields.add(record.duration().value());
    fields.add(record.qLen());
    fields.add(record.queue());
    fields.add(record.handle());
    fields.add(record.peakBound());
    fields.add(record.drops());
    fields.add(record.latency());
    fields.add(static_cast<U8>((record.alwaysLog() ? HistoryFormat::alwaysLogged : 0) |
                               (latest ? HistoryFormat::latestOfItsQueue : 0)));
    end();
    ++records_;
    if (record.flows() == nullptr) return;
    addFlows(begin(Section::flows), *record.flows());
    end();
  }

  Fields& begin(Section type) {
    section_.bytes().clear();
    section_.add(static_cast<U16>(type));
    section_.add(U16{0});
    return section_;
  }

  void end() {
    std::size_t const length = section_.bytes().size() - HistoryFormat::sectionHeadBytes;
    section_.bytes()[2] = static_cast<char>(length & 0xff);
    section_.bytes()[3] = static_cast<char>(length >> 8);
    put(section_);
  }

  void put(Fields& fields) {
    checksum_ = HistoryFormat::checksum(checksum_, fields.bytes());
    fields.add(checksum_);
    std::fwrite(fields.bytes().data(), 1, fields.bytes().size(), out_);
  }

  Vorn::CongestionData const& recorder_;
  BurstLedger const& ledger_;
  std::FILE* const out_;
  std::unordered_map<Vorn::Chunk const*, U32> positions_;  // of shared chunks in the pool
  Fields section_;
  U32 checksum_ = 0;
  U64 records_ = 0;
};

}  // namespace

void writeHistory(Vorn::CongestionData const& recorder, BurstLedger const& ledger, std::FILE* out) {
  Writing(recorder, ledger, out).write();
}

}  // namespace Agent
