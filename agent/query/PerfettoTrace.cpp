// SPDX-License-Identifier: Apache-2.0
#include "agent/query/PerfettoTrace.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include "Kes/Hash.h"
#include "agent/base/Printable.h"
#include "agent/query/ProtobufMessage.h"
#include "agent/query/QueueSummary.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

// The numbers of the format's fields and the values of its enumerations, as far as they are written here.
namespace Trace {
constexpr U32 packet = 1;
}
namespace Packet {
constexpr U32 clockSnapshot = 6, timestamp = 8, sequenceId = 10, trackEvent = 11, internedData = 12,
              sequenceFlags = 13, defaults = 59, trackDescriptor = 60;
constexpr U64 stateCleared = 1, needsState = 2;
}  // namespace Packet
namespace PacketDefaults {
constexpr U32 trackEvent = 11, timestampClockId = 58;
}
namespace Snapshot {
constexpr U32 clocks = 1, primaryTraceClock = 2, clockId = 1, timestamp = 2;
constexpr U64 realtime = 1, monotonic = 3, boottime = 6;
}  // namespace Snapshot
namespace Track {
constexpr U32 uuid = 1, name = 2, parentUuid = 5, counter = 8, childOrdering = 11, siblingRank = 12;
constexpr U64 byRank = 3;
constexpr U32 counterUnit = 3;
constexpr U64 unitBytes = 3;
}  // namespace Track
namespace Event {
constexpr U32 annotations = 4, type = 9, nameId = 10, trackUuid = 11, counterValues = 12, counterTracks = 31;
constexpr U64 sliceBegin = 1, sliceEnd = 2;
}  // namespace Event
namespace Annotation {
constexpr U32 nameId = 1, boolValue = 2, uintValue = 3;
}
namespace Interned {
constexpr U32 eventNames = 2, annotationNames = 3, id = 1, name = 2;
}

// What slices are called, so that the viewer tells them apart by colour. Their numbers follow this order.
constexpr std::string_view sliceNames[] = {"burst", "burst with drops",
                                           "burst, its first records overwritten"};
constexpr U64 nameIdOf(RecordRow const& row) {
  return row.kind == RecordRow::Kind::start ? 3 : row.drops != 0 ? 2 : 1;
}

// What is measured or counted; the rest names the queue and the time, as track and slice do.
constexpr bool isFigure(ReportColumn<RecordRow> const& column) {
  switch (column.unit) {
    case Unit::flag:
    case Unit::packets:
    case Unit::bytes:
    case Unit::microseconds: return true;
    case Unit::name:
    case Unit::count:
    case Unit::moment:
    case Unit::second:
    case Unit::rfc3339:
    case Unit::millionths: return false;
  }
  return false;
}

U64 nanosecondsOf(clockid_t clock) {
  std::timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<U64>(time.tv_sec) * 1'000'000'000 + static_cast<U64>(time.tv_nsec);
}

class TraceWriter {
 public:
  explicit TraceWriter(std::FILE* out) : out_(out) {}

  void write(RecordSet const& records, TimeWindow const& window, Vorn::Clock const* clock) {
    writeClocks(clock);
    ProtobufMessage root;
    root.number(Track::uuid, rootUuid).text(Track::name, "vorn: queue congestion");
    root.number(Track::childOrdering, Track::byRank);
    put(ProtobufMessage().message(Packet::trackDescriptor, root));
    for (QueueSummary const& queue : summariesOf(records, window)) writeQueue(records, queue);
  }

 private:
  static constexpr U64 rootUuid = Kes::hashBytes("vorn");

  // Each packet belongs to the sequence that was begun last: what packets of one have in common is told at
  // its beginning.
  void put(ProtobufMessage& packet) {
    packet.number(Packet::sequenceId, sequence_);
    ProtobufMessage framed;
    framed.message(Trace::packet, packet);
    std::fwrite(framed.bytes().data(), 1, framed.bytes().size(), out_);
  }

  void writeClocks(Vorn::Clock const* clock) {
    ProtobufMessage snapshot;
    auto const add = [&snapshot](U64 id, U64 nanoseconds) {
      snapshot.message(
          Snapshot::clocks,
          ProtobufMessage().number(Snapshot::clockId, id).number(Snapshot::timestamp, nanoseconds));
    };
    if (clock != nullptr) {
      add(Snapshot::realtime, Vorn::Microseconds::fromSeconds(clock->getUTCTime()).value() * 1000);
      add(Snapshot::monotonic, nanosecondsOf(CLOCK_MONOTONIC));
      add(Snapshot::boottime, nanosecondsOf(CLOCK_BOOTTIME));
    } else {
      add(Snapshot::realtime, nanosecondsOf(CLOCK_REALTIME));
      snapshot.number(Snapshot::primaryTraceClock, Snapshot::realtime);
    }
    put(ProtobufMessage().message(Packet::clockSnapshot, snapshot));
  }

  // The identifiers follow from the queue's name, so that traces of one machine that are put together share
  // their tracks.
  void writeQueue(RecordSet const& records, QueueSummary const& queue) {
    ++sequence_;
    std::string const identity =
        queue.ofSum ? "sum of all queues"
                    : std::string(queue.interface) + ' ' + std::string(QueueName::ofKey(queue.queue).text());
    std::string const name = printable(identity);
    U64 const track = Kes::hashBytes("vorn/burst/" + identity);
    U64 const counter = Kes::hashBytes("vorn/peak/" + identity);
    writeTrack(track, name, ProtobufMessage());
    writeTrack(counter, name + " peak",
               ProtobufMessage().message(Track::counter,
                                         ProtobufMessage().number(Track::counterUnit, Track::unitBytes)));
    writeBeginning(track, counter);
    std::vector<RecordRow> rows;
    for (std::size_t const place : queue.records) rows.push_back(records[place]);
    std::stable_sort(rows.begin(), rows.end(),
                     [](RecordRow const& a, RecordRow const& b) { return a.timestamp < b.timestamp; });
    for (std::size_t i = 0; i < rows.size(); ++i) {
      bool const isLast = i + 1 == rows.size();
      U64 const end = rows[i].open ? ~U64{0} : rows[i].end();
      writeBurst(rows[i], isLast ? end : std::min(end, rows[i + 1].timestamp));
    }
  }

  void writeTrack(U64 uuid, std::string const& name, ProtobufMessage track) {
    track.number(Track::uuid, uuid).text(Track::name, name);
    track.number(Track::parentUuid, rootUuid).number(Track::siblingRank, ++tracks_);
    put(ProtobufMessage().message(Packet::trackDescriptor, track));
  }

  // What all events of the queue have in common.
  void writeBeginning(U64 track, U64 counter) {
    ProtobufMessage event;
    event.number(Event::trackUuid, track).number(Event::counterTracks, counter);
    ProtobufMessage names;
    auto const intern = [&names](U32 field, U64 id, std::string_view name) {
      names.message(field, ProtobufMessage().number(Interned::id, id).text(Interned::name, name));
    };
    U64 id = 0;
    for (std::string_view const name : sliceNames) intern(Interned::eventNames, ++id, name);
    for (std::size_t i = 0; i < recordColumns.size(); ++i)
      if (isFigure(recordColumns[i])) intern(Interned::annotationNames, i + 1, recordColumns[i].name);
    put(ProtobufMessage()
            .number(Packet::sequenceFlags, Packet::stateCleared)
            .message(Packet::internedData, names)
            .message(Packet::defaults, ProtobufMessage()
                                           .number(PacketDefaults::timestampClockId, Snapshot::realtime)
                                           .message(PacketDefaults::trackEvent, event)));
  }

  void writeBurst(RecordRow const& row, U64 end) {
    ProtobufMessage begin;
    begin.number(Event::type, Event::sliceBegin).number(Event::nameId, nameIdOf(row));
    begin.number(Event::counterValues, row.length);
    for (std::size_t i = 0; i < recordColumns.size(); ++i) {
      if (!isFigure(recordColumns[i])) continue;
      ReportValue const value = recordColumns[i].value(row);
      auto const* const number = std::get_if<U64>(&value);
      bool const isFlag = recordColumns[i].unit == Unit::flag;
      if (number == nullptr || (isFlag && *number == 0)) continue;
      U32 const field = isFlag ? Annotation::boolValue : Annotation::uintValue;
      begin.message(Event::annotations,
                    ProtobufMessage().number(Annotation::nameId, i + 1).number(field, *number));
    }
    putEvent(row.timestamp, begin);
    if (end == ~U64{0}) return;
    putEvent(end, ProtobufMessage().number(Event::type, Event::sliceEnd).number(Event::counterValues, 0));
  }

  void putEvent(U64 microseconds, ProtobufMessage const& event) {
    put(ProtobufMessage()
            .number(Packet::timestamp, microseconds * 1000)
            .number(Packet::sequenceFlags, Packet::needsState)
            .message(Packet::trackEvent, event));
  }

  std::FILE* const out_;
  U64 sequence_ = 1;
  U64 tracks_ = 0;
};

}  // namespace

void writePerfettoTrace(RecordSet const& records, TimeWindow const& window, Vorn::Clock const* clock,
                        std::FILE* out) {
  TraceWriter(out).write(records, window, clock);
}

}  // namespace Agent
