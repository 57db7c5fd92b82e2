// SPDX-License-Identifier: Apache-2.0
#include "agent/show/Follow.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/query/QueryReport.h"
#include "agent/query/RecordFilter.h"
#include "agent/record/LocalZone.h"
#include "agent/record/RecordColumns.h"
#include "agent/show/FollowReader.h"

namespace Agent {

namespace {

using Kind = AnswerEnd::Kind;

constexpr int retryMilliseconds = 500;

void writeJsonLine(std::FILE* out, RecordRow const& row) {
  JsonStream json(out);
  writeObject(json, recordColumns, row);
}

// Lines in one of the forms, until they are shown.
class Lines {
 public:
  Lines(Query const& query, Output const& output) : form_(query.form), view_(viewOf(query)), output_(output) {
    if (form_ == Query::Form::text) text_ = recordTitles(view_);
    if (form_ == Query::Form::csv) text_ = recordFieldNames();
  }

  void add(RecordRow const& row) {
    char* bytes = nullptr;
    std::size_t size = 0;
    std::FILE* const out = ::open_memstream(&bytes, &size);
    if (out == nullptr) throw std::bad_alloc();
    switch (form_) {
      case Query::Form::csv: writeCsvLine(out, row); break;
      case Query::Form::json: writeJsonLine(out, row); break;
      default: writeTextLine(out, row, view_);
    }
    std::fclose(out);
    std::unique_ptr<char, decltype(&std::free)> const owner(bytes, &std::free);
    text_.append(bytes, size);
  }

  void show() {
    if (!text_.empty()) output_(text_);
    text_.clear();
  }

 private:
  Query::Form const form_;
  unsigned const view_;
  Output const& output_;
  std::string text_;
};

class Following {
 public:
  Following(Query const& query, FollowPlace const& place)
      : query_(query), place_(place), filter_(query, /*now=*/0), lines_(query, place.output) {}

  AnswerEnd run() {
    for (;;) {
      std::optional<AnswerEnd> end;
      try {
        end = followOne();
      } catch (std::system_error const& error) {
        if (!wasThere_) return {Kind::noAnswer, std::string("cannot reach the agent: ") + error.what()};
      } catch (FollowError const& error) {
        lines_.show();
        end = AnswerEnd{Kind::broken, error.what()};
      }
      if (end) return *end;
      if (std::exchange(isThere_, false)) place_.remark("the agent has ended; waiting for it to come back");
      if (readerLeaves(-1, retryMilliseconds)) return {Kind::whole};
    }
  }

 private:
  // Follows one agent; nothing when that has ended.
  std::optional<AnswerEnd> followOne() {
    FileDescriptor const socket = place_.connect();
    std::string const request =
        std::string(Protocol::checkedWord) + ' ' + std::string(Protocol::followRequest) + '\n';
    if (::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0 && errno != EPIPE)
      throwErrno("sending the request");
    FollowReader reader({.record = [this](RecordRow const& row) { handleRecord(row); },
                         .skipped = [this](Kes::U64 count) { handleSkipped(count); }});
    std::array<char, 65536> block;
    for (;;) {
      // An agent that takes no request is waited for as long as the socket has it.
      if (reader.begun() && readerLeaves(socket.get(), /*milliseconds=*/-1)) return AnswerEnd{Kind::whole};
      ssize_t const got = ::recv(socket.get(), block.data(), block.size(), 0);
      if (got < 0 && (errno == EINTR || (errno == EAGAIN && reader.begun()))) continue;
      if (got < 0 && errno != ECONNRESET && !reader.begun()) throwErrno("waiting for records");
      if (got <= 0) break;
      reader.take({block.data(), static_cast<std::size_t>(got)});
      if (!reader.begun()) continue;
      handleAgent();
      lines_.show();
      if (isDone()) return AnswerEnd{Kind::whole};
    }
    if (!reader.verdict().empty())
      return AnswerEnd{Kind::refused, "the agent says: " + printable(reader.verdict())};
    if (wasThere_) return std::nullopt;
    return AnswerEnd{Kind::broken, "the agent closed the connection without an answer"};
  }

  bool isDone() const { return query_.count && shown_ == *query_.count; }

  void handleAgent() {
    if (std::exchange(isThere_, true)) return;
    if (std::exchange(wasThere_, true))
      place_.remark("the agent is back; what it recorded meanwhile is in its history");
  }

  void handleRecord(RecordRow const& row) {
    if (isDone() || !filter_.holdsInterface(std::string(row.interface)) || !filter_.holdsFigures(row)) return;
    lines_.add(row);
    ++shown_;
  }

  void handleSkipped(Kes::U64 count) {
    if (isDone()) return;
    lines_.show();
    place_.remark(std::to_string(count) + (count == 1 ? " record skipped" : " records skipped"));
  }

  // Waits until the socket has something, or for so long; true once the reader has hung up.
  bool readerLeaves(int socket, int milliseconds) const {
    std::array<pollfd, 2> both = {pollfd{place_.reader, 0, 0}, pollfd{socket, POLLIN, 0}};
    ::poll(both.data(), both.size(), milliseconds);
    return (both[0].revents & (POLLERR | POLLHUP)) != 0;
  }

  Query const& query_;
  FollowPlace const& place_;
  RecordFilter filter_;
  Lines lines_;
  Kes::U32 shown_ = 0;
  bool isThere_ = false;   // an agent that is followed
  bool wasThere_ = false;  // was once
};

}  // namespace

AnswerEnd followRecords(Query const& query, FollowPlace const& place) {
  if (query.utc) LocalZone::ofReports() = LocalZone::utc();
  return Following(query, place).run();
}

}  // namespace Agent
