// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Vorn/CongestionData.h"
#include "agent/base/ChildProcess.h"
#include "agent/base/EventLoop.h"
#include "agent/history/HistoryReader.h"

namespace Agent {

// Keeps a recorder's history in the file history.vorn of a state directory, so that it outlives the agent.
//
// What stands there is read back at construction. A file that is not a whole history is put aside
// (HistoryFile.h) and never overwritten, after what is sound in it has been read, which is written at once;
// where it cannot be put aside, it stays, and nothing is kept until the next start.
//
// From start() on a child writes the file at intervals, if something has changed since the last time or the
// file is gone; the agent does not wait for it, and there is one at a time. finish() writes it once more, in
// this process. A write that fails is noted, the first of a row, and tried again at the next interval.
class HistoryKeeper {
 public:
  // A number that is another one whenever the recorder has changed.
  using Changes = std::function<Kes::U64()>;

  // Makes the last part of the directory's path if it is missing, and takes the directory for itself as long
  // as this lives. `recorder` was just made, and so was `ledger`, which outlives this; where the pool grows,
  // it grows to what was saved. Throws std::system_error where that is refused, std::runtime_error where
  // another agent has it.
  HistoryKeeper(std::string directory, Vorn::CongestionData::Ptr recorder, BurstLedger& ledger,
                bool poolGrows);
  ~HistoryKeeper();
  HistoryKeeper(HistoryKeeper const&) = delete;
  HistoryKeeper& operator=(HistoryKeeper const&) = delete;

  // Writes at intervals from now on; with an interval of 0 only in finish(). `loop` outlives this.
  void start(EventLoop& loop, std::chrono::seconds interval, Changes changes);
  // Writes what has changed, and waits until it is on the disk.
  void finish();

  struct Status {
    std::string path{};
    HistoryRead found{};  // at the start; savedAt is 0 where there was none
    std::string aside{};  // where that was put, if it was no whole history
    Kes::U64 written = 0;
    Kes::U64 failed = 0;
    std::string fault{};  // of the latest write, or why nothing is kept; empty: none
    bool keeping = true;

    // For people, a line for each subject, without the last newline.
    std::string text() const;
  };
  Status status() const { return {path_, found_, aside_, written_, failed_, fault_, keeping_}; }

 private:
  void takeDirectory();
  HistoryRead readInto(bool poolGrows) const;
  void readBack(bool poolGrows);
  void noteReadBack(HistoryRead const& read) const;
  void handleTimer();
  void startChild();
  void handleChildEnd();
  void write() const;
  void noteResult(int reason);

  std::string const directory_;
  std::string const path_;
  Vorn::CongestionData::Ptr const recorder_;
  BurstLedger& ledger_;
  FileDescriptor lock_;
  FileDescriptor timer_;
  EventLoop* loop_ = nullptr;
  Changes changes_;
  Kes::U64 saved_ = 0;     // changes that the file has
  Kes::U64 writing_ = 0;   // that it will have
  bool upToDate_ = false;  // whether the file has any at all
  bool keeping_ = true;
  std::unique_ptr<ChildProcess> child_;
  HistoryRead found_;
  std::string aside_;
  Kes::U64 written_ = 0;
  Kes::U64 failed_ = 0;
  std::string fault_;  // of the latest write, or why nothing is kept; empty: none
};

}  // namespace Agent
