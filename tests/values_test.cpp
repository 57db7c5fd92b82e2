// Values, clocks, identifiers, messages and the decisions over the configuration.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "tests/support.h"

namespace {

using Kes::strepToValue;
using Kes::U16;
using Kes::U32;
using Test::raised;
using Vorn::EntryIndex;
using Vorn::EntryIndexOrNull;
using Vorn::Microseconds;

template <class T>
std::string written(T const& value) {
  std::ostringstream out;
  out.imbue(std::locale(out.getloc(), new std::numpunct<char>));
  out << std::hex << std::showbase << value;
  EXPECT_EQ(out.str(), Vorn::valueToStrep(value).str());
  return out.str();
}

constexpr char indexRange[] = "EntryIndex::value < 0 or > EntryIndex::max not allowed";
constexpr char indexOrNullRange[] = "EntryIndexOrNull::value < 0 or > EntryIndexOrNull::null not allowed";

TEST(Values, MicrosecondsTruncateSaturateAndWrap) {
  auto const from = [](double seconds) { return Microseconds::fromSeconds(seconds).value(); };
  EXPECT_EQ(from(0.0), 0U);
  EXPECT_EQ(from(1.5), 1500000U);
  EXPECT_EQ(from(0.0000019), 1U);
  EXPECT_EQ(from(1.0000009), 1000000U);
  EXPECT_EQ(from(4.35), 4349999U);
  EXPECT_EQ(from(1e13), 10000000000000000000U);  // beyond 2^63
  EXPECT_EQ(from(1e14), Microseconds::max());
  EXPECT_EQ(from(-1.0), 0U);
  EXPECT_EQ(from(std::nan("")), 0U);
  EXPECT_EQ(from(std::numeric_limits<double>::infinity()), Microseconds::max());
  EXPECT_EQ(Microseconds::toSeconds(Microseconds(1500000)), 1.5);
  EXPECT_EQ(Microseconds::toSeconds(Microseconds(Microseconds::max())), 18446744073709551616.0 / 1e6);
  Microseconds time(Microseconds::max());
  EXPECT_EQ((time += 3).value(), 2U);
}

TEST(Values, TextsAreDigitsAndReadBack) {
  EXPECT_EQ(written(Microseconds(Microseconds::max())), "18446744073709551615");
  EXPECT_EQ(written(Microseconds(1500000)), "1500000");
  EXPECT_EQ(written(EntryIndexOrNull()), "500");
  EXPECT_EQ(written(EntryIndex(499)), "499");
  EXPECT_EQ(strepToValue<Microseconds>("18446744073709551615").value(), Microseconds::max());
  EXPECT_EQ(strepToValue<EntryIndex>("0499").value(), 499);
  EXPECT_TRUE(strepToValue<EntryIndexOrNull>("500").isNull());
  EXPECT_EQ(raised([] { strepToValue<Microseconds>("12x"); }), "junk at column 2 deserializing 12x");
  EXPECT_EQ(raised([] { strepToValue<EntryIndex>("7x"); }), "junk at column 1 deserializing 7x");
  EXPECT_EQ(raised([] { strepToValue<EntryIndexOrNull>("7x"); }), "junk at column 1 deserializing 7x");
  EXPECT_EQ(raised([] { strepToValue<EntryIndex>("500"); }), indexRange);
  EXPECT_EQ(raised([] { strepToValue<EntryIndexOrNull>("501"); }), indexOrNullRange);
  for (char const* text : {"", "-1", "x"}) {
    EXPECT_NE(raised([=] { strepToValue<Microseconds>(text); }).find("value"), std::string::npos);
    EXPECT_NE(raised([=] { strepToValue<EntryIndex>(text); }).find("value"), std::string::npos);
  }
  EXPECT_NE(raised([] { strepToValue<EntryIndexOrNull>("65536"); }).find("value"), std::string::npos);
  EXPECT_NE(raised([] { strepToValue<Microseconds>("18446744073709551616"); }).find("value"),
            std::string::npos);
}

TEST(Values, IndexesKeepWhatTheyReject) {
  EntryIndex index(498);
  EXPECT_EQ(index.valueInc(1), 499);
  EXPECT_EQ(raised([&] { index.valueInc(1); }), indexRange);
  EXPECT_EQ(index.value(), 500);
  EXPECT_EQ(index.valueInc(0), 500);
  EXPECT_EQ(raised([&] { index.valueIs(600); }), indexRange);
  EXPECT_EQ(index.value(), 600);
  EXPECT_EQ(raised([&] { index.valueIs(600); }), "");
  EXPECT_EQ(index.valueInc(65535 - 600 + 1), 0);  // modulo 2^16
  EntryIndexOrNull orNull;
  EXPECT_EQ(orNull, EntryIndexOrNull(500));
  EXPECT_NE(orNull, EntryIndexOrNull(499));
  EXPECT_EQ(raised([&] { orNull.valueIs(501); }), indexOrNullRange);
}

TEST(Values, Clocks) {
  Vorn::TestClock::Ptr const clock = Vorn::testClockFactory();
  EXPECT_EQ(clock->getTime(), 0.0);
  clock->timeIs(12.5);
  EXPECT_EQ(clock->getTime(), 12.5);
  EXPECT_EQ(clock->getUTCTime(), 0.0);
  clock->utcTimeIs(3.0);
  EXPECT_EQ(Vorn::Clock::Ptr(clock)->getUTCTime(), 3.0);
  Vorn::Clock::Ptr const real = Vorn::clockFactory();
  EXPECT_NEAR(real->getUTCTime(), static_cast<double>(std::time(nullptr)), 2.0);
  Kes::Seconds const before = real->getTime();
  EXPECT_LE(before, real->getTime());
}

TEST(Values, ShortNames) {
  std::pair<char const*, char const*> const names[] = {{"Ethernet3/1", "Et3/1"},
                                                       {"Fabric2", "Fc2"},
                                                       {"Port-Channel10", "Po10"},
                                                       {"Management1", "Ma1"},
                                                       {"Loopback0", "Lo0"},
                                                       {"Vlan100", "Vl100"},
                                                       {"Cpu0", "Cp0"},
                                                       {"Copp7", "Co7"},
                                                       {"eth0", "eth0"},
                                                       {"Ethernet", "Ethernet"},
                                                       {"Ethernetx1", "Ethernetx1"},
                                                       {"x", "x_"},
                                                       {"", ""}};
  for (auto const& [full, brief] : names) {
    Pylo::IntfId const id{Kes::String(full)};
    EXPECT_EQ(id.shortName(), brief);
    EXPECT_EQ(id.stringValue(), full);
    EXPECT_EQ(id, Pylo::IntfId(full));
    EXPECT_EQ(id.hash(), Pylo::IntfId(full).hash());
  }
  EXPECT_TRUE(Pylo::IntfId("").empty());
  EXPECT_EQ(Pylo::IntfId(""), Pylo::IntfId());
  EXPECT_NE(Pylo::IntfId("Ethernet1"), Pylo::IntfId("Et1"));
}

TEST(Values, Decisions) {
  auto const config = Kes::makePtr<Vorn::Config>();
  auto const status = Kes::makePtr<Vorn::Hardware::Status>();
  for (bool const byDefault : {false, true}) {
    status->vornEnabledByDefaultIs(byDefault);
    for (Kes::U8 enabled = 0; enabled < 4; ++enabled) {
      config->enabledIs(Vorn::Config::Enabled{enabled});
      EXPECT_EQ(isVornEnabled(config, status), enabled == 1 || (enabled == 0 && byDefault));
    }
  }
  status->defHighThresholdIs(70);
  status->defLowThresholdIs(7);
  for (bool const configured : {false, true}) {
    config->defaultThresholdsConfigIs({1000, 500, configured});
    EXPECT_EQ(getDefaultHighThreshold(config, status), configured ? 1000U : 70U);
    EXPECT_EQ(getDefaultLowThreshold(config, status), configured ? 500U : 7U);
  }
  for (char const* name : {"Cpu", "Cpu1", "Copp-x"})
    EXPECT_TRUE(Vorn::isVornCpuPort(Pylo::IntfId(name))) << name;
  for (char const* name : {"", "Ethernet1", "cpu1", "MyCpu", "Cop1"})
    EXPECT_FALSE(Vorn::isVornCpuPort(Pylo::IntfId(name))) << name;
}

// Message scanners match these to the letter.
TEST(Values, MessageCatalogue) {
  using namespace Vorn;
  std::string const all[] = {
      "LENGTH_OVER_THRESHOLD|6|%s|Interface queue length is over threshold.|none",
      "LENGTH_UNDER_THRESHOLD|6|Interface %s max queue length was %d, now back under low "
      "threshold of %d|Interface queue length is back under low threshold.|none",
      "LENGTH_UPDATE|6|%s|Interface queue length and queue drop update message.|none",
      "HW_RESOURCE_FULL|3|%s|The ASIC is unable to program all VORN configuration due to "
      "insufficient hardware resources.|Reconfigure VORN to reduce the amount of resources "
      "needed.",
      "UNEXPSEQNUM|4|Congestion message with un-expected sequence number is "
      "received%s|Reinitializing VORN processor state|support"};
  Kes::LogHandle const* const handles[] = {&QUEUEMONITOR_LENGTH_OVER_THRESHOLD,
                                           &QUEUEMONITOR_LENGTH_UNDER_THRESHOLD, &QUEUEMONITOR_LENGTH_UPDATE,
                                           &QUEUEMONITOR_HW_RESOURCE_FULL, &QUEUEMONITOR_UNEXPSEQNUM};
  for (std::size_t i = 0; i < 5; ++i) {
    Kes::LogHandle const& handle = *handles[i];
    std::string action = handle.recommendedAction();
    if (action == Kes::NoActionRequired) action = "none";
    if (action == Kes::CallSupportIfPersists) action = "support";
    EXPECT_EQ(Kes::format("%s|%d|%s|%s|%s", handle.name(), static_cast<int>(handle.severity()),
                          handle.format(), handle.explanation(), action),
              "QUEUEMONITOR_" + all[i]);
  }
}

}  // namespace
