// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "Kes/Ptr.h"
#include "Kes/String.h"
#include "Pylo/IntfId.h"
#include "Vorn/ChunkPool.h"
#include "Vorn/Clock.h"
#include "Vorn/Config.h"
#include "Vorn/Export.h"
#include "Vorn/GlobalBufferChunk.h"
#include "Vorn/HardwareStatus.h"
#include "Vorn/PortData.h"
#include "Vorn/PortMetaDataDumper.h"

namespace Vorn {

// The recorder: owns the log of every interface, the pool of shared chunks and the log of the global buffer;
// takes records in, and writes reports. A host makes one. One thread uses it; reports and intake never
// overlap.
//
// A record's journey: doAddToLog finds or makes the interface's PortData, raises the threshold message if one
// is due, and appends the record to the newest chunk. When there is none, or it holds 500 records,
// allocateChunk supplies one:
//
//   - an interface's first chunk is its own for life;
//   - further chunks are shared and come from the pool (ChunkPool.h): new ones up to its limit, and from then
//     on the one that was handed out longest ago, taken from whichever interface holds it.
//
// So memory is bounded by numSharedChunks shared chunks, one private chunk an interface, and the 500 records
// of the global buffer.
//
// Whoever calls an operation holds the recorder for as long as it runs.
//
// Errors: a null record raises the range exception "null ValidPtr" before anything has changed. An allocation
// that fails in intake means that the record is in no log and may be handed in again; the interface's log may
// have been made by then, and the threshold message raised. Broken invariants end the process.
class VORN_EXPORT CongestionData final : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<CongestionData>;
  using PtrConst = Kes::Ptr<CongestionData const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  using PortDataMap = Vorn::PortDataMap;
  using ChunkArray = ChunkPool::Queue;

  // State of the pool queue for saving and restoring: the position of its first element, and the capacity
  // that its ring must have.
  struct ChunkArrayMetadata {
    Kes::U32 head = 0;
    Kes::U32 capacity = 0;
    bool operator==(ChunkArrayMetadata const&) const = default;
  };

  // What has happened to the logs of interfaces, those that are deleted by now among them.
  struct Counts {
    Kes::U64 appends = 0;
    Kes::U64 merges = 0;
    Kes::U64 steals = 0;  // ChunkPool::steals
    bool operator==(Counts const&) const = default;
  };

  // Where the chunks of interfaces are.
  struct ChunkCounts {
    Kes::U32 privates = 0;  // first ones of a log
    Kes::U32 shared = 0;    // of the pool, in logs
    Kes::U32 free = 0;      // of the pool, in no log
  };

  // Keeps its four inputs for life, and ends by calling handleInitialized. None of them may be null: intake
  // and reports use them without a test.
  CongestionData(Hardware::Status::PtrConst const& vornHwStatus, Clock::Ptr const& clock,
                 Config::PtrConst const& vornConfig, PortMetaDataDumper::PtrConst const& portMetaDataDumper);

  std::string_view fwkType() const override { return "Vorn::CongestionData"; }

  Hardware::Status::PtrConst const& vornHwStatus() const { return vornHwStatus_; }
  Clock::Ptr const& clock() const { return clock_; }
  Config::PtrConst const& vornConfig() const { return vornConfig_; }
  PortMetaDataDumper::PtrConst const& portMetaDataDumper() const { return portMetaDataDumper_; }

  // Reads the environment variable SIM_NUM_SHARED_CHUNKS (once a process; strtol's rules, cut to 32 bits)
  // into numSharedChunks where it is set. An assertion while initialized() is true.
  void handleInitialized();
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  // The collection `portData`: one log per interface that ever sent a record. Deleting a log clears its
  // chunks; the shared ones stay in the pool as free ones. Iteration order is stable between deletions and
  // means nothing.
  PortData::Ptr portData(Pylo::IntfId const& intfId) const;
  // The interface's log, made if there is none.
  PortData::Ptr portDataIs(Pylo::IntfId const& intfId);
  PortDataMap const& portDataMap() const { return portData_; }
  PortDataMap::Iterator portDataIterator() const { return portData_.iterator(); }
  void portDataDel(Pylo::IntfId const& intfId);
  void portDataDel(PortDataMap::Iterator& at);
  void portDataDelAll();

  // The collection `chunkArray`: the pool of shared chunks as a queue (ChunkPool.h), the one handed out
  // longest ago first, each under a position that it keeps. A null chunk cannot be enqueued: "null ValidPtr".
  Chunk::Ptr chunkArray(Kes::U32 position) const { return pool_.queue().at(position); }
  // Positions from head to tail, emptied ones included.
  Kes::U32 chunkArrayCount() const { return pool_.queue().count(); }
  ChunkArray::Iterator chunkArrayIterator() const { return pool_.queue().iterator(); }
  Kes::U32 chunkArrayModificationCount() const { return pool_.queue().modificationCount(); }
  void chunkArrayEnq(Chunk::Ptr const& chunk) { pool_.enq(chunk); }
  Chunk::Ptr chunkArrayDeq() { return pool_.queue().deq(); }
  // Stores at an explicit position, for restoring; null deletes. RangeException beyond 2^24 slots.
  void chunkArrayIs(Kes::U32 position, Chunk::Ptr const& chunk) { pool_.put(position, chunk); }
  Chunk::Ptr chunkArrayDel(Kes::U32 position) { return pool_.queue().del(position); }
  void chunkArrayDelAll() { pool_.queue().delAll(); }
  ChunkArrayMetadata chunkArrayMetadata() const {
    return {pool_.queue().headPosition(), pool_.queue().capacity()};
  }
  // RangeException, changing nothing, for a capacity above 2^24.
  void chunkArrayMetadataIs(ChunkArrayMetadata const& metadata) {
    pool_.queue().stateIs(metadata.head, metadata.capacity);
  }

  // How many chunks the pool may hold. Takes effect at the next request; a larger pool never shrinks.
  Kes::U32 numSharedChunks() const { return pool_.limit(); }
  void numSharedChunksIs(Kes::U32 numSharedChunks) { pool_.limitIs(numSharedChunks); }

  // Since the recorder was made, or on from what a host has restored. What each log has lost is told by its
  // PortData::loss, and goes with it.
  Counts counts() const { return {appends_, merges_, pool_.steals()}; }
  void countsAre(Counts const& counts);
  // Walks all logs and the pool.
  ChunkCounts chunkCounts() const;

  // The log of the global buffer; null until allocateGlobalChunk.
  GlobalBufferChunk::Ptr const& globalBufferChunk() const { return globalBufferChunk_; }
  void globalBufferChunkIs(GlobalBufferChunk::Ptr const& chunk) { globalBufferChunk_ = chunk; }

  // Intake. All return the timestamp of `entry`, and keep that very object when they append it.

  // Gives an interface that has a PortData a fresh, empty chunk as its newest. Never null; an assertion when
  // there is no PortData, or when the pool is limited to 0 chunks and a shared one is needed.
  Chunk::Ptr allocateChunk(Pylo::IntfId intfId);
  // Merges the record into the latest one under the same key if it starts at most `coalesceTime` after that
  // one's end: the duration then reaches up to its timestamp, the queue length keeps the larger. Appends it
  // otherwise, and judges it like any other record. Only records in the interface's newest chunk are merged
  // into.
  Microseconds updateEntry(Pylo::IntfId intfId, Entry::Ptr const& entry, Microseconds const& coalesceTime,
                           Kes::U32 entryKey);
  // Appends. The record is judged against the thresholds when the log interval has passed since the
  // interface's last judgement, or when it says alwaysLog; with an interval of 0 none is, whatever it says.
  Microseconds doAddToLog(Pylo::IntfId intfId, Entry::Ptr const& entry);
  // Makes the log of the global buffer if there is none.
  void allocateGlobalChunk();
  // Appends to the log of the global buffer, dropping its oldest record when it holds 500; judged like
  // others, but with no interface name, and alwaysLog plays no part. Where there is no log, before
  // allocateGlobalChunk or because the record's doSyslog took it away: "null ValidPtr", and the record is not
  // kept.
  Microseconds doAddToGlobalLog(Entry::Ptr const& entry);

  // Reports. `stream` is a FILE* open for writing; header and footer are written verbatim. A null stream is
  // traced as an error and nothing is written.

  // Answers a command on a connected stream socket: enlarges its send buffer past the system's limit (which
  // takes a privilege), writes one report and closes the socket. Where enlarging or opening fails the error
  // is traced and the socket stays open. std::regex_error passes through for a bad interface pattern, the
  // socket closed. A client that goes away cannot end the process.
  void handleCommand(Kes::U32 socket, Kes::String command, Kes::String reportHeader, Kes::String footer);
  // Writes the report that the command chooses (CommandOptions.h has the vocabulary): by default the text
  // report of all interfaces, latest record first.
  void doMergeAndDumpEntries(Kes::VoidPtr stream, Kes::String command, Kes::String reportHeader,
                             Kes::String footer);
  // Writes every record of the interfaces whose mergeEntries is set, oldest first, between the start records
  // of startEntry (oldest first). Returns how many characters the footer has, negative on an output error, -1
  // for a null stream, or the non-zero result of the writer that failed.
  Kes::S32 doDumpEntriesInCSVFormat(Kes::VoidPtr stream, Kes::String reportHeader, Kes::String footer,
                                    bool showAll);
  // One line per metadata object whose counter is not 0, by interface number, and the global hit count. Where
  // there are several objects, of which one has the empty interface, std::out_of_range passes through,
  // with no more than date and header written.
  void doDumpStatistics(Kes::VoidPtr stream, Kes::String reportHeader, Kes::String footer);
  // The log of the global buffer, latest first. Without records: no footer either. A hole in it, which only
  // the host can make, is an assertion.
  void doDumpGlobalBufferChunk(Kes::VoidPtr stream, Kes::String reportHeader, Kes::String footer);
  // Writes the global records that come before `entry` in a report (all that are left when it is null). When
  // `ascending` the report is comma-separated and its oldest records come first: those from before `entry`;
  // else it is text, the latest first: those from after it. The cursor stays in the GlobalBufferChunk between
  // calls. Records of the same time as `entry` come after it.
  void doMergeAndDumpGlobalChunk(Kes::VoidPtr stream, Entry const* entry, bool ascending);

  // For tests: the first thing that is wrong with logs and pool as the recorder keeps them, or nothing.
  std::string checkInvariants() const;

 protected:
  ~CongestionData() override;

 private:
  // Intake.
  PortData& portFor(Pylo::IntfId const& intfId, char const* operation);
  VORN_LOCAL PortData& newPort(Pylo::IntfId const& intfId, char const* operation);
  Microseconds append(Pylo::IntfId const& intfId, PortData& port, Entry::Ptr const& entry,
                      Kes::U32 const* entryKey);
  VORN_LOCAL Microseconds appendSlow(Pylo::IntfId const& intfId, PortData& judged, Entry::Ptr const& given,
                                     Kes::U32 const* entryKey, bool due, Kes::Seconds now);
  void noteAppended(Pylo::IntfId const& intfId, PortData& port, Chunk const& tailChunk, Entry const& record,
                    Kes::U32 const* entryKey);
  bool messageDue(PortData const& port, Entry const& entry, Kes::Seconds now) const;

  Hardware::Status::PtrConst const vornHwStatus_;
  Clock::Ptr const clock_;
  Config::PtrConst const vornConfig_;
  PortMetaDataDumper::PtrConst const portMetaDataDumper_;
  PortDataMap portData_;
  // Beside the map, which each record needs as well: counting touches no other line of cache.
  Kes::U64 appends_ = 0;
  Kes::U64 merges_ = 0;
  ChunkPool pool_;
  GlobalBufferChunk::Ptr globalBufferChunk_;
  bool initialized_ = false;
};

}  // namespace Vorn
