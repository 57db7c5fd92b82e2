// SPDX-License-Identifier: Apache-2.0
#include "agent/base/SystemLog.h"

#include <sys/socket.h>

#include <ctime>
#include <exception>

#include "agent/base/Printable.h"
#include "agent/base/UnixSocket.h"

namespace Agent {

namespace {

constexpr std::size_t mostKept = 256;

// Less than any log daemon cuts off.
constexpr std::size_t longestText = 2048;

// What syslog(3) puts in front: "<30>Nov 24 07:15:56 vorn-agent[4711]: ".
std::string lineOf(int priority, std::string_view subject, std::string_view text) {
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  char time[32];
  std::size_t const size = std::strftime(time, sizeof time, "%b %e %T", &local);
  std::string line = '<' + std::to_string(priority) + '>';
  line.append(time, size).append(" vorn-agent[").append(std::to_string(::getpid())).append("]: ");
  if (!subject.empty()) line.append(subject).append(": ");
  return line.append(printable(text, longestText));
}

}  // namespace

SystemLog::SystemLog(std::string const& path)
    : address_(socketAddress(path)), socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (!socket_) throwErrno("socket");
}

void SystemLog::write(Kind kind, int priority, std::string_view subject, std::string_view text) noexcept {
  try {
    Line line{kind, lineOf(priority, subject, text)};
    if (kept_.empty() && send(line)) return;
    if (kept_.size() < mostKept) return kept_.push_back(std::move(line));
  } catch (std::exception const&) {  // no memory
  }
  ++counts_[kind].lost;
}

void SystemLog::offerKept() noexcept {
  while (!kept_.empty() && send(kept_.front())) kept_.pop_front();
}

// By name each time, so that a log daemon that was restarted is found.
bool SystemLog::send(Line const& line) noexcept {
  if (::sendto(socket_.get(), line.text.data(), line.text.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
               reinterpret_cast<sockaddr const*>(&address_), sizeof address_) < 0)
    return false;
  ++counts_[line.kind].sent;
  return true;
}

}  // namespace Agent
