// SPDX-License-Identifier: Apache-2.0
// Pointers, texts, numbers in texts, logs and traces.

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>

#include "Kes/Format.h"
#include "Kes/Log.h"
#include "Kes/Ptr.h"
#include "Kes/Strep.h"
#include "Kes/Trace.h"
#include "tests/support.h"

namespace {

using Kes::format;
using Kes::U32;
using Kes::U64;

struct Object : Kes::PtrInterface {
  explicit Object(int& destroyed) : destroyed_(destroyed) {}
  ~Object() override { ++destroyed_; }
  Kes::Ptr<Object> next;

 private:
  int& destroyed_;
};
struct Derived final : Object {
  using Object::Object;
};

TEST(Ptr, CountsEveryHolderOnce) {
  int destroyed = 0;
  Kes::Ptr<Derived> first = Kes::makePtr<Derived>(destroyed);
  EXPECT_EQ(first->fwkType(), "Kes::PtrInterface");
  {
    Kes::Ptr<Object const> const base = first;
    Kes::Ptr<Derived> copy(first);
    Kes::Ptr<Object> const moved(std::move(copy));
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(moved, first);
    EXPECT_EQ(first->ptrCount(), 3U);
  }
  Kes::Ptr<Derived>& self = first;
  first = self;
  first = std::move(self);
  EXPECT_EQ(first->ptrCount(), 1U);
  EXPECT_EQ(destroyed, 0);
  first = nullptr;
  EXPECT_EQ(destroyed, 1);

  // Assigning what only the old object holds.
  Kes::Ptr<Object> list = Kes::makePtr<Object>(destroyed);
  list->next = Kes::makePtr<Object>(destroyed);
  list = list->next;
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(list->ptrCount(), 1U);
}

TEST(Ptr, DereferencingNullIsAnAssertion) {
  Kes::Ptr<Object> const null;
  EXPECT_DEATH(null->ptrCount(), "Kes: .*assertion failed");
  EXPECT_DEATH((*null).ptrCount(), "Kes: .*assertion failed");
}

TEST(Ptr, CountsAcrossThreadsOnceSwitched) {
  int destroyed = 0;
  Kes::Ptr<Object> const shared = Kes::makePtr<Object>(destroyed);
  std::atomic<int> ready = 0;
  ::Test::inTwoThreads([&](unsigned) {
    for (++ready; ready != 2;) std::this_thread::yield();
    for (int i = 0; i < 3'000'000; ++i) Kes::Ptr<Object>(shared)->ptrAcquire(), shared->ptrRelease();
  });
  EXPECT_EQ(shared->ptrCount(), 1U);
}

// Where the C library would be right, it is asked: by the harness of formats.
TEST(Text, FormatNeverMisreadsAnArgument) {
  EXPECT_EQ(format("%s: %d, %d", "x", 4294967295U, -1), "x: 4294967295, -1");
  EXPECT_EQ(format("%u %lld %hhu", U64{ULLONG_MAX}, LLONG_MIN, 300),
            "18446744073709551615 -9223372036854775808 300");
  EXPECT_EQ(format("%s %d", static_cast<char const*>(nullptr)), "(null) (missing)");
  EXPECT_EQ(format("%d %s %f 100%% %", "text", 7, Kes::String("s"), 1), "text 7 s 100% %");
  EXPECT_EQ(format("%n", 1).size(), 1U);  // printed, not stored through
  EXPECT_LE(format("%999999999d", 1).size(), 4096U);
}

std::vector<std::string> lines;
std::string systemLine;

}  // namespace

// Stand in for the system's, also where calls are fortified.
[[gnu::format(printf, 2, 0)]] static void takeLine(int priority, char const* format, va_list arguments) {
  char text[100];
  std::vsnprintf(text, sizeof text, format, arguments);
  systemLine = std::to_string(priority) + ' ' + text;
}
extern "C" [[gnu::visibility("default"), gnu::format(printf, 2, 3)]] void syslog(int priority,
                                                                                 char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  takeLine(priority, format, arguments);
  va_end(arguments);
}
extern "C" [[gnu::visibility("default"), gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int,
                                                                                       char const* format,
                                                                                       ...) {
  va_list arguments;
  va_start(arguments, format);
  takeLine(priority, format, arguments);
  va_end(arguments);
}

namespace {

TEST(Log, KeysAndRateLimit) {
  lines.clear();
  Kes::logSinkIs([](Kes::LogHandle const& handle, Kes::String const& text) {
    lines.push_back(std::string(handle.name()) + ": " + text.str());
  });
  Kes::LogHandle limited("LIMITED", Kes::LogSeverity::warning, "%s%s %d", "", "", 3600.0, 2.0, 2);
  for (int i = 0; i < 5; ++i) {
    Kes::log(limited, "ab", "c", i);
    Kes::log(limited, "a", "bc", i);  // another key, though the same letters
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"LIMITED: abc 0", "LIMITED: abc 0", "LIMITED: abc 1",
                                             "LIMITED: abc 1"}));
  Kes::LogHandle free("FREE", Kes::LogSeverity::warning, "%s", "", "", 0.0, 1.0, 0);
  lines.clear();
  for (int i = 0; i < 1000; ++i) Kes::log(free, "same");
  EXPECT_EQ(lines.size(), 1000U);
  // A window of 50 ms opens again, and again.
  Kes::LogHandle brief("BRIEF", Kes::LogSeverity::warning, "%s", "", "", 0.05, 1.0, 0);
  lines.clear();
  for (Kes::Seconds const end = Kes::now() + 0.2; Kes::now() < end;) Kes::log(brief, "same");
  EXPECT_GE(lines.size(), 3U);
  EXPECT_LE(lines.size(), 5U);
  // Threads share the windows.
  static std::atomic<int> written = 0;
  Kes::logSinkIs([](Kes::LogHandle const&, Kes::String const&) { ++written; });
  ::Test::inTwoThreads([&](unsigned) {
    for (int i = 0; i < 40'000; ++i) Kes::log(limited, i / 2, "thread");
  });
  EXPECT_EQ(written, 40'000);  // two of a key, however many others come in between
  Kes::logSinkIs(nullptr);
  Kes::log(free, "to the system");
  EXPECT_EQ(systemLine, "4 FREE: to the system");
}

TEST(Trace, EvaluatesOnlyWhatIsOn) {
  lines.clear();
  Kes::traceSinkIs([](Kes::TraceHandle const& handle, U32 level, std::string_view line) {
    lines.push_back(std::string(handle.name()) + std::to_string(level) + std::string(line));
  });
  Kes::TraceHandle handle("T", false);
  int evaluated = 0;
  for (U32 level = 0; level <= 9; ++level) KES_TRACE(handle, level, " n " << ++evaluated);
  EXPECT_EQ(evaluated, 1);
  handle.levelIs(9, true);
  handle.levelIs(0, false);
  handle.levelIs(32, true);
  for (U32 level = 0; level <= 99; ++level) KES_TRACE(handle, level, " n " << ++evaluated);
  EXPECT_EQ(lines, (std::vector<std::string>{"T0 n 1", "T9 n 2"}));
  Kes::traceSinkIs([](Kes::TraceHandle const&, U32, std::string_view) { throw std::bad_alloc(); });
  EXPECT_NO_THROW(KES_TRACE(handle, 9, "lost"));
  Kes::traceSinkIs(nullptr);
}

}  // namespace
