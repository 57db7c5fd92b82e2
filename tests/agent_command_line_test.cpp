#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "Pylo/IntfId.h"
#include "Vorn/CommandOptions.h"
#include "agent/base/Printable.h"
#include "agent/show/ReportFilter.h"
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

TEST(ShowCommand, Requests_andRefusals) {
  EXPECT_EQ(showCommandFor({}).request, "");
  EXPECT_EQ(showCommandFor({.interfaces = {"Ethernet1", "eth0"}, .lastSeconds = 30, .count = 5, .all = true})
                .request,
            "-iEt1,eth0 -t30 -s5 -a");
  EXPECT_EQ(showCommandFor({.latency = true}).request, "-l");
  EXPECT_EQ(showCommandFor({.report = Report::globalBuffer, .csv = true}).request, "-i csv -a");
  EXPECT_EQ(showCommandFor({.report = Report::raw, .words = {"-iEt1", "csv"}}).request, "-iEt1 csv");
  std::vector<ShowOptions> const meaningless = {{.drops = true, .latency = true},
                                                {.latency = true, .all = true},
                                                {.count = 0},
                                                {.report = Report::statistics, .lastSeconds = 3},
                                                {.report = Report::globalBuffer, .interfaces = {"eth0"}},
                                                {.report = Report::raw, .csv = true, .words = {"csv"}}};
  for (std::size_t i = 0; i < meaningless.size(); ++i)
    EXPECT_THROW(showCommandFor(meaningless[i]), UsageError) << i;
}

TEST(ReportFilter, Limits_ofTheCommaSeparatedReport) {
  std::string const names = "columns\n";
  std::string const old = "record,\"a,b\",root,0,,89999999,5,1,1,,0\n";
  std::string const edge = "record,eth0,root,0,,90000000,5,1,1,,0\n";
  std::string const start = "start,eth0,root,0,,95000000,,,,,\n";
  auto const shown = [&](ShowOptions const& options) {
    std::string got;
    ReportFilter filter(showCommandFor(options).form, [&got](std::string_view bytes) { got += bytes; });
    filter.take("\nReport generated at 100.000000\n" + names + old + edge + start);
    filter.finish();
    return got;
  };
  EXPECT_EQ(shown({.csv = true}), names + old + edge + start);
  EXPECT_EQ(shown({.lastSeconds = 10, .csv = true}), names + edge + start);
  EXPECT_EQ(shown({.count = 2, .csv = true}), names + edge + start);
  EXPECT_EQ(shown({.lastSeconds = 10, .count = 1, .csv = true}), names + start);
  EXPECT_THROW(showCommandFor({.patterns = {"a["}}), std::regex_error);
}

TEST(ReportFilter, Forms_whereverTheStreamIsCut) {
  std::string const text =
      "\nReport generated at 1.5\nTitle\neth0, 3, 7\nbr-c,1, 4, 9\n\nGlobal Hit Count = 2\n";
  ShowCommand const some = showCommandFor({.report = Report::statistics, .interfaces = {"eth0"}});
  ShowCommand const csv = showCommandFor({.report = Report::statistics, .csv = true});
  std::vector<std::pair<ReportForm, std::string>> const cases = {
      {{}, text},
      {{ReportForm::Kind::csv}, text.substr(text.find("Title"))},
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

}  // namespace
}  // namespace Agent
