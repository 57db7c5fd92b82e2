#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Vorn/CommandOptions.h"
#include "tests/support.h"

// The recorder once more, as plainly as it can be said: values in vectors, nothing shared, every search a
// linear scan. Slow, and the measure of the real one.
namespace Model {

using Kes::U16;
using Kes::U32;
using Kes::U64;

struct Record {
  U32 qLen;
  U64 timestamp;
  U64 duration = 0;
  bool alwaysLog = false;
  Kes::S32 result = 0;
};

// Records in the order of their age, the k-th in slot (head + k) mod 500; an empty one is a hole.
struct Slots {
  U32 head = 0;
  std::deque<std::optional<Record>> records;

  U32 slot(std::size_t k) const { return static_cast<U32>((head + k) % Vorn::entriesPerChunk); }
  U32 tail() const { return slot(records.size() - 1); }
  Record* at(U32 slot);
  void del(U32 slot);
};

struct Chunk : Slots {
  U64 handedOut = 0;  // when, as a serial number: 0 for an interface's private first chunk
};

struct MetaData {
  U32 counter = 0;
  U64 start = 0;
};

struct Port {
  std::string name;
  std::vector<Chunk> chunks;
  std::map<U32, U32> slotUnderKey;
  Kes::Seconds lastSyslog = 0;
  std::map<U32, MetaData> metaData;
};

struct GlobalLog : Slots {
  Kes::Seconds lastSyslog = 0;
  U32 counter = 0;
  U16 next = 65535;  // report cursor
  U16 left = 0;
};

class Recorder {
 public:
  explicit Recorder(Test::Bench const& inputs)
      : config_(inputs.config), status_(inputs.status), clock_(inputs.clock) {}

  U32 numSharedChunks = 200;
  std::vector<Port> ports;
  std::optional<GlobalLog> global;
  std::vector<std::string> logged;

  Port* find(std::string const& name);
  Port& findOrMake(std::string const& name);
  void update(std::string const& name, Record const& record, U64 coalesceTime, U32 key);
  void append(std::string const& name, Record const& record);
  void appendGlobal(Record const& record);
  void del(std::string const& name);
  // Chunks in the pool, those of deleted ports included.
  std::size_t pooled() const;
  // Records held, in all logs.
  int records() const;

  // The report that the options ask for. `order` is the order in which the ports are met.
  std::string report(Vorn::CommandOptions const& options, std::vector<std::string> const& order);

 private:
  void judge(Kes::Seconds& lastSyslog, Kes::Seconds interval, std::string const& intf, Record const& record,
             bool always, Vorn::ThresholdsConfig const& thresholds);
  void takeOldestShared();

  std::string entryReport(Vorn::CommandOptions const& options, std::vector<std::string> const& order);
  std::string statistics() const;
  std::string globalReport();
  std::string mergeGlobal(Record const* before, bool ascending);
  std::string begin() const;

  Vorn::Config::Ptr const config_;
  Vorn::Hardware::Status::Ptr const status_;
  Vorn::TestClock::Ptr const clock_;
  std::vector<U64> free_;  // when the chunks of deleted ports had been handed out
  U64 handedOut_ = 0;
};

}  // namespace Model
