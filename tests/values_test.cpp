// SPDX-License-Identifier: Apache-2.0
// Values, clocks, identifiers, messages and the decisions over the configuration.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "Vorn/GenericIf.h"
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
  EXPECT_EQ(Vorn::testClockFactory()->getUTCTime() + Vorn::testClockFactory()->getTime(), 0.0);
  // Numbers beyond 2^63 are numbers still.
  std::pair<double, Kes::U64> const cases[] = {
      {0.0, 0},  {4.35, 4349999},   {1e13, 10000000000000000000U},  {1e14, Microseconds::max()},
      {-1.0, 0}, {std::nan(""), 0}, {INFINITY, Microseconds::max()}};
  for (auto const& [seconds, expected] : cases)
    EXPECT_EQ(Microseconds::fromSeconds(seconds).value(), expected) << seconds;
  EXPECT_EQ(Microseconds::toSeconds(Microseconds(1500000)), 1.5);
  EXPECT_EQ(Microseconds::toSeconds(Microseconds(Microseconds::max())), 18446744073709551616.0 / 1e6);
  EXPECT_EQ((Microseconds(Microseconds::max()) += 3).value(), 2U);
}

TEST(Values, TextsAreDigitsAndReadBack) {
  EXPECT_EQ(written(Microseconds(Microseconds::max())), "18446744073709551615");
  EXPECT_EQ(written(EntryIndexOrNull()), "500");
  EXPECT_TRUE(Vorn::PortData::GenericIf_(Kes::Ptr<Vorn::PortData const>()).constant());
  EXPECT_NE(raised([] { Kes::fromGeneric<Kes::Seconds>(*Kes::toGeneric("1e999")); }), "");
  EXPECT_EQ(Kes::Text<Kes::S32>::write(-5), "-5");
  EXPECT_EQ(strepToValue<Microseconds>("18446744073709551615").value(), Microseconds::max());
  EXPECT_TRUE(strepToValue<EntryIndexOrNull>("500").isNull());
  EXPECT_EQ(raised([] { strepToValue<Microseconds>("12x"); }), "junk at column 2 deserializing 12x");
  EXPECT_EQ(raised([] { strepToValue<EntryIndex>("500"); }), indexRange);
  EXPECT_EQ(raised([] { strepToValue<EntryIndexOrNull>("501"); }), indexOrNullRange);
  for (char const* text : {"", "-1", "+1", " 1", "x", "18446744073709551616"})
    EXPECT_NE(raised([=] { strepToValue<Microseconds>(text); }).find("value"), std::string::npos);
  EXPECT_NE(raised([] { strepToValue<EntryIndexOrNull>("65536"); }).find("value"), std::string::npos);
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
  auto const global = Kes::makePtr<Vorn::GlobalBufferChunk>();
  auto const port = Vorn::portMetaDataFactory(1, Pylo::IntfId("A1"));
  for (U32 const value : {~U32{0}, 2U}) EXPECT_EQ(global->counterInc(value), port->counterInc(value));
  EXPECT_TRUE(global->counter() == 1 && port->counter() == 1);
  EXPECT_EQ(raised([&] { orNull.valueIs(501); }), indexOrNullRange);
}

TEST(Values, TheOperatorsWordGoesBeforeTheHardwares) {
  using Enabled = Vorn::Config::Enabled;
  auto const config = Kes::makePtr<Vorn::Config>();
  auto const status = Kes::makePtr<Vorn::Hardware::Status>();
  EXPECT_EQ(status->defHighThreshold() + status->defLowThreshold(), 0U);
  std::string enabled = std::to_string(Vorn::isVornEnabled(config, status));
  for (bool const byDefault : {true, false})
    for (Enabled const word : {Enabled::notConfigured, Enabled::enabled, Enabled::disabled}) {
      status->vornEnabledByDefaultIs(byDefault);
      config->enabledIs(word);
      enabled += std::to_string(Vorn::isVornEnabled(config, status));
    }
  EXPECT_EQ(enabled, "0110010");
  auto const highOf = [&](char const* name) {
    return Vorn::portThresholds(config, status, Pylo::IntfId(name)).high;
  };
  config->portConfigIs("Ethernet1", {.highThreshold = 7, .lowThreshold = 3});
  EXPECT_EQ(highOf("Ethernet1"), 7U);
  EXPECT_EQ(highOf("Ethernet2"), status->defHighThreshold());
}

TEST(Values, ShortNames) {
  // clang-format off
  std::pair<char const*, char const*> const names[] = {
      {"Ethernet3/1", "Et3/1"}, {"Fabric2", "Fc2"}, {"Port-Channel10", "Po10"}, {"Management1", "Ma1"},
      {"Loopback0", "Lo0"}, {"Vlan100", "Vl100"}, {"Cpu0", "Cp0"}, {"Copp7", "Co7"}, {"eth0", "eth0"},
      {"Ethernet", "Ethernet"}, {"Ethernetx1", "Ethernetx1"}, {"x", "x_"}, {"", ""}};
  // clang-format on
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

}  // namespace
