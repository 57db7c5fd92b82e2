// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/CommandServer.h"

#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <syslog.h>

#include <algorithm>
#include <array>

#include "Kes/Format.h"
#include "agent/base/Failures.h"
#include "agent/base/Journal.h"
#include "agent/base/Protocol.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How often it is looked whose time is over, while there are clients.
constexpr timespec timerInterval{0, 50'000'000};

// What a follower is sent in one turn, so that others' turns come soon.
constexpr std::size_t linesATurn = 256;

constexpr std::string_view tooLong = "the request is longer than 4096 bytes";
constexpr std::string_view notText = "the request holds control characters";
constexpr std::string_view tooSlow = "no whole request line arrived in time";
constexpr std::string_view tooCrowded = "there are too many connections; try again later";
constexpr std::string_view tooManyFollow = "there are too many clients that follow";
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

// Who may always ask, and owns what is recorded.
bool isTrusted(uid_t user) { return user == 0 || user == ::geteuid(); }

bool isStranger(uid_t user) { return !isTrusted(user); }
bool isAnybody(uid_t) { return true; }

template <class... Holders>
std::size_t placesOf(uid_t user, Holders const&... holders) {
  auto const isOwn = [user](auto const& holder) { return holder.user == user; };
  return static_cast<std::size_t>((std::count_if(holders.begin(), holders.end(), isOwn) + ...));
}

// Whether `user` may have one more of the places that `holders` have taken.
template <class... Holders>
bool isFree(CommandServer::Places const& places, uid_t user, Holders const&... holders) {
  std::size_t const taken = (holders.size() + ...);
  if (isTrusted(user)) return taken < places.all;
  return taken + places.kept < places.all && placesOf(user, holders...) < places.each;
}

bool hasSentSomething(int socket) {
  int bytes = 0;
  return ::ioctl(socket, FIONREAD, &bytes) != 0 || bytes > 0;
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
                             OwnRequestHandler ownRequests, InterfaceNames interfaces, Limits limits)
    : outer_(loop),
      recorder_(std::move(recorder)),
      ownRequests_(std::move(ownRequests)),
      interfaces_(std::move(interfaces)),
      limits_(limits),
      listener_(std::move(path)),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (!timer_) throwErrno("timerfd_create");
  loop_.add(timer_.get(), EPOLLIN, [this](std::uint32_t) { handleTimer(); });
  loop_.add(listener_.fd(), EPOLLIN, [this](std::uint32_t) { handleNewcomers(); });
  outer_.add(loop_.fd(), EPOLLIN, [this](std::uint32_t) { loop_.serveOne(); });
}

CommandServer::~CommandServer() {
  for (Client next = followers_.begin(); next != followers_.end();) {
    Client const client = next++;
    attempt(client, [&] { sendLines(client); });
  }
  outer_.remove(loop_.fd());
}

CommandServer::Status CommandServer::status() const {
  auto const isWaiting = [](Connection const& client) { return client.state == State::waiting; };
  auto const waiting = std::count_if(clients_.begin(), clients_.end(), isWaiting);
  return {.connected = clients_.size() + reporting_.size() + followers_.size(),
          .waiting = static_cast<std::uint64_t>(waiting),
          .reporting = reporting_.size(),
          .following = followers_.size(),
          .requests = requests_,
          .reports = reports_,
          .refused = refused_,
          .dropped = evicted_,
          .skipped = skipped_};
}

std::string CommandServer::Status::text() const {
  return Kes::format(
             "clients: %u connected, %u wait for a report, %u get one, %u follow, "
             "who have missed %u records\n"
             "clients so far: %u requests, %u reports, %u refused, %u silent ones dropped",
             connected, waiting, reporting, following, skipped, requests, reports, refused, dropped)
      .str();
}

// A step in the life of a client, which if it throws has not forgotten the client: that is what it costs.
template <class Step>
void CommandServer::attempt(Client client, Step step) noexcept {
  try {
    step();
  } catch (std::exception const& error) {
    countFailure(error);
    drop(client);
  }
}

void CommandServer::handleNewcomers() {
  // Newcomers stay in the backlog until a client has left, or a moment has passed; but one may be of those
  // who can take a silent client's place.
  bool const isFull = clients_.size() + reporting_.size() >= limits_.connections.all;
  if (isFull && !dropSilent(isStranger) && findSilent(isAnybody) == clients_.end()) return listenAgain(false);
  FileDescriptor socket(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!socket) {
    bool const exhausted = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (exhausted && !dropSilent(isStranger)) listenAgain(false);
    return;
  }
  uid_t const user = userBehind(socket.get());
  if (!makeRoomFor(user)) return refuse(socket.get(), user);
  Client const client =
      clients_.insert(clients_.end(), Connection{.socket = std::move(socket), .user = user});
  attempt(client, [this, client] {
    loop_.add(client->socket.get(), EPOLLIN,
              [this, client](std::uint32_t events) { handleClient(client, events); });
    enter(client, State::requesting, limits_.request);
  });
}

bool CommandServer::makeRoomFor(uid_t user) {
  if (isFree(limits_.connections, user, clients_, reporting_)) return true;
  bool const ownLimit = placesOf(user, clients_, reporting_) >= limits_.connections.each;
  return dropSilent(
      [&](uid_t other) { return ownLimit ? other == user : isTrusted(user) || !isTrusted(other); });
}

// Ends the connection of a client, of a user who may lose one, that has had time to ask and has not. One
// whose line has come and was not read yet is no silent one.
template <class MayLose>
bool CommandServer::dropSilent(MayLose mayLose) {
  Client const silent = findSilent(mayLose);
  if (silent == clients_.end()) return false;
  ++evicted_;
  drop(silent);
  return true;
}

template <class MayLose>
CommandServer::Client CommandServer::findSilent(MayLose mayLose) {
  Instant const latest = steady_clock::now() + limits_.request - limits_.silence;
  auto const isSilent = [&](Connection const& client) {
    return client.state == State::requesting && client.deadline <= latest && client.text.empty() &&
           mayLose(client.user) && !hasSentSomething(client.socket.get());
  };
  return std::find_if(clients_.begin(), clients_.end(), isSilent);
}

// In words. Who has not said yet whether it wants a verdict is taken for a vorn-show.
void CommandServer::refuse(int socket, uid_t user) {
  ++refused_;
  std::array<char, Protocol::checkedWord.size() + 1> begin;
  ssize_t const got = ::recv(socket, begin.data(), begin.size(), MSG_DONTWAIT);
  std::string request(begin.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  bool const checked = got <= 0 || takeCheckedWord(request);
  bool const ownLimit = placesOf(user, clients_, reporting_) >= limits_.connections.each;
  std::string const reason =
      ownLimit ? Kes::format("user %u has too many connections", user).str() : std::string(tooCrowded);
  std::string const answer = answerFor(checked, "", reason);
  // Who does not take it now goes without it.
  if (::send(socket, answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) return;
}

void CommandServer::listenAgain(bool on) {
  if (on == listening_) return;
  listening_ = on;
  loop_.modify(listener_.fd(), on ? std::uint32_t{EPOLLIN} : 0);
  timerIs(true);
}

// What has been sent is read even of one that has hung up. One that has only ended its sending (EPOLLRDHUP)
// still reads.
void CommandServer::handleClient(Client client, std::uint32_t events) {
  attempt(client, [&] {
    client->hungUp = (events & (EPOLLHUP | EPOLLERR)) != 0;
    if (client->state == State::requesting && (events & EPOLLIN) != 0) {
      readRequest(client);
    } else if (client->hungUp) {
      drop(client);
    } else if (client->state == State::answering) {
      sendRest(client);
    } else if (client->state == State::following) {
      sendLines(client);
    }
  });
}

void CommandServer::readRequest(Client client) {
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
  if (got == 0 && (client->text.empty() || client->hungUp)) {
    drop(client);  // a line that was cut off may not be what was meant
  } else if (ended || client->text.size() > Protocol::maxRequestBytes) {
    takeRequest(client);
  }
}

void CommandServer::takeRequest(Client client) {
  ++requests_;
  std::string& request = client->text;
  if (request.ends_with('\r')) request.pop_back();
  bool const fits = request.size() <= Protocol::maxRequestBytes;
  client->checked = takeCheckedWord(request);
  if (!fits) return finish(client, "", tooLong);
  if (std::any_of(request.begin(), request.end(), isControl)) return finish(client, "", notText);
  if (Protocol::requestIn(request) == Protocol::followRequest) return follow(client);
  if (std::optional<Answer> answer = ownRequests_(request, client->user)) {
    if (!answer->writer) return finish(client, std::move(answer->text), answer->failure);
    client->writer = std::move(answer->writer);
  }
  if (client->hungUp) return drop(client);  // not worth a process
  loop_.modify(client->socket.get(), 0);    // only its going away is of interest now
  enter(client, State::waiting, limits_.turn);
  startNextReport();
}

// One a call, since a fork takes its time. Turns go to the user whose last one is longest ago.
void CommandServer::startNextReport() {
  Client next = clients_.end();
  for (Client client = clients_.begin(); client != clients_.end(); ++client) {
    if (client->state != State::waiting || !isFree(limits_.reports, client->user, reporting_)) continue;
    if (next == clients_.end() || client->turn < next->turn) next = client;
  }
  if (next == clients_.end()) return;
  ++reports_;
  for (Connection& other : clients_)
    if (other.user == next->user) other.turn = reports_;
  attempt(next, [&] { startReport(next); });
}

void CommandServer::startReport(Client client) {
  try {
    client->child = std::make_unique<ReportChild>(recorder_, client->socket.get(), client->text,
                                                  client->writer, interfaces_, limits_.report);
  } catch (std::system_error const& error) {
    countFailure(error);
    return finish(client, "", "no process for the report can be had");
  }
  client->state = State::reporting;
  reporting_.splice(reporting_.end(), clients_, client);
  try {
    loop_.add(client->child->fd(), EPOLLIN, [this, client](std::uint32_t) { handleReportEnd(client); });
  } catch (...) {
    clients_.splice(clients_.end(), reporting_, client);
    client->child.reset();
    throw;
  }
}

void CommandServer::handleReportEnd(Client client) {
  loop_.remove(client->child->fd());
  std::unique_ptr<ReportChild> const child = std::move(client->child);
  clients_.splice(clients_.end(), reporting_, client);
  attempt(client, [&] {
    std::string const failure = child->failure();
    if (client->state == State::abandoned) return drop(client);
    bool const inText = !client->checked && !failure.empty();
    finish(client, inText ? "\n" : "", failure);  // the report may have ended within a line
  });
  startNextReport();
}

void CommandServer::finish(Client client, std::string body, std::string_view failure) {
  client->text = answerFor(client->checked, std::move(body), failure);
  enter(client, State::answering, limits_.verdict);
  sendRest(client);
}

// As much as the socket takes at once. False: it takes nothing any more, and the client has been forgotten.
bool CommandServer::sendText(Client client) {
  std::string& rest = client->text;
  if (rest.empty()) return true;
  ssize_t const sent = ::send(client->socket.get(), rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0 && errno != EAGAIN && errno != EINTR) {
    drop(client);
    return false;
  }
  if (sent > 0) rest.erase(0, static_cast<std::size_t>(sent));
  return true;
}

void CommandServer::sendRest(Client client) {
  if (!sendText(client)) return;
  if (client->text.empty()) return drop(client);
  loop_.modify(client->socket.get(), EPOLLOUT);
}

void CommandServer::follow(Client client) {
  if (!isFree(limits_.followers, client->user, followers_)) return finish(client, "", tooManyFollow);
  if (!ring_) ring_.emplace();
  client->cursor = ring_->end();
  client->text = recordFieldNames();
  client->state = State::following;
  followers_.splice(followers_.end(), clients_, client);
  listenAgain(true);
  loop_.modify(client->socket.get(), EPOLLOUT);
}

void CommandServer::sendLines(Client client) {
  if (client->text.empty()) skipped_ += ring_->take(client->cursor, linesATurn, client->text);
  if (!sendText(client)) return;
  if (client->text.empty() && client->cursor == ring_->end()) loop_.modify(client->socket.get(), 0);
}

void CommandServer::handleClosed(RecordRow const& row) noexcept {
  if (!ring_) return;
  std::uint64_t const before = ring_->end();
  try {
    ring_->add(row);
  } catch (std::bad_alloc const& error) {
    countFailure(error);
  }
  for (Client next = followers_.begin(); next != followers_.end();) {
    Client const client = next++;
    // The others are waiting for their turn, or for their socket.
    if (client->cursor != before || !client->text.empty()) continue;
    attempt(client, [&] { loop_.modify(client->socket.get(), EPOLLOUT); });
  }
}

// Forgets the client; its connection remains without a socket until its child, if it has one, has ended.
void CommandServer::drop(Client client) noexcept {
  if (client->socket) loop_.remove(client->socket.get());
  client->socket.reset();
  if (client->child) {
    client->child->kill();
    client->state = State::abandoned;
  } else if (client->state == State::following) {
    followers_.erase(client);
    if (followers_.empty()) ring_.reset();
  } else {
    clients_.erase(client);
    listenAgain(true);
  }
}

void CommandServer::enter(Client client, State state, milliseconds limit) {
  client->state = state;
  client->deadline = steady_clock::now() + limit;
  timerIs(true);
}

void CommandServer::handleTimer() {
  std::uint64_t expirations = 0;
  if (::read(timer_.get(), &expirations, sizeof expirations) < 0) return;
  listenAgain(true);
  Instant const now = steady_clock::now();
  for (Client next = clients_.begin(); next != clients_.end();) {
    Client const client = next++;
    if (client->deadline <= now) attempt(client, [&] { handleDeadline(client); });
  }
  startNextReport();
  if (clients_.empty()) timerIs(false);
}

void CommandServer::handleDeadline(Client client) {
  if (client->state == State::answering) return drop(client);
  bool const isLate = client->state == State::requesting;
  if (isLate) client->checked = takeCheckedWord(client->text);
  finish(client, "", isLate ? tooSlow : tooBusy);
}

void CommandServer::timerIs(bool on) {
  if (on == timing_) return;
  itimerspec const setting = on ? itimerspec{timerInterval, timerInterval} : itimerspec{};
  if (::timerfd_settime(timer_.get(), 0, &setting, nullptr) != 0) throwErrno("timerfd_settime");
  timing_ = on;
}

}  // namespace Agent
