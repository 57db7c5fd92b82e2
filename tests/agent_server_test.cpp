#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <new>
#include <thread>

#include "agent/base/Failures.h"
#include "agent/base/SystemLog.h"
#include "agent/serve/CommandServer.h"
#include "agent/show/ShowClient.h"

namespace {

constexpr long forever = -1;

// What the test and its agent, two processes, both see.
struct Shared {
  std::atomic<long> allocationsLeft = forever;  // of the agent, before one fails
  std::atomic<int> changes = 0;                 // made by request
};
Shared* counted = nullptr;  // where allocations count: in the agent

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  bool const fails = counted != nullptr && counted->allocationsLeft.load() != forever &&
                     counted->allocationsLeft.fetch_sub(1) == 0;
  void* const memory = fails ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace Agent {
namespace {

using namespace std::chrono_literals;

struct TestEntry final : Vorn::Entry {
  using Entry::Entry;
  Kes::S32 dumpEntry(Kes::VoidPtr file, Kes::CharPtrConst time, Kes::CharPtrConst name, bool) const override {
    return std::fprintf(static_cast<std::FILE*>(file), "%s %s %0200d\n", time, name, 0) < 0 ? -1 : 0;
  }
  // A writer that fails breaks its report off.
  Kes::S32 dumpDrops(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst) const override { return -1; }
};

constexpr uid_t stranger = 65534;

// An agent without a source, in a process of its own: 100,000 records, whose report of 20 MB fits no buffer,
// and a name that it takes a second to match with a pattern.
class CommandServerTest : public testing::Test {
 protected:
  CommandServerTest() {
    path_ = testing::TempDir() + "vorn-agent-test." + std::to_string(::getpid());
    void* const memory =
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(memory, MAP_FAILED);
    shared_ = new (memory) Shared;
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    agent_ = ::fork();
    if (agent_ == 0) serve(ready[1]);
    ::close(ready[1]);
    char byte;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
  }
  ~CommandServerTest() override {
    int status = 0;
    ::kill(agent_, SIGKILL);
    ::waitpid(agent_, &status, 0);
    EXPECT_EQ(WTERMSIG(status), SIGKILL) << "the agent had ended before";
    ::unlink(path_.c_str());
    ::unlink((path_ + ".lock").c_str());
  }

  [[noreturn]] void serve(int ready) {
    auto const recorder = Kes::makePtr<Vorn::CongestionData>(
        Kes::makePtr<Vorn::Hardware::Status>(), Kes::makePtr<Vorn::Clock>(), Kes::makePtr<Vorn::Config>(),
        Kes::makePtr<Vorn::PortMetaDataDumper>());
    for (Kes::U32 i = 1; i <= 100'000; ++i) {
      recorder->doAddToLog(Pylo::IntfId("eth0"), Kes::makePtr<TestEntry>(i, Vorn::Microseconds(i)));
    }
    recorder->portDataIs(Pylo::IntfId(std::string(2'000'000, 'a')));
    EventLoop loop;
    CommandServer::Limits const limits{.connections{8, 4, 2},
                                       .reports{2, 1, 1},
                                       .silence = 100ms,
                                       .request = 500ms,
                                       .turn = 300ms,
                                       .verdict = 5s,
                                       .report{8s, 50ms}};
    std::optional<CommandServer> server;
    auto const own = [&](std::string const& request, uid_t) -> std::optional<CommandServer::Answer> {
      if (request.starts_with("set")) ++shared_->changes;
      if (request.starts_with("set")) return CommandServer::Answer{.text = "set\n"};
      if (request != "status") return std::nullopt;
      return CommandServer::Answer{.text = server->status() + '\n' + failureStatus() + '\n'};
    };
    server.emplace(
        loop, path_, recorder, own, [] { return std::vector<std::string>{"quiet0"}; }, limits);
    counted = shared_;
    if (::write(ready, "x", 1) == 1) loop.run();
    std::abort();
  }

  FileDescriptor connect() { return connectTo(path_, /*patienceSeconds=*/20); }
  // To an agent that may be failing just then.
  FileDescriptor tellIt(std::string const& bytes) {
    FileDescriptor socket = connect();
    bool const told = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0 || errno == EPIPE;
    EXPECT_TRUE(told);
    return socket;
  }
  FileDescriptor request(std::string const& bytes) {
    FileDescriptor socket = connect();
    EXPECT_EQ(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    return socket;
  }
  // What a bare client gets.
  static std::string rest(FileDescriptor const& socket) {
    std::string all;
    char block[65536];
    for (ssize_t got; (got = ::recv(socket.get(), block, sizeof block, 0)) > 0;) {
      all.append(block, static_cast<std::size_t>(got));
    }
    return all;
  }
  // What vorn-show gets: the number of records; what the agent says of the report.
  std::pair<std::size_t, std::string> show(std::string const& words) {
    std::string report;
    AnswerEnd const end =
        fetchReport(connect().get(), {words, {}}, [&](std::string_view bytes) { report += bytes; });
    std::size_t records = 0;
    for (std::size_t at = 0; (at = report.find(" eth0 ", at)) != std::string::npos; ++at) ++records;
    std::string const speaker = end.kind == AnswerEnd::Kind::refused ? "the agent says: " : "";
    EXPECT_TRUE(end.text.starts_with(speaker)) << end.text;
    return {records, end.text.substr(speaker.size())};
  }
  void expectHealthy() { EXPECT_EQ(show("-ieth0 -s7"), std::pair(std::size_t{7}, std::string())); }

  // How many files the agent has open.
  std::ptrdiff_t openFiles() const {
    std::filesystem::directory_iterator const open("/proc/" + std::to_string(agent_) + "/fd");
    return std::distance(begin(open), end(open));
  }
  // The same from a user who is neither root nor the agent's.
  FileDescriptor strangersRequest(std::string const& bytes) {
    EXPECT_EQ(::seteuid(stranger), 0);
    FileDescriptor socket = request(bytes);
    EXPECT_EQ(::seteuid(0), 0);
    return socket;
  }

  std::string path_;
  Shared* shared_;
  pid_t agent_;
};

TEST_F(CommandServerTest, Requests_getWholeReportsAndVerdicts) {
  EXPECT_EQ(show(""), std::pair(std::size_t{100'000}, std::string()));
  EXPECT_EQ(show("status").second, "");
  EXPECT_TRUE(rest(request("status\n")).starts_with("clients: 1 connected, 0 wait"));
  EXPECT_EQ(show("-d").second, "the report broke off");
  std::string const bare = rest(request("-s1\r\n"));
  EXPECT_TRUE(bare.starts_with("\nReport generated at ")) << bare;
  EXPECT_TRUE(bare.ends_with("0\n")) << bare;
  EXPECT_EQ(show("-ieth[0").second, "bad interface pattern: unmatched square bracket");
  EXPECT_EQ(show("-ieth0,eth1,eth2 -s1").second, "no interface matches eth1");
  EXPECT_EQ(show("-ieth0,quiet.").second, "") << "it is there and has no records";
  EXPECT_EQ(show("-i csv -a").second, "") << "no interface was named";
  EXPECT_EQ(show("-i(a*)*b").second, "the report's patterns took too long");
  EXPECT_NE(rest(request("-ieth(0\n")).find("error: bad interface pattern"), std::string::npos);
}

TEST_F(CommandServerTest, Nasty_requestsAreRefusedInPlainWords) {
  EXPECT_EQ(rest(request(std::string(5000, 'x'))), "error: the request is longer than 4096 bytes\n");
  EXPECT_EQ(rest(request("checked " + std::string(9000, 'x'))).substr(0, 5), std::string("\0the ", 5));
  EXPECT_EQ(rest(request(std::string("-s1\0-c\n", 7))), "error: the request holds control characters\n");
  EXPECT_EQ(rest(request("-s1")), "error: no whole request line arrived in time\n");
  EXPECT_TRUE(show("-i" + std::string(3000, '(')).second.starts_with("bad interface pattern"));
  EXPECT_EQ(rest(request("set 1\n")), "set\n");
  for (int i = 0; i < 20; ++i) request("set 1\n").reset();
  request("set 10").reset();  // perhaps of "set 100"
  expectHealthy();
  EXPECT_EQ(shared_->changes, 21) << "of one that closes at once";
  FileDescriptor const halfClosed = request("-s1");
  ::shutdown(halfClosed.get(), SHUT_WR);
  EXPECT_TRUE(rest(halfClosed).starts_with("\nReport"));
  expectHealthy();
}

TEST_F(CommandServerTest, Nasty_clientsNeitherStallNorKill) {
  auto const before = std::chrono::steady_clock::now();
  std::vector<FileDescriptor> silent;
  for (int i = 0; i < 200; ++i) silent.push_back(connect());
  expectHealthy();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 8s) << "the silent ones sat their time out";
  silent.clear();
  // Honest ones, more than there are places, lose none to each other.
  std::vector<FileDescriptor> crowd;
  for (int i = 0; i < 100; ++i) crowd.push_back(request("status\n"));
  for (FileDescriptor const& client : crowd) EXPECT_TRUE(rest(client).starts_with("clients: "));
  for (int i = 0; i < 20; ++i) {
    char begin[100];
    EXPECT_GT(::recv(request("\n").get(), begin, sizeof begin, 0), 0);  // and closes in the middle
  }
  expectHealthy();
  // Two that never read hold both places. A third waits its turn: until one of them goes away,
  FileDescriptor stalled[2] = {request("checked \n"), request("checked \n")};
  char byte;
  for (FileDescriptor const& client : stalled) ASSERT_EQ(::recv(client.get(), &byte, 1, 0), 1);
  FileDescriptor const third = request("-s1\n");
  EXPECT_EQ(show("status").second, "");  // the third has been read by now
  stalled[1].reset();
  EXPECT_TRUE(rest(third).starts_with("\nReport"));
  // or not for ever.
  stalled[1] = request("\n");
  ASSERT_EQ(::recv(stalled[1].get(), &byte, 1, 0), 1);
  EXPECT_EQ(rest(request("-s1\n")), "error: too many reports are being written; try again later\n");
  std::string const process = "/proc/" + std::to_string(agent_) + "/task/" + std::to_string(agent_);
  pid_t child = 0;
  std::ifstream(process + "/children") >> child;
  ASSERT_NE(child, 0);
  std::filesystem::directory_iterator const open("/proc/" + std::to_string(child) + "/fd");
  EXPECT_EQ(std::distance(begin(open), end(open)), 2) << "more than the client's socket and standard error";
  while (show("-s1").second != "") continue;
  EXPECT_TRUE(rest(stalled[0]).ends_with(std::string("\0the report took too long\n", 26)));
  expectHealthy();
}

TEST_F(CommandServerTest, Nobody_shutsOthersOut) {
  if (::geteuid() != 0) GTEST_SKIP() << "takes root to be two users";
  // One report of a user's at a time, and nobody else waits for it.
  FileDescriptor const slow = strangersRequest("-i(a*)*b\n");
  FileDescriptor const waiting = strangersRequest("-i(a*)*b\n");
  EXPECT_EQ(show("-s1").second, "");
  EXPECT_NE(rest(waiting), "") << "after its turn, or when that did not come";
  EXPECT_EQ(rest(slow), "\nerror: the report's patterns took too long\n");
  // Four connections of a user's, and a fifth when one of them has kept silent for a while.
  std::vector<FileDescriptor> held;
  for (int i = 0; i < 4; ++i) held.push_back(strangersRequest("x"));
  EXPECT_EQ(::seteuid(stranger), 0);
  EXPECT_EQ(show("status").second, "user 65534 has too many connections");
  EXPECT_EQ(::seteuid(0), 0);
  EXPECT_EQ(show("status").second, "");
  held.clear();
  for (int i = 0; i < 4; ++i) held.push_back(strangersRequest(""));
  std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(rest(strangersRequest("status\n")).starts_with("clients: 4 connected"));
}

TEST_F(CommandServerTest, Failed_allocationsCostTheirClientAlone) {
  std::ptrdiff_t const idle = openFiles();
  auto const isIdle = [&] {
    return rest(tellIt("status\n")).starts_with("clients: 1 connected, 0 wait for a report, 0 get one\n") &&
           openFiles() == idle;
  };
  int failures = 0;
  for (std::string const bytes : {"checked -s1\n", "-i(a\n", "status\n", "set 1\n", "half a line", ""}) {
    for (long left = 0; shared_->allocationsLeft == forever; ++left, ++failures) {
      shared_->allocationsLeft = left;
      FileDescriptor client = tellIt(bytes);
      if (bytes.ends_with('\n')) rest(client);
      client.reset();
      bool idleAgain = isIdle();  // what is left of the allowance may have been spent on this
      for (int i = 0; i < 100 && !idleAgain; ++i) idleAgain = isIdle();
      ASSERT_TRUE(idleAgain) << bytes << left;
    }
    shared_->allocationsLeft = forever;
  }
  EXPECT_GT(failures, 20);
  expectHealthy();
  EXPECT_NE(rest(request("status\n")).find("were given up; the last: out of memory"), std::string::npos);
}

TEST(ServerSocketTest, One_agentGetsTheName) {
  std::string const path = testing::TempDir() + "vorn-socket-test." + std::to_string(::getpid());
  FileDescriptor const stale(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un const address = socketAddress(path);
  ASSERT_EQ(::bind(stale.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
  {
    FileDescriptor const starting(::open((path + ".lock").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(::flock(starting.get(), LOCK_EX), 0);
    EXPECT_THROW(ServerSocket{path}, std::runtime_error);
    EXPECT_TRUE(std::filesystem::exists(path)) << "it is the other's to replace";
  }
  ServerSocket const first(path);
  EXPECT_THROW(ServerSocket{path}, std::runtime_error);
  EXPECT_TRUE(connectTo(path, 1));
  ::unlink((path + ".lock").c_str());
}

TEST(SystemLogTest, Never_waitsAndForgetsNothingUncounted) {
  std::string const path = testing::TempDir() + "vorn-log-test." + std::to_string(::getpid());
  auto const listen = [&path] {
    ::unlink(path.c_str());
    FileDescriptor daemon(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    sockaddr_un const address = socketAddress(path);
    EXPECT_EQ(::bind(daemon.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    return daemon;
  };
  FileDescriptor daemon = listen();
  std::vector<std::string> read;
  auto const readAll = [&](SystemLog& log) {
    for (ssize_t got = 1; got > 0; log.offerKept()) {
      char line[4096];
      while ((got = ::recv(daemon.get(), line, sizeof line, 0)) > 0)
        read.emplace_back(line, static_cast<std::size_t>(got));
      if (log.kept() != 0) got = 1;
    }
  };
  SystemLog log(path);
  for (int i = 0; i < 1000; ++i) log.write(SystemLog::threshold, 28, "S", "number\x1b " + std::to_string(i));
  std::size_t const kept = log.kept();
  EXPECT_GT(kept, 0U) << "nobody has read";
  EXPECT_EQ(log.counts(SystemLog::threshold).sent + kept + log.counts(SystemLog::threshold).lost, 1000U);
  readAll(log);
  ASSERT_EQ(read.size(), log.counts(SystemLog::threshold).sent);
  for (std::size_t i = 0; i < read.size(); ++i) {
    EXPECT_TRUE(read[i].starts_with("<28>")) << read[i];
    EXPECT_TRUE(read[i].ends_with("]: S: number? " + std::to_string(i))) << read[i];
  }
  daemon.reset();  // and is started again
  log.write(SystemLog::other, 28, "", "meanwhile");
  daemon = listen();
  readAll(log);
  EXPECT_TRUE(read.back().ends_with("]: meanwhile"));
  EXPECT_EQ(log.counts(SystemLog::other).lost, 0U);
  ::unlink(path.c_str());
}

}  // namespace
}  // namespace Agent
