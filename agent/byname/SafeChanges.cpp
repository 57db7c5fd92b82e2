// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/SafeChanges.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "Kes/ByName/GenericValue.h"
#include "agent/base/PoolLimit.h"
#include "agent/history/HistoryFormat.h"

namespace Agent {

namespace {

using Refuse = std::string (*)(Vorn::CongestionData const& recorder, Kes::String const& value);

struct Rule {
  std::string_view type;
  std::string_view attribute;
  std::string_view refusal = {};  // empty: allowed,
  Refuse refuseValue = nullptr;   // for values that this has nothing against
};

// Nothing for text that is no T: setting it will say so.
template <class T>
std::optional<T> readAs(Kes::String const& text) {
  try {
    return Kes::fromGeneric<T>(*Kes::toGeneric(text));
  } catch (Kes::RangeException const&) {
    return std::nullopt;
  }
}

std::string refusePoolSize(Vorn::CongestionData const&, Kes::String const& text) {
  auto const chunks = readAs<Kes::U32>(text);
  if (!chunks || (*chunks >= 1 && *chunks <= maxPoolChunks)) return "";
  return "a pool holds 1 to " + std::to_string(maxPoolChunks) + " chunks" +
         (*chunks == 0 ? "; without any, an interface whose first chunk is full could not be recorded" : "");
}

// The next message waits until the log interval has passed since this time.
std::string refuseFuture(Vorn::CongestionData const& recorder, Kes::String const& text) {
  auto const time = readAs<Kes::Seconds>(text);
  bool const passed = !time || (*time >= 0 && *time <= recorder.clock()->getUTCTime());
  return passed ? "" : "a time from 0 to now: a later one would silence all messages until then";
}

// A saved history would be none with it.
std::string refuseLongName(Vorn::CongestionData const&, Kes::String const& text) {
  if (text.view().size() <= HistoryFormat::longestName) return "";
  return "a name has " + std::to_string(HistoryFormat::longestName) + " bytes at most";
}

constexpr std::string_view link = "links between chunks are the recorder's own: a wrong one breaks the log";
constexpr std::string_view cursor = "it is a report's cursor, which each report sets up afresh";
constexpr std::string_view members = "members come and go with what is recorded, never by hand";
constexpr std::string_view records = "records come from the source alone, in the order of their times";

constexpr std::array rules = {
    Rule{"Vorn::CongestionData", "numSharedChunks", "", &refusePoolSize},
    Rule{"Vorn::CongestionData", "allocateGlobalChunk"},
    Rule{"Vorn::CongestionData", "globalBufferChunk",
         "the log of the global buffer stays for the agent's life"},
    Rule{"Vorn::CongestionData", "initialized", "the recorder is initialized once, when it is made"},
    Rule{"Vorn::CongestionData", "handleInitialized",
         "it runs once, when the recorder is made; twice ends the agent"},
    Rule{"Vorn::CongestionData", "allocateChunk", "it could take history away from another interface"},
    Rule{"Vorn::CongestionData", "handleCommand",
         "it would write into a descriptor of the agent's and close it"},
    Rule{"Vorn::CongestionData", "updateEntry", records},
    Rule{"Vorn::CongestionData", "doAddToLog", records},
    Rule{"Vorn::CongestionData", "doAddToGlobalLog", records},
    Rule{"Vorn::CongestionData", "portData", members},
    Rule{"Vorn::CongestionData", "chunkArray", members},

    Rule{"Vorn::PortData", "lastSyslogTime", "", &refuseFuture},
    Rule{"Vorn::PortData", "chunk", members},
    Rule{"Vorn::PortData", "portMetaData", members},
    Rule{"Vorn::PortData", "entryIndex",
         "it tells where the latest record of a queue stands: a wrong position ends the agent"},
    Rule{"Vorn::PortData", "mergeEntries", cursor},
    Rule{"Vorn::PortData", "chunkTobeMerged", cursor},
    Rule{"Vorn::PortData", "entryTobeMerged", cursor},

    Rule{"Vorn::Chunk", "prevChunk", link},
    Rule{"Vorn::Chunk", "nextChunk", link},
    Rule{"Vorn::Chunk", "intfId", "a chunk's owner changes with its log only"},
    Rule{"Vorn::Chunk", "doClear", "it would tear a chunk out of the log that holds it"},
    Rule{"Vorn::Chunk", "entry", members},

    Rule{"Vorn::GlobalBufferChunk", "lastSyslogTime", "", &refuseFuture},
    Rule{"Vorn::GlobalBufferChunk", "duration"},
    Rule{"Vorn::GlobalBufferChunk", "maxBuffer"},
    Rule{"Vorn::GlobalBufferChunk", "timeOfMaxBuffer"},
    Rule{"Vorn::GlobalBufferChunk", "counter"},
    Rule{"Vorn::GlobalBufferChunk", "entry", members},
    Rule{"Vorn::GlobalBufferChunk", "entryTobeMerged", cursor},
    Rule{"Vorn::GlobalBufferChunk", "numEntriesTobeMerged", cursor},

    Rule{"Vorn::PortMetaData", "counter"},
    Rule{"Vorn::PortMetaData", "maxQLen"},
    Rule{"Vorn::PortMetaData", "timeOfMaxQLen"},
    Rule{"Vorn::PortMetaData", "timeOfCongestionStart"},
    Rule{"Vorn::PortMetaData", "cardSlot"},
    Rule{"Vorn::PortMetaData", "chipIndex"},
    Rule{"Vorn::PortMetaData", "numCpuQueues"},
    Rule{"Vorn::PortMetaData", "fabricPeerIntf", "", &refuseLongName},

    Rule{"Vorn::Entry", "qLen", "a record's peak bound and latency belong to the queue length seen"},
    Rule{"Vorn::Entry", "duration", "a record tells what was seen; updates extend it"},
    Rule{"Vorn::Entry", "alwaysLog"},
    Rule{"Vorn::Entry", "doSyslog"},
    Rule{"Vorn::Entry", "timestamp", "records stand in the order of their times"},

    Rule{"Vorn::Clock", "getUTCTime"},
    Rule{"Vorn::Clock", "getTime"},
    Rule{"Vorn::Microseconds", "fromSeconds"},
    Rule{"Vorn::Microseconds", "toSeconds"},
    Rule{"Kes::PtrInterface", "hasNotificationActiveIs"},
    Rule{"Kes::PtrInterface", "kesDoZombieReactors"},
};

Rule const* ruleFor(DeclaredAttribute const& declared) {
  for (Kes::Type const* type = declared.type; type != nullptr; type = type->base()) {
    auto const rule = std::find_if(rules.begin(), rules.end(), [&](Rule const& candidate) {
      return candidate.type == type->name() && candidate.attribute == declared.attribute->name;
    });
    if (rule != rules.end()) return &*rule;
  }
  return nullptr;
}

// An untyped pointer or an object.
bool wantsPointer(Kes::Attribute const& attribute) {
  Kes::Operation const* const call = attribute.operation(Kes::OpCode::call);
  return call != nullptr &&
         std::any_of(call->arguments.begin(), call->arguments.end(), [](Kes::Argument const& argument) {
           return !argument.type().isValue() || &argument.type() == &Kes::GenericOf<Kes::VoidPtr>::type();
         });
}

}  // namespace

std::string refusalOf(Vorn::CongestionData const& recorder, DeclaredAttribute const& declared,
                      Kes::String const& value) {
  if (Rule const* const rule = ruleFor(declared)) {
    if (!rule->refusal.empty()) return std::string(rule->refusal);
    return rule->refuseValue != nullptr ? rule->refuseValue(recorder, value) : "";
  }
  if (wantsPointer(*declared.attribute)) return "it wants a pointer, which cannot be written as text";
  return "it is not among what may be changed while the agent runs";
}

}  // namespace Agent
