// SPDX-License-Identifier: Apache-2.0
#include "agent/history/HistoryKeeper.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include "Kes/Format.h"
#include "agent/base/Failures.h"
#include "agent/base/Journal.h"
#include "agent/base/PoolLimit.h"
#include "agent/history/HistoryFile.h"
#include "agent/history/HistoryFormat.h"
#include "agent/history/HistoryWriter.h"

namespace Agent {

namespace {

// A disk that takes longer for some megabytes takes none.
constexpr std::chrono::minutes childLimit{5};

// Exit statuses of the child beside errno's values, which are smaller.
constexpr int outOfMemory = 254;
constexpr int failedOtherwise = 255;

std::string reasonOf(int status) {
  if (status == outOfMemory) return "out of memory";
  if (status == failedOtherwise) return "its process failed";
  return std::strerror(status);
}

// The reason why `work` failed, 0 if it has not.
template <class Work>
int attempt(Work work) {
  try {
    work();
    return 0;
  } catch (std::system_error const& error) {
    return error.code().value();
  } catch (std::bad_alloc const&) {
    return outOfMemory;
  } catch (std::exception const&) {
    return failedOtherwise;
  }
}

}  // namespace

HistoryKeeper::HistoryKeeper(std::string directory, Vorn::CongestionData::Ptr recorder, BurstLedger& ledger,
                             bool poolGrows)
    : directory_(std::move(directory)),
      path_(directory_ + "/history.vorn"),
      recorder_(std::move(recorder)),
      ledger_(ledger) {
  takeDirectory();
  readBack(poolGrows);
}

HistoryKeeper::~HistoryKeeper() {
  if (timer_) loop_->remove(timer_.get());
  if (child_) loop_->remove(child_->fd());
}

void HistoryKeeper::takeDirectory() {
  if (::mkdir(directory_.c_str(), 0750) != 0 && errno != EEXIST) throwErrno(directory_);
  lock_ = FileDescriptor(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_) throwErrno(directory_);
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) throwErrno(directory_);
  throw std::runtime_error(directory_ + ": another agent keeps its history there");
}

HistoryRead HistoryKeeper::readInto(bool poolGrows) const {
  std::string const bytes = readFile(path_, HistoryFormat::magic);
  Kes::U32 const pool = recorder_->numSharedChunks();
  if (poolGrows) recorder_->numSharedChunksIs(maxPoolChunks);  // all that was saved
  HistoryRead read = readHistory(bytes, *recorder_, ledger_);
  if (poolGrows) recorder_->numSharedChunksIs(std::max(pool, recorder_->chunkArrayCount()));
  return read;
}

void HistoryKeeper::readBack(bool poolGrows) {
  HistoryRead read;
  try {
    read = readInto(poolGrows);
  } catch (std::system_error const& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return;
    read = {.kind = HistoryRead::Kind::foreign, .fault = error.what()};
  } catch (std::bad_alloc const&) {
    read = {.kind = HistoryRead::Kind::foreign, .fault = "it is too large for the memory there is"};
  }
  if (read.kind != HistoryRead::Kind::whole) {
    try {
      aside_ = putAside(path_);
    } catch (std::system_error const& error) {
      keeping_ = false;
      fault_ = std::string("a file that is in the way cannot be put aside: ") + error.what();
    }
  }
  upToDate_ = read.kind == HistoryRead::Kind::whole && read.chunksLeftOut == 0;
  noteReadBack(read);
  // What was sound in it must not hang on this process.
  if (!aside_.empty() && read.records != 0) noteResult(attempt([this] { write(); }));
  found_ = std::move(read);
}

void HistoryKeeper::noteReadBack(HistoryRead const& read) const {
  note(LOG_INFO, Kes::format("history: %u records read back from %s", read.records, path_).str());
  if (!read.fault.empty()) {
    note(LOG_ERR, "history: " + path_ + ": " + read.fault +
                      (aside_.empty() ? "; it stays there" : "; it was put aside as " + aside_));
  }
  if (read.chunksLeftOut != 0) {
    note(LOG_WARNING,
         Kes::format("history: the pool holds %u chunks now; the oldest %u of those saved were left out",
                     recorder_->numSharedChunks(), read.chunksLeftOut)
             .str());
  }
  if (!keeping_) note(LOG_ERR, "history: nothing is kept: " + fault_);
}

void HistoryKeeper::start(EventLoop& loop, std::chrono::seconds interval, Changes changes) {
  loop_ = &loop;
  changes_ = std::move(changes);
  saved_ = changes_();
  if (interval == std::chrono::seconds(0) || !keeping_) return;
  FileDescriptor timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  timespec const every{static_cast<time_t>(interval.count()), 0};
  itimerspec const setting{every, every};
  if (!timer || ::timerfd_settime(timer.get(), 0, &setting, nullptr) != 0) throwErrno("timerfd");
  loop.add(timer.get(), EPOLLIN, [this](std::uint32_t) { handleTimer(); });
  timer_ = std::move(timer);
}

void HistoryKeeper::handleTimer() {
  std::uint64_t expirations = 0;
  if (::read(timer_.get(), &expirations, sizeof expirations) < 0 || child_) return;
  if (upToDate_ && changes_() == saved_ && ::access(path_.c_str(), F_OK) == 0) return;
  try {
    startChild();
  } catch (std::system_error const& error) {
    noteResult(error.code().value());
  }
}

void HistoryKeeper::startChild() {
  pid_t const agent = ::getpid();
  writing_ = changes_();
  auto child = std::make_unique<ChildProcess>([this, agent] {
    leaveTheAgent(childLimit);
    // What a later agent has read back must not be replaced by what an earlier one had.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != agent) return failedOtherwise;
    return attempt([this] { write(); });
  });
  loop_->add(child->fd(), EPOLLIN, [this](std::uint32_t) { handleChildEnd(); });
  child_ = std::move(child);
}

void HistoryKeeper::handleChildEnd() {
  loop_->remove(child_->fd());
  int const status = std::exchange(child_, nullptr)->await();
  noteResult(WIFEXITED(status) ? WEXITSTATUS(status) : failedOtherwise);
}

void HistoryKeeper::write() const {
  replaceFile(path_, path_ + ".new", 0640,
              [this](std::FILE* out) { writeHistory(*recorder_, ledger_, out); });
}

void HistoryKeeper::noteResult(int reason) {
  if (reason == 0) {
    ++written_;
    saved_ = writing_;
    upToDate_ = true;
    fault_.clear();
    return;
  }
  ++failed_;
  bool const isFirst = fault_.empty();
  fault_ = reasonOf(reason);
  if (isFirst) note(LOG_ERR, "history: " + path_ + " could not be written: " + fault_);
}

void HistoryKeeper::finish() {
  if (!keeping_) return;
  if (child_) {
    loop_->remove(child_->fd());
    child_.reset();
  }
  writing_ = changes_();
  if (upToDate_ && writing_ == saved_ && ::access(path_.c_str(), F_OK) == 0) return;
  noteResult(attempt([this] { write(); }));
}

std::string HistoryKeeper::Status::text() const {
  std::string text = keeping ? Kes::format("history: kept in %s; written %u times, failed %u times%s%s", path,
                                           written, failed, fault.empty() ? "" : "; the last: ", fault)
                                   .str()
                             : "history: not kept: " + fault;
  if (!found.fault.empty()) {
    text += "\nhistory found at the start: " + found.fault +
            "\nlost and not counted: what stood behind that; " +
            (aside.empty() ? "the file stays" : "put aside as " + aside);
  }
  return text;
}

}  // namespace Agent
