// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Vorn/CongestionData.h"
#include "agent/base/EventLoop.h"
#include "agent/base/FileDescriptor.h"
#include "agent/base/UnixSocket.h"
#include "agent/record/RecordRow.h"
#include "agent/serve/FollowRing.h"
#include "agent/serve/ReportChild.h"

namespace Agent {

// Serves the agent's command socket (Protocol.h says what is spoken there) inside its event loop, where it
// takes one event a round, whoever many clients come at once.
//
// The agent never waits for a client: a request is collected and a verdict sent as far as the socket takes
// them at once, and a report is written by a child of its own (ReportChild.h). Nobody can shut others out:
//  - Connections and reports are limited, in all and for each user, and some of both are kept for root and
//    the user that the agent runs as, whom only the limits of all bind.
//  - A newcomer beyond a limit takes the place of a client that has been silent for a while and has sent
//    nothing; none of theirs, unless it is one of theirs. If there is none it is refused in plain words, or
//    waits in the socket's backlog where nobody at all may come in.
//  - Clients that follow have places of their own, no deadline, and each a cursor (FollowRing.h): a slow one
//    misses records, and holds nobody up.
//  - Requests for reports that find no room wait: users take turns, the requests of one in order of arrival.
//    They are refused when their turn has not come within the waiting limit.
// A client that goes away is forgotten at once and its child ended; a change that it has asked for by then is
// made all the same. What fails (no memory, a system call) costs the client at hand and is counted
// (Failures.h).
class CommandServer {
 public:
  struct Places {
    std::size_t all;
    std::size_t each;  // for one user
    std::size_t kept;  // of all, for root and the agent's own user
  };

  struct Limits {
    Places connections{1024, 320, 64};
    Places reports{5, 3, 1};
    Places followers{64, 16, 8};
    std::chrono::milliseconds silence{1'000};  // after which a silent client may lose its place
    std::chrono::milliseconds request{5'000};  // for the whole request line to arrive
    std::chrono::milliseconds turn{50'000};    // for a report to start
    std::chrono::milliseconds verdict{5'000};  // for an answer of the agent itself to be taken
    ReportChild::Limits report{};
  };

  // What the agent itself has to say to a request: a text at once, or why not, or what a child is to write.
  struct Answer {
    std::string text{};
    std::string failure{};  // empty: none
    ReportWriter writer{};  // null: none
  };

  // Answers what the agent serves itself, for the user who asks; nothing for a command that is a report. What
  // changes the recorder belongs here, since a child's changes are lost with it.
  using OwnRequestHandler = std::function<std::optional<Answer>(std::string const& request, uid_t client)>;

  // Listens at `path` (UnixSocket.h says when that is refused) from now until destruction, which ends all
  // children and closes all connections; followers are sent before what their sockets take at once. `loop`
  // outlives the server. A report for interfaces of which one is neither recorded nor among `interfaces`,
  // which is called in its child, comes with a failure. Throws std::runtime_error.
  CommandServer(EventLoop& loop, std::string path, Vorn::CongestionData::Ptr recorder,
                OwnRequestHandler ownRequests, InterfaceNames interfaces, Limits limits);
  ~CommandServer();
  CommandServer(CommandServer const&) = delete;
  CommandServer& operator=(CommandServer const&) = delete;

  // A burst has closed: who follows is sent its record, when the loop gets to it.
  void handleClosed(RecordRow const& row) noexcept;

  // From now on. Clients that are more than these allow keep what they have.
  void limitsAre(Limits const& limits) { limits_ = limits; }

  // Clients now, and so far.
  struct Status {
    std::uint64_t connected = 0;
    std::uint64_t waiting = 0;    // for a report
    std::uint64_t reporting = 0;  // get one
    std::uint64_t following = 0;
    std::uint64_t requests = 0;
    std::uint64_t reports = 0;
    std::uint64_t refused = 0;
    std::uint64_t dropped = 0;  // silent ones
    std::uint64_t skipped = 0;  // records that followers missed

    // Two lines for people, without the last newline.
    std::string text() const;
  };
  Status status() const;

 private:
  using Instant = std::chrono::steady_clock::time_point;

  // In the order of a connection's life, which either waits or follows. `abandoned`: its client is gone, its
  // child about to end.
  enum class State : std::uint8_t { requesting, waiting, reporting, following, answering, abandoned };

  struct Connection {
    FileDescriptor socket;
    uid_t user;
    State state = State::requesting;
    bool checked = false;   // asked for the verdict
    bool hungUp = false;    // takes no answer any more
    std::string text{};     // the request; once following or answering, what is still to be sent
    ReportWriter writer{};  // of what the agent itself has to say; null: a report of the recorder's
    Instant deadline{};
    std::uint64_t turn = 0;  // which report its user has got last while this one waited
    std::unique_ptr<ReportChild> child{};
    std::uint64_t cursor = 0;  // of one that follows
  };
  using Connections = std::list<Connection>;
  using Client = Connections::iterator;

  void handleNewcomers();
  bool makeRoomFor(uid_t user);
  template <class MayLose>
  bool dropSilent(MayLose mayLose);
  template <class MayLose>
  Client findSilent(MayLose mayLose);
  void refuse(int socket, uid_t user);
  void listenAgain(bool on);
  void handleClient(Client client, std::uint32_t events);
  void readRequest(Client client);
  void takeRequest(Client client);
  void startNextReport();
  void startReport(Client client);
  void handleReportEnd(Client client);
  void finish(Client client, std::string body, std::string_view failure);
  bool sendText(Client client);
  void sendRest(Client client);
  void follow(Client client);
  void sendLines(Client client);
  void drop(Client client) noexcept;
  void enter(Client client, State state, std::chrono::milliseconds limit);
  void handleTimer();
  void handleDeadline(Client client);
  void timerIs(bool on);
  template <class Step>
  void attempt(Client client, Step step) noexcept;

  EventLoop& outer_;
  EventLoop loop_;  // of the clients
  Vorn::CongestionData::Ptr recorder_;
  OwnRequestHandler ownRequests_;
  InterfaceNames interfaces_;
  Limits limits_;
  ServerSocket listener_;
  FileDescriptor timer_;
  Connections clients_;    // without a child, in order of arrival but for those whose child has ended
  Connections reporting_;  // with a child
  Connections followers_;
  std::optional<FollowRing> ring_;  // while there are followers
  bool listening_ = true;
  bool timing_ = false;
  std::uint64_t requests_ = 0;
  std::uint64_t reports_ = 0;
  std::uint64_t refused_ = 0;
  std::uint64_t evicted_ = 0;
  std::uint64_t skipped_ = 0;
};

}  // namespace Agent
