#include "agent/serve/CommandServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <syslog.h>

#include <algorithm>
#include <array>

#include "agent/base/Journal.h"
#include "agent/base/Protocol.h"

namespace Agent {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds pause{200};  // of listening, while there is no room

constexpr std::string_view tooLong = "the request is longer than 4096 bytes";
constexpr std::string_view notText = "the request holds control characters";
constexpr std::string_view tooSlow = "no whole request line arrived in time";
constexpr std::string_view tooBusy = "too many reports are being written; try again later";

bool isControl(char byte) { return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f; }

// Takes the word that asks for the verdict off the request, if it stands there.
bool takeCheckedWord(std::string& request) {
  std::string_view const word = Protocol::checkedWord;
  if (!request.starts_with(word)) return false;
  if (request.size() > word.size() && request[word.size()] != ' ') return false;
  request.erase(0, word.size() + 1);
  return true;
}

// Who connected: told by the kernel.
uid_t userBehind(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) throwErrno("SO_PEERCRED");
  return peer.uid;
}

std::string answerFor(bool checked, std::string body, std::string_view failure) {
  if (checked) {
    body += Protocol::verdictMark;
    body.append(failure.empty() ? Protocol::wholeVerdict : failure) += '\n';
  } else if (!failure.empty()) {
    body.append("error: ").append(failure) += '\n';
  }
  return body;
}

}  // namespace

CommandServer::CommandServer(EventLoop& loop, std::string path, Vorn::CongestionData::Ptr recorder,
                             OwnRequestHandler ownRequests, Limits limits)
    : loop_(loop),
      recorder_(std::move(recorder)),
      ownRequests_(std::move(ownRequests)),
      limits_(limits),
      listener_(std::move(path)),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (!timer_) throwErrno("timerfd_create");
  loop_.add(timer_.get(), EPOLLIN, [this](std::uint32_t) { handleDeadlines(); });
  listenAgain(true);
}

CommandServer::~CommandServer() {
  for (Connection& client : clients_) {
    if (client.child) loop_.remove(client.child->fd());
    if (client.socket) loop_.remove(client.socket.get());
  }
  listenAgain(false);
  loop_.remove(timer_.get());
}

void CommandServer::listenAgain(bool on) {
  if (on == listening_) return;
  listening_ = on;
  if (on) {
    loop_.add(listener_.fd(), EPOLLIN, [this](std::uint32_t) { handleNewcomers(); });
  } else {
    loop_.remove(listener_.fd());
  }
}

// One newcomer a call, so that a crowd of them cannot keep the loop from its other work.
void CommandServer::handleNewcomers() {
  if (clients_.size() >= limits_.connections && !makeRoom()) return pauseListening();
  FileDescriptor socket(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket) {
    bool const exhausted = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (exhausted && !makeRoom()) pauseListening();
    return;
  }
  Member const client = clients_.emplace(clients_.end());
  client->socket = std::move(socket);
  loop_.add(client->socket.get(), EPOLLIN,
            [this, client](std::uint32_t events) { handleClient(client, events); });
  enter(client, State::requesting, limits_.request);
}

// Newcomers stay in the backlog until a client has left, or a moment has passed.
void CommandServer::pauseListening() {
  listenAgain(false);
  armTimer();
}

bool CommandServer::makeRoom() {
  auto const silent = std::find_if(clients_.begin(), clients_.end(), [](Connection const& client) {
    return client.state == State::requesting;
  });
  if (silent == clients_.end()) return false;
  drop(silent);
  return true;
}

// One that has only ended its sending (EPOLLRDHUP) still reads; one that has hung up is not worth a process,
// even if its request is there.
void CommandServer::handleClient(Member client, std::uint32_t events) {
  if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
    drop(client);
  } else if (client->state == State::requesting) {
    readRequest(client);
  } else if (client->state == State::answering) {
    sendRest(client);
  }
}

void CommandServer::readRequest(Member client) {
  std::array<char, Protocol::maxRequestBytes + 2> buffer;
  ssize_t const got = ::recv(client->socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (got < 0) {
    if (errno != EAGAIN && errno != EINTR) drop(client);
    return;
  }
  std::string_view const news(buffer.data(), static_cast<std::size_t>(got));
  std::size_t const lineEnd = news.find('\n');
  client->text.append(news.substr(0, lineEnd));
  bool const ended = got == 0 || lineEnd != std::string_view::npos;
  if (got == 0 && client->text.empty()) {
    drop(client);
  } else if (ended || client->text.size() > Protocol::maxRequestBytes) {
    takeRequest(client);
  }
}

void CommandServer::takeRequest(Member client) {
  std::string& request = client->text;
  if (request.ends_with('\r')) request.pop_back();
  bool const fits = request.size() <= Protocol::maxRequestBytes;
  client->checked = takeCheckedWord(request);
  if (!fits) return finish(client, "", tooLong);
  if (std::any_of(request.begin(), request.end(), isControl)) return finish(client, "", notText);
  if (std::optional<Answer> answer = ownRequests_(request, userBehind(client->socket.get()))) {
    if (!answer->writer) return finish(client, std::move(answer->text), answer->failure);
    client->writer = std::move(answer->writer);
  }
  loop_.modify(client->socket.get(), 0);  // only its going away is of interest now
  enter(client, State::waiting, limits_.turn);
  startReports();
}

void CommandServer::startReports() {
  for (Member next = clients_.begin(); next != clients_.end() && reporting_ < limits_.reports;) {
    Member const client = next++;
    if (client->state == State::waiting) startReport(client);
  }
}

void CommandServer::startReport(Member client) {
  try {
    client->child = std::make_unique<ReportChild>(recorder_, client->socket.get(), client->text,
                                                  client->writer, limits_.report);
  } catch (std::system_error const& error) {
    note(LOG_WARNING, std::string("no process for a report: ") + error.what());
    return finish(client, "", "no process for the report can be had");
  }
  ++reporting_;
  client->state = State::reporting;
  loop_.add(client->child->fd(), EPOLLIN, [this, client](std::uint32_t) { handleReportEnd(client); });
}

void CommandServer::handleReportEnd(Member client) {
  loop_.remove(client->child->fd());
  std::string const failure = client->child->failure();
  client->child.reset();
  --reporting_;
  if (client->state == State::abandoned) {
    drop(client);
  } else {
    bool const inText = !client->checked && !failure.empty();
    finish(client, inText ? "\n" : "", failure);  // the report may have ended within a line
  }
  startReports();
}

void CommandServer::finish(Member client, std::string body, std::string_view failure) {
  client->text = answerFor(client->checked, std::move(body), failure);
  enter(client, State::answering, limits_.verdict);
  sendRest(client);
}

void CommandServer::sendRest(Member client) {
  std::string& rest = client->text;
  if (!rest.empty()) {
    ssize_t const sent = ::send(client->socket.get(), rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno != EAGAIN && errno != EINTR) return drop(client);
    if (sent > 0) rest.erase(0, static_cast<std::size_t>(sent));
  }
  if (rest.empty()) return drop(client);
  loop_.modify(client->socket.get(), EPOLLOUT);
}

// Forgets the client; its connection remains without a socket until its child, if it has one, has ended.
void CommandServer::drop(Member client) {
  if (client->socket) loop_.remove(client->socket.get());
  client->socket.reset();
  if (client->child) {
    client->child->kill();
    client->state = State::abandoned;
  } else {
    clients_.erase(client);
    listenAgain(true);
  }
}

void CommandServer::enter(Member client, State state, milliseconds limit) {
  client->state = state;
  client->deadline = steady_clock::now() + limit;
  armTimer();
}

// A report's time is limited by its child itself.
void CommandServer::handleDeadlines() {
  std::uint64_t expirations = 0;
  if (::read(timer_.get(), &expirations, sizeof expirations) < 0 && errno != EAGAIN) throwErrno("timerfd");
  Instant const now = steady_clock::now();
  listenAgain(true);
  for (Member next = clients_.begin(); next != clients_.end();) {
    Member const client = next++;
    if (client->deadline > now) continue;
    switch (client->state) {
      case State::requesting:
        client->checked = takeCheckedWord(client->text);
        finish(client, "", tooSlow);
        break;
      case State::waiting: finish(client, "", tooBusy); break;
      case State::answering: drop(client); break;
      case State::reporting:
      case State::abandoned: break;
    }
  }
  armTimer();
}

// Set to the earliest deadline; off when there is none.
void CommandServer::armTimer() {
  Instant earliest = listening_ ? Instant::max() : steady_clock::now() + pause;
  for (Connection const& client : clients_) {
    if (client.state != State::reporting && client.state != State::abandoned) {
      earliest = std::min(earliest, client.deadline);
    }
  }
  itimerspec when{};
  if (earliest != Instant::max()) {
    auto const sinceBoot = earliest.time_since_epoch();  // steady_clock and the timer share CLOCK_MONOTONIC
    auto const seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    when.it_value.tv_sec = seconds.count();
    when.it_value.tv_nsec = std::chrono::nanoseconds(sinceBoot - seconds).count();
  }
  if (::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &when, nullptr) != 0) throwErrno("timerfd_settime");
}

}  // namespace Agent
