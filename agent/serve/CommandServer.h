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
#include "agent/serve/ReportChild.h"

namespace Agent {

// Serves the agent's command socket (Protocol.h says what is spoken there) inside its event loop.
//
// The agent never waits for a client: a request is collected and a verdict sent as far as the socket takes
// them at once, and a report is written by a child of its own (ReportChild.h). No client can hold the others
// up for longer than the limits say:
//  - Connections: one more than that takes the place of the one that has kept silent longest. If none is
//    silent, newcomers wait in the socket's backlog.
//  - Reports: so many children at once; further requests wait their turn, in order of arrival, and are
//    refused when it has not come within the waiting limit.
// A client that goes away is forgotten at once and its child ended.
class CommandServer {
 public:
  struct Limits {
    std::size_t connections = 64;
    std::size_t reports = 4;
    std::chrono::milliseconds request{5'000};  // for the whole request line to arrive
    std::chrono::milliseconds turn{30'000};    // for a report to start
    std::chrono::milliseconds report{30'000};  // for a report to be written and taken
    std::chrono::milliseconds verdict{5'000};  // for an answer of the agent itself to be taken
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
  // children and closes all connections. `loop` outlives the server. Throws std::runtime_error.
  CommandServer(EventLoop& loop, std::string path, Vorn::CongestionData::Ptr recorder,
                OwnRequestHandler ownRequests, Limits limits);
  ~CommandServer();
  CommandServer(CommandServer const&) = delete;
  CommandServer& operator=(CommandServer const&) = delete;

 private:
  using Instant = std::chrono::steady_clock::time_point;

  // In the order of a connection's life. `abandoned`: its client is gone, its child about to end.
  enum class State : std::uint8_t { requesting, waiting, reporting, answering, abandoned };

  struct Connection {
    FileDescriptor socket;
    State state = State::requesting;
    bool checked = false;  // asked for the verdict
    std::string text;      // the request; once answering, what is still to be sent
    ReportWriter writer;   // of what the agent itself has to say; null: a report of the recorder's
    Instant deadline;
    std::unique_ptr<ReportChild> child;
  };
  using Member = std::list<Connection>::iterator;

  void listenAgain(bool on);
  void handleNewcomers();
  void pauseListening();
  bool makeRoom();
  void handleClient(Member client, std::uint32_t events);
  void readRequest(Member client);
  void takeRequest(Member client);
  void startReports();
  void startReport(Member client);
  void handleReportEnd(Member client);
  void finish(Member client, std::string body, std::string_view failure);
  void sendRest(Member client);
  void drop(Member client);
  void handleDeadlines();
  void armTimer();
  void enter(Member client, State state, std::chrono::milliseconds limit);

  EventLoop& loop_;
  Vorn::CongestionData::Ptr recorder_;
  OwnRequestHandler ownRequests_;
  Limits limits_;
  ServerSocket listener_;
  FileDescriptor timer_;
  std::list<Connection> clients_;  // in order of arrival
  std::size_t reporting_ = 0;      // children that have not been awaited
  bool listening_ = false;
};

}  // namespace Agent
