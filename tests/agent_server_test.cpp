// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
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
  std::atomic<bool> ready = false;              // the agent serves
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
    return std::fprintf(static_cast<std::FILE*>(file), "# %s %s %0200d\n", time, name, 0) < 0 ? -1 : 0;
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
    int const memory = PROT_READ | PROT_WRITE;
    shared_ = new (::mmap(nullptr, sizeof(Shared), memory, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
    agent_ = ::fork();
    if (agent_ == 0) serve();
    for (int i = 0; i < 20'000 && !shared_->ready; ++i) std::this_thread::sleep_for(1ms);
  }
  ~CommandServerTest() override {
    int status = 0;
    ::kill(agent_, SIGKILL);
    ::waitpid(agent_, &status, 0);
    EXPECT_EQ(WTERMSIG(status), SIGKILL) << "the agent had ended before";
    ::unlink(path_.c_str());
    ::unlink((path_ + ".lock").c_str());
  }

  [[noreturn]] void serve() {
    auto const recorder = Kes::makePtr<Vorn::CongestionData>(
        Kes::makePtr<Vorn::Hardware::Status>(), Kes::makePtr<Vorn::Clock>(), Kes::makePtr<Vorn::Config>(),
        Kes::makePtr<Vorn::PortMetaDataDumper>());
    for (Kes::U32 i = 1; i <= 100'000; ++i)
      recorder->doAddToLog(Pylo::IntfId("eth0"), Kes::makePtr<TestEntry>(i, Vorn::Microseconds(i)));
    recorder->portDataIs(Pylo::IntfId(std::string(2'000'000, 'a')));
    EventLoop loop;
    CommandServer::Limits const limits{.connections{8, 4, 2},
                                       .reports{2, 1, 1},
                                       .followers{10, 3, 2},
                                       .silence = 100ms,
                                       .request = 500ms,
                                       .turn = 300ms,
                                       .verdict = 5s,
                                       .report{8s, 50ms}};
    std::optional<CommandServer> server;
    Kes::U64 closed = 0;
    auto const own = [&](std::string const& request, uid_t user) -> std::optional<CommandServer::Answer> {
      bool const sets = request.starts_with("set");
      shared_->changes += sets;
      if (sets) return CommandServer::Answer{.text = "set by " + std::to_string(user) + '\n'};
      for (int left = request.starts_with("close ") ? std::stoi(request.substr(6)) : 0; left > 0; --left)
        server->handleClosed({.interface = "eth0", .queue = 0, .timestamp = ++closed});
      if (request.starts_with("close ")) return CommandServer::Answer{.text = "closed\n"};
      if (request != "status") return std::nullopt;
      return CommandServer::Answer{.text = server->status().text() + '\n' + failureStatus().text() + '\n'};
    };
    server.emplace(
        loop, path_, recorder, own, [] { return std::vector<std::string>{"quiet0"}; }, limits);
    counted = shared_;
    shared_->ready = true;
    loop.run();
    std::abort();
  }

  FileDescriptor connect(uid_t user) {
    uid_t const own = ::geteuid();
    EXPECT_EQ(::seteuid(user), 0);
    FileDescriptor socket = connectTo(path_, /*patienceSeconds=*/20);
    EXPECT_EQ(::seteuid(own), 0);
    return socket;
  }
  // To an agent that may be failing just then.
  FileDescriptor request(std::string const& bytes, uid_t user = ::geteuid()) {
    FileDescriptor socket = connect(user);
    bool const told = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0 || errno == EPIPE;
    EXPECT_TRUE(told);
    return socket;
  }
  // What a bare client gets.
  static std::string rest(FileDescriptor const& socket) {
    std::string all;
    char block[65536];
    for (ssize_t got; (got = ::recv(socket.get(), block, sizeof block, 0)) > 0;)
      all.append(block, static_cast<std::size_t>(got));
    return all;
  }
  // What vorn-show gets: "RECORDS TEXT", where the text is what the agent says of the report.
  std::string show(std::string const& words, uid_t user = ::geteuid()) {
    std::ptrdiff_t records = 0;
    auto const count = [&](std::string_view bytes) {
      records += std::count(bytes.begin(), bytes.end(), '#');
    };
    AnswerEnd const end = fetchReport(connect(user).get(), {words, {}}, count);
    std::string const speaker = end.kind == AnswerEnd::Kind::refused ? "the agent says: " : "";
    EXPECT_TRUE(end.text.starts_with(speaker)) << end.text;
    return std::to_string(records) + ' ' + end.text.substr(speaker.size());
  }
  void expectHealthy() { EXPECT_EQ(show("-ieth0 -s7"), "7 "); }

  static std::ptrdiff_t openFiles(pid_t process) {
    std::filesystem::directory_iterator const open("/proc/" + std::to_string(process) + "/fd");
    return std::distance(begin(open), end(open));
  }

  std::string path_;
  Shared* shared_;
  pid_t agent_;
};

TEST_F(CommandServerTest, Requests_getWholeReportsAndVerdicts) {
  std::map<std::string, std::string> const answers = {
      {"", "100000 "},
      {"status", "0 "},
      {"-d", "0 the report broke off"},
      {"-ieth[0", "0 bad interface pattern: unmatched square bracket"},
      {"-ieth0,eth1,eth2 -s1", "1 no interface matches eth1"},
      {"-ieth0,quiet. -s1", "1 "},  // it is there and has no records
      {"-i csv -a", "0 "},          // no interface was named
      {"-i(a*)*b", "0 the report's patterns took too long"}};
  for (auto const& [words, answer] : answers) EXPECT_EQ(show(words), answer) << words;
  EXPECT_TRUE(rest(request("status\n")).starts_with("clients: 1 connected, 0 wait"));
  std::string const bare = rest(request("-s1\r\n"));
  EXPECT_TRUE(bare.starts_with("\nReport generated at ") && bare.ends_with("0\n")) << bare;
  EXPECT_NE(rest(request("-ieth(0\n")).find("error: bad interface pattern"), std::string::npos);
}

TEST_F(CommandServerTest, Nasty_requestsAreRefusedInPlainWords) {
  EXPECT_EQ(rest(request(std::string(5000, 'x'))), "error: the request is longer than 4096 bytes\n");
  EXPECT_EQ(rest(request("checked " + std::string(9000, 'x'))).substr(0, 5), std::string("\0the ", 5));
  EXPECT_EQ(rest(request(std::string("-s1\0-c\n", 7))), "error: the request holds control characters\n");
  EXPECT_EQ(rest(request("-s1")), "error: no whole request line arrived in time\n");
  EXPECT_TRUE(show("-i" + std::string(3000, '(')).starts_with("0 bad interface pattern"));
  EXPECT_EQ(rest(request("set 1\n")), "set by " + std::to_string(::geteuid()) + '\n');
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
  for (int i = 0; i < 200; ++i) silent.push_back(request(""));
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
  EXPECT_EQ(show("status"), "0 ");  // the third has been read by now
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
  EXPECT_EQ(openFiles(child), 2) << "more than the client's socket and standard error";
  while (show("-s1") != "1 ") continue;
  EXPECT_TRUE(rest(stalled[0]).ends_with(std::string("\0the report took too long\n", 26)));
  expectHealthy();
}

TEST_F(CommandServerTest, Nobody_shutsOthersOut) {
  if (::geteuid() != 0) GTEST_SKIP() << "takes root to be two users";
  // One report of a user's at a time, and nobody else waits for it.
  FileDescriptor const slow = request("-i(a*)*b\n", stranger);
  FileDescriptor const waiting = request("-i(a*)*b\n", stranger);
  EXPECT_EQ(show("-s1"), "1 ");
  EXPECT_NE(rest(waiting), "") << "after its turn, or when that did not come";
  EXPECT_EQ(rest(slow), "\nerror: the report's patterns took too long\n");
  // Four connections of a user's, and a fifth when one of them has kept silent for a while.
  std::vector<FileDescriptor> held;
  for (int i = 0; i < 4; ++i) held.push_back(request("x", stranger));
  EXPECT_EQ(show("status", stranger), "0 user 65534 has too many connections");
  EXPECT_EQ(show("status"), "0 ");
  held.clear();
  for (int i = 0; i < 4; ++i) held.push_back(request("", stranger));
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(rest(request("set 1\n", stranger)), "set by 65534\n");
}

// One that follows: each record is the next one, or as many later as it was told.
struct Follower {
  explicit Follower(FileDescriptor const& socket) : in(::fdopen(::dup(socket.get()), "r"), &std::fclose) {}
  void readTo(Kes::U64 number) {
    for (Kes::U64 told = 0; got + skipped < number;) {
      if (std::fscanf(in.get(), " skipped,%lu", &told) == 1) {
        skipped += told;
        continue;
      }
      ASSERT_EQ(std::fscanf(in.get(), "record,eth0,root,0,,%lu,0,0,0,,0", &told), 1);
      ASSERT_EQ(told, ++got + skipped);
    }
  }
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> in;
  Kes::U64 got = 0, skipped = 0;
};

TEST_F(CommandServerTest, Followers_getAllOrAreToldWhatTheyMissed) {
  constexpr Kes::U64 bursts = 5000, oneByOne = 400;  // so many packets fill the socket of one that is stopped
  std::vector<Follower> followers;
  while (followers.size() < 10) {
    char names[200];
    followers.emplace_back(request("follow\n"));
    ASSERT_NE(std::fgets(names, sizeof names, followers.back().in.get()), nullptr);
    EXPECT_TRUE(std::string_view(names).starts_with("type,interface,"));
  }
  EXPECT_EQ(rest(request("follow\n")), "error: there are too many clients that follow\n");
  Follower stopped = std::move(followers.back());
  followers.pop_back();
  for (Kes::U64 done = 0; done < bursts;) {
    Kes::U64 const more = done < oneByOne ? 1 : 100;
    ASSERT_EQ(rest(request("close " + std::to_string(more) + '\n')), "closed\n");
    done += more;
    for (Follower& follower : followers) ASSERT_NO_FATAL_FAILURE(follower.readTo(done));
  }
  for (Follower const& follower : followers) EXPECT_EQ(follower.skipped, 0U);
  ASSERT_NO_FATAL_FAILURE(stopped.readTo(bursts));
  EXPECT_GE(stopped.skipped, bursts - FollowRing::capacity - oneByOne);
  std::string const said = ", 10 follow, who have missed " + std::to_string(stopped.skipped) + " records\n";
  EXPECT_NE(rest(request("status\n")).find(said), std::string::npos);
  followers.clear();
  EXPECT_NE(rest(request("status\n")).find(", 1 follow, "), std::string::npos);
}

TEST(FollowRingTest, Tells_whatThereWasNoMemoryFor) {
  FollowRing ring;
  Shared failing;
  counted = &failing;
  RecordRow const row{.interface = "eth0", .queue = 0};
  for (bool const fails : {false, true, true, false, true}) {
    failing.allocationsLeft = fails ? 0 : forever;
    try {
      ring.add(row);
    } catch (std::bad_alloc const&) {
      EXPECT_TRUE(fails);
    }
  }
  counted = nullptr;
  std::uint64_t cursor = 0;
  std::string const line = "record,eth0,root,0,,0,0,0,0,,0\n";
  std::string text;
  EXPECT_EQ(ring.take(cursor, 9, text), 3U);
  EXPECT_EQ(text, line + "skipped,2\n" + line + "skipped,1\n");
}

TEST_F(CommandServerTest, Failed_allocationsCostTheirClientAlone) {
  std::ptrdiff_t const idle = openFiles(agent_);
  auto const isIdle = [&] {
    return rest(request("status\n"))
               .starts_with("clients: 1 connected, 0 wait for a report, 0 get one, 0 follow,") &&
           openFiles(agent_) == idle;
  };
  int failures = 0;
  for (std::string const bytes :
       {"checked -s1\n", "-i(a\n", "status\n", "set 1\n", "follow\n", "half a line", ""}) {
    for (long left = 0; shared_->allocationsLeft == forever; ++left, ++failures) {
      shared_->allocationsLeft = left;
      FileDescriptor client = request(bytes);
      if (bytes.ends_with('\n') && bytes != "follow\n") rest(client);
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

// A socket of that name in the test's directory.
struct Name {
  ~Name() { ::unlink(path.c_str()); }
  FileDescriptor bound(int type) const {
    ::unlink(path.c_str());
    FileDescriptor socket(::socket(AF_UNIX, type, 0));
    sockaddr_un const address = socketAddress(path);
    EXPECT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
    return socket;
  }
  std::string const path = testing::TempDir() + "vorn-name-test." + std::to_string(::getpid());
};

TEST(ServerSocketTest, One_agentGetsTheName) {
  Name const name;
  std::string const& path = name.path;
  FileDescriptor const stale = name.bound(SOCK_STREAM);
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

// What a service manager gets to hear of a real agent, which does not wait while its socket is full. Another
// process's watchdog is none of its own.
TEST(ServiceManagerTest, Is_toldWhatTheAgentDoes) {
  for (bool const watched : {true, false}) {
    Name const name;
    std::string const heard = '@' + name.path;
    sockaddr_un address = socketAddress(heard);
    address.sun_path[0] = '\0';
    auto const* const to = reinterpret_cast<sockaddr const*>(&address);
    auto const bytes = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + heard.size());
    FileDescriptor const manager(::socket(AF_UNIX, SOCK_DGRAM, 0)), other(::socket(AF_UNIX, SOCK_DGRAM, 0));
    timeval const patience{10, 0};
    ::setsockopt(manager.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    ASSERT_EQ(::bind(manager.get(), to, bytes), 0);
    while (::sendto(other.get(), "full", 4, MSG_DONTWAIT, to, bytes) == 4) continue;
    pid_t const agent = ::fork();
    if (agent == 0) {
      ::setenv("NOTIFY_SOCKET", heard.c_str(), 1);
      ::setenv("WATCHDOG_USEC", "20000", 1);
      ::setenv("WATCHDOG_PID", std::to_string(watched ? ::getpid() : 1).c_str(), 1);
      ::execl(VORN_AGENT, VORN_AGENT, "--socket", name.path.c_str(), "--config", "/dev/null", nullptr);
      ::_exit(127);
    }
    auto const answers = [&] {
      try {
        auto const end = fetchReport(connectTo(name.path, 1).get(), {.request = "status"}, [](auto) {});
        return end.kind == AnswerEnd::Kind::whole;
      } catch (std::system_error const&) {
        return false;
      }
    };
    for (int i = 0; i < 500 && !answers(); ++i) std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(answers());
    int signs = 0;
    char got[256];
    auto const next = [&](std::string const& begin) {
      std::string_view text;
      while (text.empty() || text == "WATCHDOG=1" || text == "full") {
        ssize_t const size = ::recv(manager.get(), got, sizeof got, 0);
        text = size > 0 ? std::string_view(got, static_cast<std::size_t>(size)) : "nothing";
        if (text == "WATCHDOG=1") ++signs;
      }
      EXPECT_TRUE(text.starts_with(begin)) << text << begin;
    };
    next("READY=1\nSTATUS=answering at " + name.path);
    std::this_thread::sleep_for(100ms);
    ::kill(agent, SIGHUP);
    next("RELOADING=1\nMONOTONIC_USEC=");
    next("READY=1\n");
    ::kill(agent, SIGTERM);
    next("STOPPING=1\n");
    EXPECT_EQ(signs > 0, watched);
    int status = -1;
    EXPECT_TRUE(::waitpid(agent, &status, 0) == agent && status == 0) << status;
    ::unlink((name.path + ".lock").c_str());
  }
}

TEST(SystemLogTest, Never_waitsAndForgetsNothingUncounted) {
  Name const name;
  FileDescriptor daemon = name.bound(SOCK_DGRAM | SOCK_NONBLOCK);
  SystemLog log(name.path);
  std::vector<std::string> read;
  auto const readAll = [&] {
    do {
      log.offerKept();
      char line[4096];
      for (ssize_t got; (got = ::recv(daemon.get(), line, sizeof line, 0)) > 0;)
        read.emplace_back(line, static_cast<std::size_t>(got));
    } while (log.kept() != 0);
  };
  for (int i = 0; i < 1000; ++i) log.write(SystemLog::threshold, 28, "S", "number\x1b " + std::to_string(i));
  auto const counts = log.counts(SystemLog::threshold);
  EXPECT_GT(log.kept(), 0U) << "nobody has read";
  EXPECT_EQ(counts.sent + log.kept() + counts.lost, 1000U);
  readAll();
  ASSERT_EQ(read.size(), log.counts(SystemLog::threshold).sent);
  for (std::size_t i = 0; i < read.size(); ++i) {
    EXPECT_TRUE(read[i].starts_with("<28>")) << read[i];
    EXPECT_TRUE(read[i].ends_with("]: S: number? " + std::to_string(i))) << read[i];
  }
  daemon.reset();  // and is started again
  log.write(SystemLog::other, 28, "", "meanwhile");
  daemon = name.bound(SOCK_DGRAM | SOCK_NONBLOCK);
  readAll();
  EXPECT_TRUE(read.back().ends_with("]: meanwhile"));
  EXPECT_EQ(log.counts(SystemLog::other).lost, 0U);
}

}  // namespace
}  // namespace Agent
