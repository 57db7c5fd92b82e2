// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <tuple>

#include "agent/AgentOptions.h"
#include "agent/ConfigFile.h"
#include "agent/base/FileDescriptor.h"
#include "agent/base/Printable.h"
#include "agent/show/ShowClient.h"
#include "agent/show/ShowCommand.h"

namespace Agent {
namespace {

using Report = ShowOptions::Report;

TEST(Printable, KeepsTextAndReplacesWhatATerminalObeys) {
  std::string const text = "eth0 \xc3\xbc \xe2\x82\xac \xf0\x9f\x98\x80";
  EXPECT_EQ(printable(text), text);
  std::map<std::string, std::string> const replaced = {{"a\x1b[31m\n\x7f", "a?[31m??"},
                                                       {"C1 \xc2\x9b\xc2\xa0", "C1 ??\xc2\xa0"},
                                                       {"8-bit \x9b\xff\xe2\x82", "8-bit ????"},
                                                       {"overlong \xc0\x9b\xe0\x80\x9b", "overlong ?????"},
                                                       {"bidi \xe2\x80\xae\xe2\x81\xa6", "bidi ??????"},
                                                       {"\xed\xa0\x80\xf4\x90\x80\x80\xf8", "????????"}};
  for (auto const& [from, to] : replaced) EXPECT_EQ(printable(from), to) << to;
  EXPECT_EQ(printable(text, 9), "eth0 \xc3\xbc ...");
  for (std::size_t cut = 0; cut <= text.size(); ++cut) {
    std::size_t const whole = wholeCharacters(text.substr(0, cut));
    EXPECT_EQ(printable(text.substr(0, whole)), text.substr(0, whole)) << cut;
    EXPECT_LT(cut - whole, 4U);
  }
  EXPECT_EQ(wholeCharacters("\x9b\x9b\x9b\x9b"), 4U);
}

TEST(ShowCommand, Requests_andRefusals) {
  EXPECT_EQ(showCommandFor({}).request, "query history form=text width=80");
  EXPECT_EQ(
      showCommandFor({.query = {.interfaces = {"Ethernet1", "-c"}, .last = "30", .all = true, .count = 5}})
          .request,
      "query history form=text interface=Ethernet1 interface=-c last=30 all=1 count=5 width=80");
  EXPECT_EQ(showCommandFor({.report = Report::top, .json = true, .sort = "drops"}).request,
            "query top form=json sort=drops width=80");
  EXPECT_EQ(showCommandFor({.report = Report::status, .json = true}).request, "status --json");
  EXPECT_EQ(showCommandFor({.report = Report::raw, .words = {"-iEt1", "csv"}}).request, "-iEt1 csv");
  // Whose time it is, and so which comes first, only who answers knows.
  EXPECT_NO_THROW(showCommandFor({.query = {.since = "-1h", .until = "2026-11-24 20:08"}}));
  EXPECT_NO_THROW(showCommandFor({.query = {.since = "2036-11-24", .until = "now"}}));
  std::vector<std::pair<ShowOptions, std::string>> const refused = {
      {{.query = {.latency = true}, .csv = true}, "--latency chooses columns of text"},
      {{.query = {.latency = true, .all = true}}, "--all does not apply to --latency"},
      {{.query = {.count = 0}}, "--count takes 1 or more"},
      {{.query = {.since = "14:05", .last = "5"}}, "are two windows"},
      {{.query = {.last = "0s"}}, "--last takes more than no time"},
      {{.query = {.until = "noon"}}, "\"noon\" is no time"},
      {{.query = {.queues = {"best"}}}, "\"best\" is no queue"},
      {{.sort = "size"}, "--sort takes time, length"},
      {{.csv = true, .json = true}, "are forms of a report"},
      {{.report = Report::top, .query = {.latency = true}}, "--latency does not apply to top"},
      {{.report = Report::timeline, .sort = "time"}, "--sort does not apply to timeline"},
      {{.html = "x"}, "--html applies to timeline"},
      {{.report = Report::top, .json = true, .watch = 1}, "--watch is for people"},
      {{.report = Report::get, .depth = 0}, "--depth takes 1 or more"},
      {{.report = Report::get, .words = {"a\xc2\x9b"}}, "a control character"},
      {{.report = Report::statistics, .query = {.last = "3"}}, "--last does not apply to stats"},
      {{.report = Report::globalBuffer, .query = {.interfaces = {"eth0"}}},
       "--interface does not apply to global"},
      {{.report = Report::raw, .csv = true, .words = {"csv"}}, "--csv does not apply to raw"},
      {{.report = Report::config, .json = true}, "--json does not apply to config"},
      {{.query = {.patterns = {std::string(4100, 'x')}}}, "too complex"},
      {{.query = {.patterns = {"a["}}}, "unmatched square bracket"},
      {{.query = {.patterns = {"*"}}}, "where .* is any text"}};
  for (auto const& [options, part] : refused) {
    try {
      showCommandFor(options);
      ADD_FAILURE() << part;
    } catch (UsageError const& error) {
      EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
    }
  }
}

// How vorn-show takes what a program at the agent's socket does: the bytes that it sends before it hangs up,
// or nothing while it stays.
TEST(ShowClient, Answers_thatAreNone) {
  using Kind = AnswerEnd::Kind;
  std::string const evil = "a\x1b[2J\xc3\xbc\xc2\x9b\n\xff";
  std::vector<std::tuple<std::string, bool, Kind, std::string, std::string>> const cases = {
      {std::string("lines\n\0ok\n", 10), true, Kind::whole, "lines\n", ""},
      {std::string("\0no\x1b\n", 5), true, Kind::refused, "", "the agent says: no?"},
      {evil + std::string("\0ok\n", 4), true, Kind::whole, "a?[2J\xc3\xbc??\n?", ""},
      {"", true, Kind::broken, "", "the agent closed the connection without an answer"},
      {"half", true, Kind::broken, "half", "the connection broke: the report is not complete"},
      {"half", false, Kind::broken, "half", "the agent fell silent: the report is not complete"},
      {"", false, Kind::noAnswer, "", "the agent took the request and does not answer"}};
  for (auto const& [sent, hangsUp, kind, report, text] : cases) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    FileDescriptor client(ends[0]), agent(ends[1]);
    timeval const patience{0, 50'000};
    ::setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    for (char const& byte : sent) ASSERT_EQ(::write(ends[1], &byte, 1), 1);
    if (hangsUp) agent.reset();
    std::string got;
    AnswerEnd const end = fetchReport(ends[0], {}, [&got](std::string_view bytes) { got += bytes; });
    EXPECT_EQ(end.kind, kind) << text;
    EXPECT_EQ(end.text, text);
    EXPECT_EQ(got, report);
  }
}

TEST(AgentOptions, Remarks_onInterfacesThatDoNotExist) {
  auto const remarks = [](std::vector<char const*> arguments) {
    arguments.insert(arguments.begin(), {"vorn-agent", "--socket", "/nowhere"});
    int status = 0;
    auto const options = parseAgentOptions(static_cast<int>(arguments.size()), arguments.data(), status);
    return options ? remarksOn(*options, {"lo", "eth0"}) : std::vector<std::string>{"refused"};
  };
  EXPECT_EQ(remarks({"--interface", "l?", "--port-threshold", "lo=2,1", "--port-threshold", "e*=2,1"}),
            std::vector<std::string>{});
  EXPECT_EQ(remarks({"--interface", "no*\x1b", "--port-threshold", "m?=2,1"}),
            (std::vector<std::string>{"--interface no*?: there is no such interface now",
                                      "--port-threshold m?: there is no such interface now"}));
  EXPECT_EQ(remarks({"--cpu-high", "1"}), std::vector<std::string>{"refused"});
}

struct AgentConfig : ::testing::Test {
  std::string const path = ::testing::TempDir() + "agent." + std::to_string(::getpid()) + ".toml";
  std::string said;  // on standard error

  ~AgentConfig() override { ::unlink(path.c_str()); }
  std::optional<AgentOptions> read(std::string const& text, std::vector<char const*> arguments = {}) {
    std::ofstream(path) << text;
    arguments.insert(arguments.begin(), {"vorn-agent", "--socket", "/nowhere", "--config", path.c_str()});
    ::testing::internal::CaptureStderr();
    int status = 0;
    auto options = parseAgentOptions(static_cast<int>(arguments.size()), arguments.data(), status);
    said = ::testing::internal::GetCapturedStderr();
    return status == (options ? 0 : 2) ? options : std::nullopt;
  }
};

TEST_F(AgentConfig, Values_areTheCommandLinesThenTheFilesThenTheDefaults) {
  auto const options = read(
      "high = 300000  # bytes\n\nport-threshold = [ # first fits\n \"a#*=2,1\" , # one\n"
      "  'a*=3,1',\n\"ab=4,1\",]\ninterface = []\npool=\"auto\"\nenabled = false\nlow = 3",
      {"--low", "5", "--exclude", "x", "--exclude", "y"});
  ASSERT_TRUE(options) << said;
  std::string given;
  for (auto const& [name, values, isList, isLive, origin] : options->settings)
    if (origin != "default" && origin != "this host")
      given += name + ' ' + std::to_string(values.size()) + ' ' + origin.substr(origin.rfind(':') + 1) + '\n';
  EXPECT_EQ(given,
            "socket 1 command line\nenabled 1 9\ninterface 0 7\nexclude 2 command line\npool 1 8\n"
            "high 1 1\nlow 1 command line\nport-threshold 3 3\n");
  EXPECT_TRUE(options->ports.high == 300000 && options->ports.low == 5 && options->poolGrows);
  EXPECT_TRUE(options->enabled == false && options->interfaces.empty() && options->excluded[1] == "y");
  for (auto const& [name, high] : std::map<std::string, Kes::U32>{{"a#", 2}, {"ac", 3}, {"ab", 4}})
    EXPECT_EQ(thresholdsFor(*options, name)->high, high) << name;
  EXPECT_EQ(thresholdsFor(*options, "b"), nullptr);
}

TEST_F(AgentConfig, BadFiles_areToldWithLineAndReason) {
  std::vector<std::pair<std::string, std::string>> const cases = {
      {"\nfoo = 1", ":2: there is no setting \"foo\""},
      {"high = 1\nlow = 2", ":1: --high, --low: the low threshold, 2, is above the high one, 1"},
      {"high = 1\n# \nhigh = 1", ":3: \"high\" is set in line 1 already"},
      {"trace = 1\nexclude = [\n\"a\",\n", ":2: an array without an end"},
      {"coalesce = nan", ":1: coalesce: \"nan\" is not a number from 0 to 60000, nor auto"},
      {"low = 1\nport-threshold = [\"a=2,1\",\n\"a=1,2\"]", ":2: port-threshold: a: the low threshold, 2"},
      {"interface = [\"a\"] x", ":1: something stands behind the value"},
      {"interface = [\"a\",\n\"b\"\n\"c\"]", ":3: a comma is missing"},
      {"interface = [\"a\",,\"b\"]", ":1: a value is missing"},
      {"interface = [,]", ":1: a value is missing"},
      {"interface = \"a\",\"b\"", ":1: something stands behind the value"},
      {"interface = \"\"\"a\"\"\"", ":1: something stands behind the value"},
      {"interface = eth0 eth1", ":1: \"eth0\" is neither a number nor"},
      {"interface = 2026-11-24", ":1: \"2026-11-24\" is neither a number nor"},
      {"\nexclude = [\"a\", \"\"]", ":2: exclude: it is empty"},
      {"socket = \"\"", ":1: socket: it is empty"},
      {"high = []", ":1: high: it takes no array"},
      {"high = 0400000", ":1: high: \"0400000\" is not a number from 0 to 4294967295"},
      {"high = \"0x100000\"", ":1: high: \"0x100000\" is not a number"},
      {"start-threshold = \"\"", ":1: start-threshold: \"\" is not a number"},
      {"high = 1__0", ":1: \"1__0\" is neither"},
      {"user-reports = 6", ":1: --user-reports, --reports: 6 of one user are more than the 5 of all"},
      {"source = \"fast\"", ":1: source: \"fast\" is none of auto, exact and poll"},
      {"flow-prefix = \"24\"", ":1: flow-prefix: \"24\" is not BITS,BITS, 0 to 32 for IPv4"},
      {"flow-prefix = \"33,64\"", ":1: flow-prefix: \"33,64\" is not"},
      {"flow-prefix = \"24,129\"", ":1: flow-prefix: \"24,129\" is not"},
      {"flow-prefix = \"24,64,\"", ":1: flow-prefix: \"24,64,\" is not"},
      {"interval = 0", ":1: interval: \"0\" is not a number"}};  // though the command line goes first
  for (auto const& [text, reason] : cases) {
    EXPECT_FALSE(read(text, {"--interval", "5"})) << text;
    EXPECT_NE(said.find(path + reason), std::string::npos) << said << reason;
  }
}

TEST_F(AgentConfig, GoodFiles_andWhatIsReadAgain) {
  auto const options = read(
      "\xef\xbb\xbfhigh = 1_000_000\nconnections = 100\nexclude = ['[ab]', \"q\\\"'\",]\n"
      "source = \"exact\"\nno-flows = true\nflow-prefix = \"0,64\"");
  ASSERT_TRUE(options) << said;
  EXPECT_TRUE(options->source == Means::exact && !options->probe.countFlows);
  EXPECT_TRUE(options->probe.ipv4Prefix == 0 && options->probe.ipv6Prefix == 64);
  EXPECT_EQ(options->ports.high, 1'000'000U);
  EXPECT_EQ(options->clients.userConnections, 100U);
  EXPECT_EQ(options->excluded, (std::vector<std::string>{"[ab]", "q\"'"}));
  std::string listed;
  for (std::string const& value : options->excluded) listed += configText(value) + ',';
  auto const again = read("exclude = [" + listed + ']');
  ASSERT_TRUE(again) << said;
  EXPECT_EQ(again->excluded, options->excluded);
  std::string many;
  for (int i = 0; i < 1001; ++i) many += "\"e\",";
  EXPECT_FALSE(read("exclude = [" + many + ']'));
  EXPECT_NE(said.find(":1: a list of more than 1000 values"), std::string::npos) << said;
  ::unlink(path.c_str());
  EXPECT_THROW(readAgain(*options), ConfigError);
  AgentOptions byDefault = *options;
  byDefault.commandLine.names.clear();
  EXPECT_THROW(readAgain(byDefault), ConfigError) << "it was there";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_THROW(readAgain(*options), ConfigError);
}

TEST_F(AgentConfig, Sample_hasEverySettingAndItsDefault) {
  std::string const sample((std::stringstream() << std::ifstream(VORN_SAMPLE_CONFIG).rdbuf()).str());
  auto const defaults = read("");
  auto const options = read(std::regex_replace(sample, std::regex("\n#([a-z])"), "\n$1"));
  ASSERT_TRUE(options && defaults) << said;
  for (std::size_t i = 0; i < options->settings.size(); ++i) {
    auto const& setting = options->settings[i];
    EXPECT_EQ(setting.values, defaults->settings[i].values) << setting.name;
    EXPECT_NE(sample.find(setting.name + " = "), std::string::npos) << setting.name;
  }
}

}  // namespace
}  // namespace Agent
