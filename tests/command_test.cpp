// SPDX-License-Identifier: Apache-2.0
// Commands on sockets: privilege, broken pipes, bad patterns, failing writers; and the pool size that a
// process is started with.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ctime>
#include <regex>
#include <thread>

#include "Vorn/internal/InterfaceFilter.h"
#include "tests/support.h"

namespace {

using namespace Test;

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

std::string readAll(int descriptor) {
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = read(descriptor, buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(got));
  return text;
}

class Command : public testing::Test, public Bench {
 protected:
  void SetUp() override {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets_), 0);
    fill("Ethernet1", 7, 3);
  }
  void TearDown() override {
    for (int const descriptor : sockets_) close(descriptor);
  }

  // Whether this process may do what handleCommand begins with.
  static bool privileged() {
    int const probe = socket(AF_UNIX, SOCK_STREAM, 0);
    int const size = 4096;
    bool const granted = setsockopt(probe, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size) == 0;
    close(probe);
    return granted;
  }
  void handle(std::string const& command) const {
    recorder->handleCommand(static_cast<U32>(mine()), command, header, footer);
  }
  int mine() const { return sockets_[0]; }
  int theirs() const { return sockets_[1]; }

  int sockets_[2] = {-1, -1};
};

#define NEEDS_PRIVILEGE() \
  if (!privileged()) GTEST_SKIP() << "enlarging a socket's buffer by force is not granted here"

// Runs a body in a child process and expects it to return true.
#define EXPECT_IN_CHILD(...) \
  EXPECT_EXIT(std::_Exit([&] { __VA_ARGS__ }() ? 0 : 1), testing::ExitedWithCode(0), "")

TEST_F(Command, AnswersAndClosesTheSocket) {
  NEEDS_PRIVILEGE();
  for (U32 i = 0; i < 200; ++i) fill("Fabric1", i);  // more than the socket's buffer takes
  std::string const expected = report("csv");
  std::string got;
  std::thread reader([&] { got = readAll(theirs()); });
  handle("csv");
  EXPECT_FALSE(isOpen(mine()));
  reader.join();
  EXPECT_GT(expected.size(), 1'500'000U);
  EXPECT_EQ(got, expected);
}

TEST_F(Command, WithoutPrivilegeNothingIsWrittenAndTheSocketStaysOpen) {
  EXPECT_IN_CHILD({
    if (privileged() && setresuid(65534, 65534, 65534) != 0) return false;
    handle("");
    char byte;
    return isOpen(mine()) && recv(theirs(), &byte, 1, MSG_DONTWAIT) == -1 && errno == EAGAIN &&
           traced == std::vector<std::string>{"0 setsockopt failed : Operation not permitted"};
  });
  close(mine());
  handle("");
  EXPECT_EQ(traced, std::vector<std::string>{"0 setsockopt failed : Bad file descriptor"});
}

TEST_F(Command, AClientThatGoesAwayHarmsNobody) {
  NEEDS_PRIVILEGE();
  for (U32 i = 0; i < 20; ++i) fill("Ethernet1", i);
  close(theirs());
  for (bool const blockedAndPending : {false, true})
    EXPECT_IN_CHILD({
      sigset_t pipe;
      sigemptyset(&pipe);
      sigaddset(&pipe, SIGPIPE);
      if (blockedAndPending) {
        sigprocmask(SIG_BLOCK, &pipe, nullptr);
        raise(SIGPIPE);
      }
      handle("csv");
      sigset_t mask;
      sigset_t pending;
      struct sigaction action;
      sigprocmask(SIG_BLOCK, nullptr, &mask);
      sigpending(&pending);
      sigaction(SIGPIPE, nullptr, &action);
      return !isOpen(mine()) && (sigismember(&mask, SIGPIPE) == 1) == blockedAndPending &&
             (sigismember(&pending, SIGPIPE) == 1) == blockedAndPending && action.sa_handler == SIG_DFL;
    });
  handle("-s1");  // written when the stream is closed
  EXPECT_EQ(traced, std::vector<std::string>{"0 fclose failed : Broken pipe"});
}

TEST_F(Command, BadPatternsPassThroughAndCloseTheSocket) {
  NEEDS_PRIVILEGE();
  EXPECT_THROW(handle("-i["), std::regex_error);
  EXPECT_FALSE(isOpen(mine()));
  EXPECT_EQ(readAll(theirs()), "");
  EXPECT_NE(report("-iEt1,[").find("text 1001 Et1"), std::string::npos);  // not tried behind a match
  EXPECT_THROW(report("-iEt2,["), std::regex_error);
}

TEST_F(Command, GlobalRecordsUpToARecord) {
  recorder->allocateGlobalChunk();
  recorder->doAddToGlobalLog(record(8, 1001));
  recorder->doAddToGlobalLog(record(9, 1003));
  Vorn::Entry::Ptr const before = record(1, 1002);
  EXPECT_EQ(written([&](std::FILE* out) {
              recorder->doMergeAndDumpGlobalChunk(out, before.get(), /*ascending=*/true);
            }),
            recordLine("csv", "1001", "N/A", 8, 0));
}

TEST(CommandOptions, TheFirstRowThatOccursDecides) {
  auto const parsed = [](char const* command) {
    Vorn::CommandOptions const options = Vorn::parseCommand(command);
    char const* const reports[] = {"text", "csv", "statistics", "global"};
    std::string text = reports[static_cast<int>(options.report)];
    if (options.ageLimit != 0) text += " age " + std::to_string(options.ageLimit);
    if (options.entryCount != 0) text += " count " + std::to_string(options.entryCount);
    text += std::string(options.drops ? " drops" : "") + (options.latency ? " latency" : "") +
            (options.showAll ? " all" : "") + (options.allInterfaces ? "" : " of");
    for (std::string const& pattern : options.interfacePatterns) text += " '" + pattern + '\'';
    return text;
  };
  std::pair<char const*, char const*> const commands[] = {
      {"", "text"},
      {"unknown -x -t0 -tabc -s0", "text"},
      {"-x -c -i[", "statistics"},  // the rest is not looked at any more
      {"-csv", "statistics"},
      {"-icsv", "text of 'csv'"},
      {"-i", "text of"},
      {"-iFabric,Fabric1,Et1 -iEt2,", "text of 'Fc.*' 'Fabric1' 'Et1' 'Et2'"},
      {"-t30 -s-1", "text age 30 count 4294967295"},
      {"-t4294967301", "text age 5"},
      {"-dcsv", "text drops"},
      {"mycsvfile -b -a", "global"},
      {"csv-l-a", "csv"},
      {"-l -a", "text latency all"}};
  for (auto const& [command, expected] : commands) EXPECT_EQ(parsed(command), expected) << command;
}

TEST(InterfaceFilter, PatternsCannotHangOrCrashTheHost) {
  namespace regex = std::regex_constants;
  auto const repeated = [](std::string const& text, int times, std::string const& end = "") {
    std::string pattern;
    while (times-- > 0) pattern += text;
    return pattern + end;
  };
  std::string const complex = std::regex_error(regex::error_complexity).what();
  std::string const reference = std::regex_error(regex::error_backref).what();
  std::string const name = "Et" + std::string(62, '1');
  // What is matched, and what() of the refusal.
  std::pair<std::string, std::vector<std::string>> const cases[] = {
      {"yes",
       {repeated("1", 61, "[1]").replace(0, 0, "Et"), "((.*)*)*1", "(.?){70}1", "(?=Et1)(?!Et2).*1",
        "[\\]\\(]*|\\c(|Et.{62}", repeated(".*", 500)}},
      {"no",
       {"((.*)*)*x", "(a*)*b", ".*+*x", "(.*){99}z", repeated(".*", 300, "x"), repeated("(t|t*)*", 30, "x"),
        "[ab]{1,999}", "x*{499}", "x{9}{99}",
        // Just what is allowed; below, one state more.
        repeated("\\d", 1000), repeated("x|", 1000), "[abc]" + repeated("x", 999), repeated("[x]", 256),
        repeated("Et13/1|", 585, "E"), repeated("(?:x|", 163, "x") + repeated(")", 163),
        "((x){9}){17}" + repeated("x", 28), repeated("(?=x)", 3) + repeated("x", 40), "(?:x{400}){0,}",
        ".*.*.*" + repeated("\\B", 990, "b"), ".*.*.*" + repeated("\\b", 990, "b"),
        repeated("(", 250) + repeated(")", 250)}},
      {complex,
       {repeated("\\d", 1001), repeated("x|", 1000, "x"), "[abc]" + repeated("x", 1000), repeated("[x]", 257),
        "((x){9}){17}" + repeated("x", 29), repeated("(?=x)", 3) + repeated("x", 41),
        repeated("(", 250, "x") + repeated(")", 250), repeated(".*", 500, "x"), "[ab]{1000,1}", "x{9}{100}",
        "(){30000}", repeated("(?:\\w{300}){0,}", 200), "(?:x{500}){0,}", ".{100}{100}", "[\\](]{2000}",
        "[[:alpha:]]{2000}", repeated("(?=.*", 3, ")))"), repeated("Et13/1|", 585, "Et"),
        repeated("(", 5000)}},
      {reference, {repeated("(.*)", 30, "\\1z"), "(e)th\\1"}}};
  for (auto const& [expected, patterns] : cases)
    for (std::string const& pattern : patterns) {
      Vorn::CommandOptions options;
      options.interfacePatterns = {pattern};
      options.allInterfaces = false;
      Vorn::InterfaceFilter filter(options);
      for (int asked = 0; asked < 2; ++asked) {  // a refusal is repeated, not forgotten
        std::string outcome;
        std::clock_t const start = std::clock();
        try {
          outcome = filter.matches(name) ? "yes" : "no";
        } catch (std::regex_error const& error) {
          outcome = error.what();
        }
        EXPECT_EQ(outcome, expected) << pattern;
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 2) << pattern;
      }
    }
}

// The variable is read once a process, so each case has its own.
TEST(NumSharedChunks, ComesFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::pair<char const*, U32> const cases[] = {{nullptr, 200}, {"1000", 1000}, {" 42abc", 42},
                                               {"abc", 0},     {"", 0},        {"-1", ~0U}};
  for (auto const& setting : cases)
    EXPECT_IN_CHILD({
      char const* const name = "SIM_NUM_SHARED_CHUNKS";
      setting.first == nullptr ? unsetenv(name) : setenv(name, setting.first, 1);
      if (Bench().recorder->numSharedChunks() != setting.second) return false;
      setenv(name, "77", 1);
      return Bench().recorder->numSharedChunks() == setting.second;
    });
}

}  // namespace
