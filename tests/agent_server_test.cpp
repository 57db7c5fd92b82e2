#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "agent/serve/CommandServer.h"
#include "agent/show/ShowClient.h"

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

// An agent without a source, in a process of its own: 100,000 records, whose report of 20 MB fits no buffer.
class CommandServerTest : public testing::Test {
 protected:
  CommandServerTest() {
    path_ = testing::TempDir() + "vorn-agent-test." + std::to_string(::getpid());
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
  }

  [[noreturn]] void serve(int ready) {
    auto const recorder = Kes::makePtr<Vorn::CongestionData>(
        Kes::makePtr<Vorn::Hardware::Status>(), Kes::makePtr<Vorn::Clock>(), Kes::makePtr<Vorn::Config>(),
        Kes::makePtr<Vorn::PortMetaDataDumper>());
    for (Kes::U32 i = 1; i <= 100'000; ++i) {
      recorder->doAddToLog(Pylo::IntfId("eth0"), Kes::makePtr<TestEntry>(i, Vorn::Microseconds(i)));
    }
    EventLoop loop;
    CommandServer::Limits const limits{
        .connections = 8, .reports = 2, .request = 500ms, .turn = 300ms, .report = 1500ms, .verdict = 5s};
    CommandServer const server(
        loop, path_, recorder,
        [](std::string const& request, uid_t) {
          using Answer = CommandServer::Answer;
          return request == "status" ? std::optional(Answer{.text = "fine\n"}) : std::nullopt;
        },
        limits);
    if (::write(ready, "x", 1) == 1) loop.run();
    std::abort();
  }

  FileDescriptor connect() { return connectTo(path_, /*patienceSeconds=*/20); }
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
  // What vorn-show gets: the number of records; the verdict.
  std::pair<std::size_t, std::optional<std::string>> show(std::string const& words) {
    std::string report;
    auto const verdict =
        fetchReport(connect().get(), {words, {}}, [&](std::string_view bytes) { report += bytes; });
    std::size_t records = 0;
    for (std::size_t at = 0; (at = report.find(" eth0 ", at)) != std::string::npos; ++at) ++records;
    return {records, verdict};
  }
  void expectHealthy() {
    EXPECT_EQ(show("-ieth0 -s7"), std::pair(std::size_t{7}, std::optional<std::string>("")));
  }

  std::string path_;
  pid_t agent_;
};

TEST_F(CommandServerTest, Requests_getWholeReportsAndVerdicts) {
  EXPECT_EQ(show(""), std::pair(std::size_t{100'000}, std::optional<std::string>("")));
  EXPECT_EQ(show("status").second, "");
  EXPECT_EQ(rest(request("status\n")), "fine\n");
  EXPECT_EQ(show("-d").second, "the report broke off");
  std::string const bare = rest(request("-s1\r\n"));
  EXPECT_TRUE(bare.starts_with("\nReport generated at ")) << bare;
  EXPECT_TRUE(bare.ends_with("0\n")) << bare;
  EXPECT_EQ(show("-ieth[0").second, "bad interface pattern: unmatched square bracket");
  EXPECT_NE(rest(request("-ieth(0\n")).find("error: bad interface pattern"), std::string::npos);
}

TEST_F(CommandServerTest, Nasty_requestsAreRefusedInPlainWords) {
  EXPECT_EQ(rest(request(std::string(5000, 'x'))), "error: the request is longer than 4096 bytes\n");
  EXPECT_EQ(rest(request("checked " + std::string(9000, 'x'))).substr(0, 5), std::string("\0the ", 5));
  EXPECT_EQ(rest(request(std::string("-s1\0-c\n", 7))), "error: the request holds control characters\n");
  EXPECT_EQ(rest(request("-s1")), "error: no whole request line arrived in time\n");
  EXPECT_TRUE(show("-i" + std::string(3000, '(')).second.value_or("").starts_with("bad interface pattern"));
  FileDescriptor const halfClosed = request("-s1");
  ::shutdown(halfClosed.get(), SHUT_WR);
  EXPECT_TRUE(rest(halfClosed).starts_with("\nReport"));
  expectHealthy();
}

TEST_F(CommandServerTest, Nasty_clientsNeitherStallNorKill) {
  auto const before = std::chrono::steady_clock::now();
  std::vector<FileDescriptor> silent;
  for (int i = 0; i < 600; ++i) silent.push_back(connect());
  expectHealthy();
  silent.clear();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10s) << "the silent ones sat their time out";
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

}  // namespace
}  // namespace Agent
