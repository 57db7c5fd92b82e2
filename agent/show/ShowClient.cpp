// SPDX-License-Identifier: Apache-2.0
#include "agent/show/ShowClient.h"

#include <sys/socket.h>

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <string_view>
#include <system_error>
#include <vector>

#include "agent/base/FileDescriptor.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/base/UnixSocket.h"
#include "agent/show/PrintableOutput.h"

namespace Agent {

namespace {

constexpr std::size_t blockBytes = 65536;

void sendRequest(int socket, std::string const& request) {
  std::string const line = std::string(Protocol::checkedWord) + ' ' + request + '\n';
  for (std::string_view rest = line; !rest.empty();) {
    ssize_t const sent = ::send(socket, rest.data(), rest.size(), MSG_NOSIGNAL);
    // Who hangs up on us may have said why before.
    if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) return;
    if (sent < 0 && errno != EINTR) throwErrno("sending the request");
    if (sent > 0) rest.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// 0 at the end of the answer, however the connection ended. Silence throws EAGAIN.
std::size_t receive(int socket, std::vector<char>& block) {
  for (;;) {
    ssize_t const got = ::recv(socket, block.data(), block.size(), 0);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno == EINTR) continue;
    if (errno == ECONNRESET) return 0;
    throwErrno("waiting for the report");
  }
}

// What the agent sends, taken off the socket as fast as it comes and kept until it is asked for: the agent
// gives a report a limited time, and whoever reads ours (a pager) may take for ever.
class Answer {
 public:
  explicit Answer(int socket)
      : socket_(socket), reader_(std::async(std::launch::async, [this] { read(); })) {}
  Answer(Answer const&) = delete;
  Answer& operator=(Answer const&) = delete;
  ~Answer() { ::shutdown(socket_, SHUT_RDWR); }

  // The next piece; empty at the end. Throws std::system_error when reading fails, EAGAIN for silence.
  std::string next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return ended_ || !pieces_.empty(); });
    if (pieces_.empty()) {
      if (reader_.valid()) reader_.get();
      return "";
    }
    std::string piece = std::move(pieces_.front());
    pieces_.pop_front();
    return piece;
  }

 private:
  void put(std::string piece, bool ended) {
    std::lock_guard const lock(mutex_);
    if (!piece.empty()) pieces_.push_back(std::move(piece));
    ended_ = ended;
    changed_.notify_one();
  }

  void read() {
    std::vector<char> block(blockBytes);
    try {
      while (std::size_t const got = receive(socket_, block))
        put(std::string(block.data(), got), /*ended=*/false);
    } catch (...) {
      put("", /*ended=*/true);
      throw;
    }
    put("", /*ended=*/true);
  }

  int const socket_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> pieces_;
  bool ended_ = false;
  std::future<void> reader_;  // last: the thread uses all of the above, and is awaited before they go
};

AnswerEnd endOf(std::string verdict, bool begun, bool silent) {
  using Kind = AnswerEnd::Kind;
  if (verdict.ends_with('\n')) {
    verdict.pop_back();
    if (verdict == Protocol::wholeVerdict) return {Kind::whole};
    return {Kind::refused, "the agent says: " + printable(verdict)};
  }
  if (!begun && silent) return {Kind::noAnswer, "the agent took the request and does not answer"};
  if (!begun) return {Kind::broken, "the agent closed the connection without an answer"};
  return {Kind::broken, silent ? "the agent fell silent: the report is not complete"
                               : "the connection broke: the report is not complete"};
}

}  // namespace

FileDescriptor connectToAgent(std::string& socketPath, int patienceSeconds) {
  std::string const own = Protocol::userSocketPath();
  auto const reach = [&](std::string const& path) {
    FileDescriptor socket = connectTo(path, patienceSeconds);
    socketPath = path;
    return socket;
  };
  if (!socketPath.empty()) return reach(socketPath);
  try {
    if (!own.empty()) return reach(own);
  } catch (std::system_error const& error) {
    if (error.code() == std::errc::resource_unavailable_try_again) throw;  // it is there, and too busy
  }
  return reach(Protocol::systemSocketPath);
}

AnswerEnd fetchReport(int socket, ShowCommand const& command, Output output) {
  PrintableOutput report(std::move(output), command.colour);
  sendRequest(socket, command.request);
  Answer answer(socket);
  bool begun = false;
  bool silent = false;
  bool inVerdict = false;
  std::string verdict;
  try {
    for (std::string piece; !(piece = answer.next()).empty(); begun = true) {
      std::string_view news = piece;
      if (!inVerdict) {
        std::size_t const mark = news.find(Protocol::verdictMark);
        report.take(news.substr(0, mark));
        inVerdict = mark != std::string_view::npos;
        news.remove_prefix(inVerdict ? mark + 1 : news.size());
      }
      verdict.append(news);
    }
  } catch (std::system_error const& error) {
    if (error.code() != std::errc::resource_unavailable_try_again) throw;
    silent = true;
  }
  report.finish();
  return endOf(std::move(verdict), begun, silent);
}

AnswerEnd fetchBytes(int socket, std::string const& request, std::string& bytes) {
  sendRequest(socket, request);
  Answer answer(socket);
  bool silent = false;
  try {
    for (std::string piece; !(piece = answer.next()).empty();) bytes += piece;
  } catch (std::system_error const& error) {
    if (error.code() != std::errc::resource_unavailable_try_again) throw;
    silent = true;
  }
  bool const begun = !bytes.empty();
  std::size_t const mark = bytes.rfind(Protocol::verdictMark);
  std::string verdict;
  if (mark != std::string::npos) {
    verdict = bytes.substr(mark + 1);
    bytes.resize(mark);
  }
  return endOf(std::move(verdict), begun, silent);
}

}  // namespace Agent
