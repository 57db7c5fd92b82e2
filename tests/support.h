// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Vorn/Vorn.h"

// What the tests of the recorder share: a record and a metadata writer that write plain lines, and a recorder
// with a clock that stands still.
namespace Test {

using Kes::S32;
using Kes::U16;
using Kes::U32;
using Kes::U64;

// The text of the range exception that an operation raises; nothing when it raises none.
template <class Operation>
std::string raised(Operation operation) {
  try {
    operation();
  } catch (Kes::RangeException const& exception) {
    return exception.what();
  }
  return "";
}

// Does the same at a time in two threads, numbered 0 and 1, with pointers that may be shared.
inline void inTwoThreads(std::function<void(unsigned which)> const& work) {
  Kes::threadSafePtrsIs(true);
  std::thread other(work, 1);
  work(0);
  other.join();
  Kes::threadSafePtrsIs(false);
}

inline Vorn::Microseconds us(U64 count) { return Vorn::Microseconds(count); }

// The lines of the writers below, "KIND TIME INTERFACE QLEN DURATION" and "start FORM INTERFACE IDENTIFIER".
inline std::string recordLine(char const* kind, std::string const& time, std::string const& intf, U32 qLen,
                              U64 duration) {
  return std::string(kind) + ' ' + time + ' ' + intf + ' ' + std::to_string(qLen) + ' ' +
         std::to_string(duration) + '\n';
}
inline std::string startLine(bool csv, std::string const& intf, U32 identifier) {
  return (csv ? "start csv " : "start text ") + intf + ' ' + std::to_string(identifier) + '\n';
}
// What the writer of start records returns: only 0 counts as a line.
inline S32 startResult(U32 identifier) { return identifier == 2 ? 1 : 0; }

// A platform's record.
class TestEntry final : public Vorn::Entry {
 public:
  using Ptr = Kes::Ptr<TestEntry>;
  TestEntry(U32 qLen, U64 timestamp) : Entry(qLen, us(timestamp)) { ++alive; }

  static inline int alive = 0;
  S32 result = 0;  // what all its writers return
  std::function<void()> onSyslog;
  std::function<void()> onDestroy;

  S32 dumpEntry(Kes::VoidPtr file, Kes::CharPtrConst time, Kes::CharPtrConst intf, bool csv) const override {
    return write(file, csv ? "csv" : "text", time, intf);
  }
  S32 dumpDrops(Kes::VoidPtr file, Kes::CharPtrConst time, Kes::CharPtrConst intf) const override {
    return write(file, "drops", time, intf);
  }
  S32 dumpTxLatency(Kes::VoidPtr file, Kes::CharPtrConst time, Kes::CharPtrConst intf) const override {
    return write(file, "latency", time, intf);
  }
  S32 dumpGlobalBuffer(Kes::VoidPtr file, Kes::CharPtrConst time) const override {
    return write(file, "global", time, "-");
  }
  void entryToGpbRecord(Kes::VoidPtr file) const override { write(file, "record", "-", "-"); }
  void entryToGpbGlobalBufferRecord(Kes::VoidPtr file) const override {
    write(file, "global record", "-", "-");
  }
  void doSyslog(Kes::CharPtrConst intf, U32 low, U32 high) const override {
    Entry::doSyslog(intf, low, high);
    if (onSyslog) onSyslog();
  }

 protected:
  ~TestEntry() override {
    --alive;
    if (onDestroy) onDestroy();
  }

 private:
  S32 write(Kes::VoidPtr file, char const* kind, char const* time, char const* intf) const {
    std::fputs(recordLine(kind, time, intf, qLen(), duration().value()).c_str(),
               static_cast<std::FILE*>(file));
    return result;
  }
};

inline TestEntry::Ptr record(U32 qLen, U64 timestamp) { return Kes::makePtr<TestEntry>(qLen, timestamp); }

class TestDumper final : public Vorn::PortMetaDataDumper {
  S32 dumpStartMetaData(Vorn::PortMetaData const* data, Kes::VoidPtr stream, bool csv) const override {
    std::fputs(startLine(csv, data->intfId().shortName().str(), data->identifier()).c_str(),
               static_cast<std::FILE*>(stream));
    return startResult(data->identifier());
  }
};

// Written around every report: conversions in them must come out as they are.
constexpr char header[] = "header %s %n\n";
constexpr char footer[] = "footer %d\n";

// The system log and the traces, as "NAME: TEXT" and "LEVEL TEXT", since the latest Bench was made.
inline std::vector<std::string> logged;
inline std::vector<std::string> traced;

// A recorder and its inputs. A host has one; a test may make several, one after the other.
struct Bench {
  Bench() {
    logged.clear();
    traced.clear();
    Kes::logSinkIs([](Kes::LogHandle const& handle, Kes::String const& text) {
      logged.push_back(std::string(handle.name()) + ": " + text.str());
    });
    Kes::traceSinkIs([](Kes::TraceHandle const&, U32 level, std::string_view line) {
      traced.push_back(std::to_string(level) + ' ' + std::string(line));
    });
  }

  Vorn::PortData::Ptr port(char const* name) const { return recorder->portData(Pylo::IntfId(name)); }
  void append(char const* name, Vorn::Entry::Ptr const& entry) {
    recorder->doAddToLog(Pylo::IntfId(name), entry);
  }
  void update(char const* name, U32 qLen, U64 timestamp, U64 coalesceTime, U32 key) {
    recorder->updateEntry(Pylo::IntfId(name), record(qLen, timestamp), us(coalesceTime), key);
  }
  // Appends records of one queue length, a microsecond apart: by default as many as fill a chunk.
  void fill(char const* name, U32 qLen, U32 count = Vorn::entriesPerChunk) {
    for (U32 i = 0; i < count; ++i) append(name, record(qLen, ++time));
  }
  // Whatever `write` writes into a stream.
  static std::string written(std::function<void(std::FILE*)> const& write) {
    struct Memory {
      ~Memory() {
        std::fclose(stream);
        std::free(text);
      }
      char* text = nullptr;
      std::size_t size = 0;
      std::FILE* stream = open_memstream(&text, &size);
    } memory;
    write(memory.stream);
    std::fflush(memory.stream);
    return {memory.text, memory.size};
  }
  std::string report(std::string const& command) {
    return written([&](std::FILE* out) { recorder->doMergeAndDumpEntries(out, command, header, footer); });
  }

  U64 time = 1000;
  Vorn::Config::Ptr config = Kes::makePtr<Vorn::Config>();
  Vorn::Hardware::Status::Ptr status = Kes::makePtr<Vorn::Hardware::Status>();
  Vorn::TestClock::Ptr clock = Vorn::testClockFactory();
  Vorn::CongestionData::Ptr recorder =
      Kes::makePtr<Vorn::CongestionData>(status, clock, config, Kes::makePtr<TestDumper>());
};

}  // namespace Test
