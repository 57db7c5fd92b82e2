#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "Pylo/IntfId.h"
#include "Vorn/CommandOptions.h"
#include "agent/AgentOptions.h"
#include "agent/ReportFilter.h"
#include "agent/ShowCommand.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using Report = ShowOptions::Report;

// --- vorn-show's translation

TEST(ShowCommand, Quoting_selectsTheInterfaceOfThatNameAlone) {
  std::vector<std::string> const names = {"br-c0ffee", "eth0.100", "veth+1",    "a|b", "x-i-t-s-d-l-b-a",
                                          "csv0",      "Fabric",   "Ethernet1", "e",   "c[0]{1}",
                                          "q?*^$()\\", "-c"};
  for (std::string const& name : names) {
    Vorn::CommandOptions const read = Vorn::parseCommand(showCommandFor({.interfaces = {name}}).request);
    EXPECT_EQ(read.report, Vorn::CommandOptions::Report::text) << name;
    EXPECT_FALSE(read.drops || read.latency || read.showAll || read.ageLimit || read.entryCount) << name;
    ASSERT_EQ(read.interfacePatterns.size(), 1U) << name;
    std::regex const pattern(read.interfacePatterns[0]);
    for (std::string const& other : names) {
      EXPECT_EQ(std::regex_match(Pylo::IntfId(other).shortName().str(), pattern), other == name)
          << name << other;
    }
    EXPECT_FALSE(std::regex_match("eth0x100", pattern));
  }
}

TEST(ShowCommand, Match_keepsItsMeaningWhereItLooksLikeAnOption) {
  auto const read = Vorn::parseCommand(showCommandFor({.patterns = {"[a-c]+", "br-c.*"}}).request);
  ASSERT_EQ(read.report, Vorn::CommandOptions::Report::text);
  ASSERT_EQ(read.interfacePatterns.size(), 2U);
  EXPECT_TRUE(std::regex_match("abc", std::regex(read.interfacePatterns[0])));
  EXPECT_FALSE(std::regex_match("d", std::regex(read.interfacePatterns[0])));
  EXPECT_TRUE(std::regex_match("br-c0ffee", std::regex(read.interfacePatterns[1])));
}

TEST(ShowCommand, Requests_andRefusals) {
  EXPECT_EQ(showCommandFor({}).request, "");
  EXPECT_EQ(showCommandFor({.interfaces = {"Ethernet1", "eth0"}, .lastSeconds = 30, .count = 5, .all = true})
                .request,
            "-iEt1,eth0 -t30 -s5 -a");
  EXPECT_EQ(showCommandFor({.latency = true}).request, "-l");
  EXPECT_EQ(showCommandFor({.report = Report::globalBuffer, .csv = true}).request, "-i csv -a");
  EXPECT_EQ(showCommandFor({.report = Report::raw, .rawWords = {"-iEt1", "csv"}}).request, "-iEt1 csv");
  std::vector<ShowOptions> const meaningless = {{.drops = true, .latency = true},
                                                {.latency = true, .all = true},
                                                {.lastSeconds = 1, .csv = true},
                                                {.count = 0},
                                                {.interfaces = {"a b"}},
                                                {.interfaces = {"a\nb"}},
                                                {.patterns = {"a{1,2}"}},
                                                {.patterns = {std::string(5000, 'x')}},
                                                {.report = Report::statistics, .lastSeconds = 3},
                                                {.report = Report::globalBuffer, .interfaces = {"eth0"}},
                                                {.report = Report::raw, .csv = true, .rawWords = {"csv"}}};
  for (std::size_t i = 0; i < meaningless.size(); ++i)
    EXPECT_THROW(showCommandFor(meaningless[i]), UsageError) << i;
}

TEST(ReportFilter, Forms_whereverTheStreamIsCut) {
  std::string const text =
      "\nReport generated at 1.5\nTitle\neth0, 3, 7\nbr-c,1, 4, 9\n\nGlobal Hit Count = 2\n";
  ShowCommand const some = showCommandFor({.report = Report::statistics, .interfaces = {"eth0"}});
  ShowCommand const csv = showCommandFor({.report = Report::statistics, .csv = true});
  std::vector<std::pair<ReportForm, std::string>> const cases = {
      {{}, text},
      {{ReportForm::Kind::withoutTitle, {}}, text.substr(text.find("Title"))},
      {some.form, "\nReport generated at 1.5\nTitle\neth0, 3, 7\n\nGlobal Hit Count = 2\n"},
      {csv.form, "interface,queue_id,bursts\neth0,3,7\nbr-c,1,4,9\nN/A,,2\n"}};
  for (auto const& [form, expected] : cases) {
    for (std::size_t step : {std::size_t{1}, std::size_t{7}, text.size()}) {
      std::string got;
      ReportFilter filter(form, [&got](std::string_view bytes) { got += bytes; });
      for (std::size_t at = 0; at < text.size(); at += step)
        filter.take(std::string_view(text).substr(at, step));
      filter.finish();
      EXPECT_EQ(got, expected) << step;
    }
  }
}

// --- the agent's command line

TEST(AgentOptions, Thresholds_andTheirRefusal) {
  auto const parse = [](std::vector<char const*> words, int& status) {
    words.insert(words.begin(), {"vorn-agent", "--socket", "s"});
    return parseAgentOptions(static_cast<int>(words.size()), words.data(), status);
  };
  int status = 0;
  auto const options = parse({"--low", "5", "--port-threshold", "a=b,c=9,7", "--interval", "2.5"}, status);
  ASSERT_TRUE(options);
  EXPECT_EQ(options->interval, 2500us);
  EXPECT_EQ(configOf(*options)->defaultThresholdsConfig().lowThreshold, 5U);
  EXPECT_EQ(configOf(*options)->defaultThresholdsConfig().highThreshold, 262'144U);
  ASSERT_NE(configOf(*options)->portConfig("a=b,c"), nullptr);
  EXPECT_EQ(configOf(*options)->portConfig("a=b,c")->highThreshold, 9U);
  EXPECT_FALSE(configOf(*options)->globalThresholdsConfig().configured);
  std::string const file = testing::TempDir() + "vorn-agent-test.conf";
  std::ofstream(file) << "high = 9\nlow = 8\nport-threshold = \"a=2,1\"\nport-threshold = \"b=4,3\"\n";
  auto const fromFile = parse({"--config", file.c_str(), "--high", "10"}, status);
  ASSERT_TRUE(fromFile);
  EXPECT_EQ(fromFile->ports.high * 10 + fromFile->ports.low, 108U) << "the command line goes first";
  ASSERT_EQ(fromFile->portThresholds.size(), 2U);
  EXPECT_EQ(fromFile->portThresholds[1].thresholds.low, 3U);
  testing::internal::CaptureStderr();
  for (auto const& words : std::vector<std::vector<char const*>>{{"--pool", "0"},
                                                                 {"--low", "300000"},
                                                                 {"--high", "-1"},
                                                                 {"--interval", "nan"},
                                                                 {"--port-threshold", "a=1"},
                                                                 {"--port-threshold", "a=1,2"},
                                                                 {"--port-threshold", "a=2x,1"},
                                                                 {"--config", "/nonexistent/file"}}) {
    EXPECT_FALSE(parse(words, status)) << words[1];
    EXPECT_EQ(std::exchange(status, 0), 2) << words[1];
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace Agent
