// Types and attributes by name: what is registered, and that by-name access does what the C++ operations do.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>

#include "Kes/ByName/TypeRegistry.h"
#include "Vorn/GenericIf.h"
#include "Vorn/Registration.h"
#include "tests/support.h"

namespace {

using Kes::GenericArgs;
using Kes::GenericIf;
using Kes::OpCode;
using Kes::toGeneric;
using Kes::U32;
using std::string;

// As an operator's documentation would list them, a line an attribute.
constexpr char expectedTypes[] =
    R"(Vorn::Microseconds value; 2 value mutable U64; 3 min constant U64; 4 max constant U64;
5 microsecondsInSecond constant U64; 6 fromSeconds function Vorn::Microseconds (seconds Kes::Seconds);
7 toSeconds function Kes::Seconds (usec Vorn::Microseconds);
Vorn::Entry object Kes::PtrInterface; 130 qLen mutable U32; 131 timestamp mutable Vorn::Microseconds;
132 duration mutable Vorn::Microseconds; 133 alwaysLog mutable bool;
134 dumpEntry function int (filePtr Kes::VoidPtr)(elapsedTime Kes::CharPtrConst)(intfName Kes::CharPtrConst)(cvsFormat bool);
135 dumpDrops function int (filePtr Kes::VoidPtr)(elapsedTime Kes::CharPtrConst)(intfName Kes::CharPtrConst);
136 doSyslog function void (intfName Kes::CharPtrConst)(lowThreshold U32)(highThreshold U32);
137 dumpTxLatency function int (filePtr Kes::VoidPtr)(elapsedTime Kes::CharPtrConst)(intfName Kes::CharPtrConst);
138 dumpGlobalBuffer function int (filePtr Kes::VoidPtr)(elapsedTime Kes::CharPtrConst);
139 entryToGpbRecord function void (recordPtr Kes::VoidPtr);
140 entryToGpbGlobalBufferRecord function void (recordPtr Kes::VoidPtr);
Vorn::EntryIndex value; 2 value mutable U16; 3 max constant U16;
Vorn::EntryIndexOrNull value; 2 value mutable U16; 3 null constant U16;
Vorn::Chunk object Kes::PtrInterface; 130 prevChunk mutable Vorn::Chunk; 131 nextChunk mutable Vorn::Chunk;
132 intfId mutable Pylo::IntfId; 133 entry collection Vorn::EntryIndex of Vorn::Entry; 134 doClear procedure void;
Vorn::GlobalBufferChunk object Kes::PtrInterface; 130 entry collection Vorn::EntryIndex of Vorn::Entry;
131 entryTobeMerged mutable U16; 132 numEntriesTobeMerged mutable U16; 133 duration mutable Vorn::Microseconds;
134 maxBuffer mutable U32; 135 timeOfMaxBuffer mutable Vorn::Microseconds;
136 lastSyslogTime mutable Kes::Seconds; 137 counter mutable U32;
Vorn::PortMetaData object Kes::PtrInterface by identifier; 130 identifier fixed U32; 131 counter mutable U32;
132 intfId fixed Pylo::IntfId; 133 maxQLen mutable U32; 134 timeOfMaxQLen mutable Vorn::Microseconds;
135 timeOfCongestionStart mutable Vorn::Microseconds; 136 cardSlot mutable U8; 137 chipIndex mutable U8;
138 numCpuQueues mutable U8; 139 fabricPeerIntf mutable Pylo::IntfId;
Vorn::PortMetaDataDumper object Kes::PtrInterface;
130 dumpStartMetaData function int (portMetaData Vorn::PortMetaData)(filePtr Kes::VoidPtr)(csvFormat bool);
131 dumpStatistics function int (portMetaData Vorn::PortMetaData)(filePtr Kes::VoidPtr);
Vorn::PortData object Kes::PtrInterface by intfId; 130 intfId fixed Pylo::IntfId;
131 chunk collection U32 of Vorn::Chunk; 132 lastSyslogTime mutable Kes::Seconds; 133 mergeEntries mutable bool;
134 chunkTobeMerged mutable Vorn::Chunk; 135 entryTobeMerged mutable U16;
136 entryIndex collection U32 of Vorn::EntryIndexOrNull; 137 portMetaData owned collection U32 of Vorn::PortMetaData;
Vorn::Clock object Kes::PtrInterface; 130 getUTCTime procedure Kes::Seconds; 131 getTime procedure Kes::Seconds;
Vorn::TestClock object Vorn::Clock; 258 getUTCTime procedure Kes::Seconds; 259 getTime procedure Kes::Seconds;
260 utcTime mutable Kes::Seconds; 261 time mutable Kes::Seconds;
Vorn::CongestionData object Kes::PtrInterface; 130 vornHwStatus fixed Vorn::Hardware::Status;
131 clock fixed Vorn::Clock; 132 vornConfig fixed Vorn::Config; 133 portMetaDataDumper fixed Vorn::PortMetaDataDumper;
134 portData owned collection Pylo::IntfId of Vorn::PortData; 135 chunkArray collection U32 of Vorn::Chunk;
136 numSharedChunks mutable U32; 137 globalBufferChunk mutable Vorn::GlobalBufferChunk;
138 allocateChunk function Vorn::Chunk (intfId Pylo::IntfId);
139 updateEntry function Vorn::Microseconds (intfId Pylo::IntfId)(entry Vorn::Entry)(coalesceTime Vorn::Microseconds)(entryKey U32);
140 doAddToLog function Vorn::Microseconds (intfId Pylo::IntfId)(entry Vorn::Entry);
141 doAddToGlobalLog function Vorn::Microseconds (entry Vorn::Entry); 142 allocateGlobalChunk procedure void;
143 doMergeAndDumpEntries function void (voidPtr Kes::VoidPtr)(cmd Kes::String)(reportHeader Kes::String)(footer Kes::String);
144 doDumpEntriesInCSVFormat function int (voidPtr Kes::VoidPtr)(reportHeader Kes::String)(footer Kes::String)(showAll bool);
145 handleCommand function void (socket U32)(command Kes::String)(reportHeader Kes::String)(footer Kes::String);
146 doDumpStatistics function void (voidPtr Kes::VoidPtr)(reportHeader Kes::String)(footer Kes::String);
147 doDumpGlobalBufferChunk function void (voidPtr Kes::VoidPtr)(reportHeader Kes::String)(footer Kes::String);
148 doMergeAndDumpGlobalChunk function void (filePtr Kes::VoidPtr)(entryPtr Vorn::Entry)(csv bool);
149 initialized mutable bool; 150 handleInitialized procedure void;
)";

string listingOf(Kes::Attribute const& attribute) {
  constexpr char const* kinds[] = {"mutable", "fixed", "constant", "procedure", "function", "collection"};
  string line = std::to_string(attribute.identifier) + ' ' + string(attribute.name) + ' ';
  line += (attribute.owned ? "owned " : "") + string(kinds[static_cast<int>(attribute.kind)]) + ' ';
  if (attribute.keyType != nullptr) line += string(attribute.keyType().name()) + " of ";
  line += attribute.type != nullptr ? attribute.type().name() : "void";
  Kes::Operation const* const call = attribute.operation(OpCode::call);
  if (call != nullptr && !call->arguments.empty()) line += ' ';
  for (auto const& argument : call != nullptr ? call->arguments : std::vector<Kes::Argument>())
    line += '(' + string(argument.name) + ' ' + string(argument.type().name()) + ')';
  return line + ';';
}

TEST(Registry, Types_inOrderWithAllTheirAttributes) {
  std::istringstream in(expectedTypes);
  std::vector<string> expected;
  for (string part; std::getline(in >> std::ws, part, ';');) expected.push_back(part + ';');
  std::vector<string> actual;
  EXPECT_FALSE(Kes::GenericOf<U32>::type().hasGenericIf() ||
               Kes::GenericOf<Vorn::Config>::type().hasGenericIf());
  for (Kes::Type const* const type : Kes::TypeRegistry::instance().types().subspan(1)) {
    EXPECT_TRUE(type->hasGenericIf()) << type->name();
    string const base = type->base() != nullptr ? ' ' + string(type->base()->name()) : "";
    string const key = type->keyAttribute().empty() ? "" : " by " + string(type->keyAttribute());
    actual.push_back(string(type->name()) + (type->isValue() ? " value" : " object") + base + key + ';');
    for (Kes::Attribute const& attribute : type->attributes()) actual.push_back(listingOf(attribute));
  }
  EXPECT_EQ(actual, expected);
  EXPECT_TRUE(Vorn::typesRegistered() && Vorn::initialisationDone());
}

GenericIf::Ptr perform(GenericIf::Ptr const& object, string const& name, OpCode code,
                       GenericArgs const& args = {}) {
  return object->attributeOp({object->attributeId(name), code}, args);
}
GenericIf::Ptr get(GenericIf::Ptr const& object, string const& name) {
  return perform(object, name, OpCode::read);
}
void set(GenericIf::Ptr const& object, string const& name, GenericIf::Ptr const& value) {
  perform(object, name, OpCode::set, {{"value", value}});
}
GenericIf::Ptr call(GenericIf::Ptr const& object, string const& name, GenericArgs const& args = {}) {
  return perform(object, name, OpCode::call, args);
}

// Objects by their address, values by their text.
string shown(Kes::PtrInterface const* object) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(object));
}
string shown(GenericIf::Ptr const& value) {
  auto const* const pointer = dynamic_cast<Kes::GenericPtrIf const*>(value.get());
  return pointer != nullptr ? shown(pointer->object()) : value->strRep().str();
}
template <class T>
string shown(Kes::Ptr<T> const& object) {
  return shown(object.get());
}
template <class T>
string shown(T const& value) {
  return Kes::Text<T>::write(value).str();
}

// Another value than any attribute has at first.
GenericIf::Ptr fresh(Kes::Type const& type) {
  static Vorn::Chunk::Ptr const chunk = Vorn::Chunk::ChunkIs();
  static auto const global = Kes::makePtr<Vorn::GlobalBufferChunk>();
  if (type.shortName() == "Chunk") return toGeneric(chunk);
  if (type.shortName() == "GlobalBufferChunk") return toGeneric(global);
  return toGeneric(type.shortName() == "bool" ? "true" : type.shortName() == "Seconds" ? "2.5" : "77");
}

TEST(Registry, Attributes_readAndSetWhatTheAccessorsTell) {
  ::Test::Bench bench;
  auto const& recorder = bench.recorder;
  recorder->initializedIs(false);
  bench.append("eth0", ::Test::record(5, 9));
  auto const port = bench.port("eth0");
  Vorn::Entry::Ptr const entry = ::Test::record(5, 9);
  Vorn::Chunk::Ptr const chunk(port->chunkTail());
  auto const global = Kes::makePtr<Vorn::GlobalBufferChunk>();
  auto const data = Vorn::portMetaDataFactory(3, Pylo::IntfId("eth0"));
  auto const usec = Kes::makePtr<Vorn::Microseconds::GenericIf_>(Vorn::Microseconds(5));
  auto const index = Kes::makePtr<Vorn::EntryIndex::GenericIf_>(Vorn::EntryIndex(5));
  auto const indexOrNull = Kes::makePtr<Vorn::EntryIndexOrNull::GenericIf_>(Vorn::EntryIndexOrNull());
  std::map<string, GenericIf::Ptr> const samples = {{"Microseconds", usec},
                                                    {"EntryIndex", index},
                                                    {"EntryIndexOrNull", indexOrNull},
                                                    {"Entry", toGeneric(entry)},
                                                    {"Chunk", toGeneric(chunk)},
                                                    {"GlobalBufferChunk", toGeneric(global)},
                                                    {"Clock", nullptr},
                                                    {"PortMetaDataDumper", nullptr},
                                                    {"PortMetaData", toGeneric(data)},
                                                    {"PortData", toGeneric(port)},
                                                    {"TestClock", toGeneric(bench.clock)},
                                                    {"CongestionData", toGeneric(recorder)}};
#define ACCESSOR(Type, object, attribute)                            \
  {                                                                  \
#Type "." #attribute, [&] { return shown(object->attribute()); } \
  }
  std::map<string, std::function<string()>> const accessors = {
      {"Microseconds.value", [&] { return shown(usec->value().value()); }},
      {"Microseconds.min", [] { return "0"; }},
      {"Microseconds.max", [] { return "18446744073709551615"; }},
      {"Microseconds.microsecondsInSecond", [] { return "1000000"; }},
      {"EntryIndex.value", [&] { return shown(index->value().value()); }},
      {"EntryIndex.max", [] { return "499"; }},
      {"EntryIndexOrNull.value", [&] { return shown(indexOrNull->value().value()); }},
      {"EntryIndexOrNull.null", [] { return "500"; }},
      ACCESSOR(Entry, entry, qLen),
      ACCESSOR(Entry, entry, timestamp),
      ACCESSOR(Entry, entry, duration),
      ACCESSOR(Entry, entry, alwaysLog),
      ACCESSOR(Chunk, chunk, prevChunk),
      ACCESSOR(Chunk, chunk, nextChunk),
      ACCESSOR(Chunk, chunk, intfId),
      ACCESSOR(GlobalBufferChunk, global, entryTobeMerged),
      ACCESSOR(GlobalBufferChunk, global, numEntriesTobeMerged),
      ACCESSOR(GlobalBufferChunk, global, duration),
      ACCESSOR(GlobalBufferChunk, global, maxBuffer),
      ACCESSOR(GlobalBufferChunk, global, timeOfMaxBuffer),
      ACCESSOR(GlobalBufferChunk, global, lastSyslogTime),
      ACCESSOR(GlobalBufferChunk, global, counter),
      ACCESSOR(PortMetaData, data, identifier),
      ACCESSOR(PortMetaData, data, counter),
      ACCESSOR(PortMetaData, data, intfId),
      ACCESSOR(PortMetaData, data, maxQLen),
      ACCESSOR(PortMetaData, data, timeOfMaxQLen),
      ACCESSOR(PortMetaData, data, timeOfCongestionStart),
      ACCESSOR(PortMetaData, data, cardSlot),
      ACCESSOR(PortMetaData, data, chipIndex),
      ACCESSOR(PortMetaData, data, numCpuQueues),
      ACCESSOR(PortMetaData, data, fabricPeerIntf),
      ACCESSOR(PortData, port, intfId),
      ACCESSOR(PortData, port, lastSyslogTime),
      ACCESSOR(PortData, port, mergeEntries),
      ACCESSOR(PortData, port, chunkTobeMerged),
      ACCESSOR(PortData, port, entryTobeMerged),
      ACCESSOR(TestClock, bench.clock, utcTime),
      ACCESSOR(TestClock, bench.clock, time),
      ACCESSOR(CongestionData, recorder, vornHwStatus),
      ACCESSOR(CongestionData, recorder, clock),
      ACCESSOR(CongestionData, recorder, vornConfig),
      ACCESSOR(CongestionData, recorder, portMetaDataDumper),
      ACCESSOR(CongestionData, recorder, numSharedChunks),
      ACCESSOR(CongestionData, recorder, globalBufferChunk),
      ACCESSOR(CongestionData, recorder, initialized)};
#undef ACCESSOR
  for (Kes::Type const* const type : Vorn::types()) {
    GenericIf::Ptr const object = samples.at(string(type->shortName()));
    for (Kes::Attribute const& attribute : type->attributes()) {
      if (attribute.operation(OpCode::read) == nullptr) continue;
      string const name(attribute.name);
      auto const& accessor = accessors.at(string(type->shortName()) + '.' + name);
      EXPECT_EQ(shown(get(object, name)), accessor()) << name;
      if (attribute.kind != Kes::AttributeKind::mutableAttribute) {
        EXPECT_THROW(set(object, name, toGeneric("77")), Kes::ReadOnlyException) << name;
        continue;
      }
      GenericIf::Ptr const value = fresh(attribute.type());
      string const before = accessor();
      set(object, name, value);
      EXPECT_NE(accessor(), before) << name;
      EXPECT_EQ(accessor(), shown(value)) << name;
      EXPECT_EQ(shown(get(object, name)), accessor()) << name;
    }
  }
  chunk->doClear();
  port->chunkTobeMergedIs(nullptr);
}

TEST(Registry, Calls_doWhatDriversDo) {
  ::Test::Bench bench;
  GenericIf::Ptr const recorder = toGeneric(bench.recorder);
  EXPECT_EQ(shown(call(recorder, "updateEntry",
                       {{"entryKey", toGeneric("7")},
                        {"intfId", toGeneric("eth0")},
                        {"entry", toGeneric(::Test::record(5, 100))},
                        {"coalesceTime", toGeneric("10")}})),
            "100");
  GenericArgs merged = {{"intfId", toGeneric("eth0")},
                        {"entry", toGeneric(::Test::record(9, 109))},
                        {"coalesceTime", toGeneric(Vorn::Microseconds(10))},
                        {"entryKey", toGeneric(U32{7})}};
  call(recorder, "updateEntry", merged);
  EXPECT_EQ(call(recorder, "doAddToLog",
                 {{"intfId", toGeneric("eth0")}, {"entry", toGeneric(::Test::record(3, 200))}})
                ->type()
                .name(),
            "Vorn::Microseconds");
  EXPECT_THROW(call(recorder, "doAddToGlobalLog", {{"entry", toGeneric(::Test::record(3, 1))}}),
               Kes::RangeException);
  EXPECT_EQ(call(recorder, "allocateGlobalChunk"), nullptr);
  call(recorder, "doAddToGlobalLog", {{"entry", toGeneric(::Test::record(8, 300))}});
  bench.recorder->globalBufferChunk()->counterIs(4);
  GenericArgs const frame = {{"reportHeader", toGeneric("h\n")}, {"footer", toGeneric("f\n")}};
  auto const written = [&](string const& name, GenericArgs more) {
    more.insert(more.end(), frame.begin(), frame.end());
    return ::Test::Bench::written([&](std::FILE* out) {
      more.push_back({"voidPtr", toGeneric<Kes::VoidPtr>(out)});
      call(recorder, name, more);
    });
  };
  EXPECT_EQ(written("doMergeAndDumpEntries", {{"cmd", toGeneric("")}}),
            "\nReport generated at 0.000000\nh\n" + ::Test::recordLine("text", "200", "eth0", 3, 0) +
                ::Test::recordLine("text", "100", "eth0", 9, 9) + "f\n");
  EXPECT_EQ(written("doDumpStatistics", {}).find("Global Hit Count = 4") != string::npos, true);
  EXPECT_NE(written("doDumpGlobalBufferChunk", {}).find(::Test::recordLine("global", "300", "-", 8, 0)),
            string::npos);
  set(toGeneric(bench.port("eth0")), "mergeEntries", toGeneric(true));
  EXPECT_NE(written("doDumpEntriesInCSVFormat", {{"showAll", toGeneric(true)}})
                .find(::Test::recordLine("csv", "200", "eth0", 3, 0)),
            string::npos);

  // A command on a socket, whose client gets the whole report and the end of file.
  int sockets[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
  GenericArgs command = {{"socket", toGeneric(static_cast<U32>(sockets[0]))}, {"command", toGeneric("-s1")}};
  command.insert(command.end(), frame.begin(), frame.end());
  call(recorder, "handleCommand", command);
  // Without the privilege to enlarge its buffer the socket is left open.
  bool const answered = ::fcntl(sockets[0], F_GETFD) < 0;
  char report[4096];
  ssize_t const size = answered ? ::recv(sockets[1], report, sizeof report, 0) : ::close(sockets[0]);
  if (answered) {
    string const text(report, static_cast<std::size_t>(size));
    EXPECT_TRUE(text.ends_with("h\n" + ::Test::recordLine("text", "200", "eth0", 3, 0) + "f\n")) << text;
  }
  ::close(sockets[1]);

  bench.clock->utcTimeIs(12.5);
  GenericIf::Ptr const clock = get(recorder, "clock");
  EXPECT_EQ(clock->type().name(), "Vorn::TestClock");
  EXPECT_EQ(clock->attributeId("getUTCTime"), 258U);
  EXPECT_EQ(shown(clock->attributeOp({130, OpCode::call})), "12.5");
  EXPECT_EQ(clock->attributeId("hasNotificationActiveIs"), 2U);
  EXPECT_EQ(call(clock, "kesDoZombieReactors", {{"on", toGeneric("true")}}), nullptr);
  GenericIf::Ptr const usec = toGeneric(Vorn::Microseconds());
  EXPECT_EQ(shown(call(usec, "fromSeconds", {{"seconds", toGeneric("4.35")}})), "4349999");
  EXPECT_EQ(shown(call(usec, "toSeconds", {{"usec", toGeneric("1500000")}})), "1.5");
  EXPECT_DEATH(call(recorder, "handleInitialized"), "!initialized");
}

template <class E>
void expectError(string const& text, string const& subject, std::function<void()> const& run) {
  try {
    run();
    ADD_FAILURE() << text << ": not raised";
  } catch (E const& error) {
    EXPECT_EQ(string(error.what()), text);
    if constexpr (std::is_base_of_v<Kes::AccessException, E>) {
      EXPECT_EQ(error.subject(), subject) << text;
    }
  }
}

TEST(Registry, Errors_areSpecificAndLeaveTheObjectAsDocumented) {
  ::Test::Bench bench;
  bench.append("eth0", ::Test::record(5, 9));
  GenericIf::Ptr const recorder = toGeneric(bench.recorder);
  GenericIf::Ptr const port = toGeneric(bench.port("eth0"));
  GenericIf::Ptr const index = toGeneric(Vorn::EntryIndex(3));
  GenericArgs const wrong = {{"x", toGeneric("1")}};
  expectError<Kes::UnknownAttributeException>("no attribute 'qlen' in Vorn::EntryIndex", "qlen",
                                              [&] { get(index, "qlen"); });
  expectError<Kes::UnknownArgumentException>(
      "Clock", "x", [&] { toGeneric(Vorn::clockFactory())->genericIfListConstructor(wrong); });
  expectError<Kes::UnknownArgumentException>(
      "TestClock", "x", [&] { toGeneric(bench.clock)->genericIfListConstructor(wrong); });
  expectError<Kes::UnknownArgumentException>("CongestionData", "intfId", [&] {
    call(recorder, "allocateChunk", {{"intfId", toGeneric("eth0")}, {"intfId", toGeneric("eth1")}});
  });
  expectError<Kes::MissingArgumentException>("argument entry is missing", "entry", [&] {
    call(recorder, "doAddToLog", {{"intfId", toGeneric("eth9")}});
  });
  EXPECT_EQ(bench.port("eth9"), nullptr);
  expectError<Kes::TypeException>("Clock", "clock", [&] {
    recorder->genericIfListConstructor({{"vornHwStatus", get(recorder, "vornHwStatus")},
                                        {"clock", port},
                                        {"vornConfig", get(recorder, "vornConfig")},
                                        {"portMetaDataDumper", get(recorder, "portMetaDataDumper")}});
  });
  expectError<Kes::TypeException>("Chunk", "value", [&] { set(port, "chunkTobeMerged", toGeneric("0")); });
  expectError<Kes::TypeException>("VoidPtr", "voidPtr", [&] {
    call(recorder, "doDumpStatistics",
         {{"voidPtr", toGeneric("1")}, {"reportHeader", toGeneric("")}, {"footer", toGeneric("")}});
  });
  expectError<Kes::TypeException>("U16", "value", [&] { set(index, "value", toGeneric(U32{4})); });
  expectError<Kes::TypeException>("EntryIndex", "", [&] { index->valIs(*toGeneric(true)); });
  expectError<Kes::TypeException>("PortData", "strRep", [&] { port->strRep(); });
  expectError<Kes::TypeException>("Entry", "entry", [&] {
    call(recorder, "doAddToGlobalLog", {{"entry", nullptr}});
  });
  expectError<Kes::ReadOnlyException>("attribute intfId of Vorn::PortData cannot be set", "intfId",
                                      [&] { set(port, "intfId", toGeneric("eth1")); });
  GenericIf::Ptr const constant = toGeneric(Kes::Ptr<Vorn::PortData const>(bench.port("eth0")));
  EXPECT_EQ(shown(get(constant, "entryTobeMerged")), "0");
  EXPECT_EQ(call(get(recorder, "vornConfig"), "kesDoZombieReactors", {{"on", toGeneric(true)}}), nullptr);
  expectError<Kes::ReadOnlyException>("the Vorn::PortData is a constant one", "Vorn::PortData",
                                      [&] { set(constant, "entryTobeMerged", toGeneric("1")); });
  expectError<Kes::TypeException>("Chunk", "value",
                                  [&] { set(port, "chunkTobeMerged", toGeneric(Vorn::Entry::Ptr())); });
  expectError<Kes::UnknownOperationException>("attribute entryIndex of Vorn::PortData has no operation enq",
                                              "entryIndex",
                                              [&] { perform(port, "entryIndex", OpCode::enq); });
  expectError<Kes::UnknownOperationException>("attribute intfId of Vorn::PortData has no operation iterator",
                                              "intfId", [&] { port->attributeIterator(130); });
  expectError<Kes::UnknownOperationException>("attribute intfId of Vorn::PortData has no operation unknown",
                                              "intfId",
                                              [&] { perform(port, "intfId", static_cast<OpCode>(77)); });
  expectError<Kes::KeyNotFoundException>("no member 5 in chunk", "5", [&] {
    perform(port, "chunk", OpCode::member, {{"key", toGeneric("5")}});
  });
  expectError<Kes::RangeException>("junk at column 1 deserializing 7x", "",
                                   [&] { set(index, "value", toGeneric("7x")); });
  expectError<Kes::RangeException>("no digits where a number was expected at column 0 deserializing x", "",
                                   [&] { set(index, "value", toGeneric("x")); });
  EXPECT_EQ(shown(index), "3");
  expectError<Kes::RangeException>("EntryIndex::value < 0 or > EntryIndex::max not allowed", "",
                                   [&] { set(index, "value", toGeneric("600")); });
  EXPECT_EQ(shown(index), "600");
  expectError<Kes::RangeException>("EntryIndex::value < 0 or > EntryIndex::max not allowed", "", [&] {
    perform(index, "value", OpCode::inc, {{"amount", toGeneric("1")}});
  });
  EXPECT_EQ(shown(index), "601");
  expectError<Kes::RangeException>("null ValidPtr", "", [&] { get(get(port, "chunkTobeMerged"), "intfId"); });
  expectError<Kes::RangeException>("neither true nor false at column 0 deserializing yes", "",
                                   [&] { set(port, "mergeEntries", toGeneric("yes")); });
}

TEST(Registry, Instances_madeClonedAndSet) {
  GenericIf::Ptr const usec =
      Kes::TypeRegistry::instance().type("Vorn::Microseconds")->construct({{"value", toGeneric("1500")}});
  GenericIf::Ptr const copy = usec->clone();
  set(copy, "value", toGeneric("7"));
  EXPECT_EQ(shown(usec), "1500");
  usec->valIs(*copy);
  EXPECT_EQ(shown(usec), "7");
  std::map<string, GenericArgs> const arguments = {
      {"Microseconds", {{"value", toGeneric("5")}}},
      {"EntryIndex", {{"value", toGeneric("5")}}},
      {"EntryIndexOrNull", {{"value", toGeneric("500")}}},
      {"Chunk", {}},
      {"GlobalBufferChunk", {}},
      {"Clock", {}},
      {"Entry", {{"qLen", toGeneric("5")}, {"timestamp", toGeneric("9")}}},
      {"TestClock", {}},
      {"PortMetaDataDumper", {}},
      {"PortMetaData", {{"intfId", toGeneric("eth0")}, {"identifier", toGeneric("3")}}},
      {"PortData", {{"intfId", toGeneric("eth0")}}},
      {"CongestionData",
       {{"vornHwStatus", toGeneric(Kes::makePtr<Vorn::Hardware::Status>())},
        {"clock", toGeneric(Vorn::testClockFactory())},
        {"vornConfig", toGeneric(Kes::makePtr<Vorn::Config>())},
        {"portMetaDataDumper", toGeneric(Kes::makePtr<::Test::TestDumper>())}}}};
  for (Kes::Type const* const type : Vorn::types()) {
    GenericIf::Ptr const made = type->construct(arguments.at(string(type->shortName())));
    ASSERT_EQ(&made->type(), type);
    EXPECT_EQ(shown(made->clone()), shown(made));
    EXPECT_EQ(&made->clone()->type(), type);
  }
}

TEST(Registry, Collections_walkByAscendingKeyAndDoAllTheyCan) {
  auto const chunk = Vorn::Chunk::ChunkIs();
  GenericIf::Ptr const generic = toGeneric(chunk);
  for (U32 i = 0; i < 500; ++i)
    perform(generic, "entry", OpCode::enq, {{"value", toGeneric(::Test::record(i, i))}});
  EXPECT_THROW(perform(generic, "entry", OpCode::enq, {{"value", toGeneric(::Test::record(1, 1))}}),
               Kes::RangeException);
  for (U32 i = 0; i < 3; ++i)
    EXPECT_EQ(shown(get(perform(generic, "entry", OpCode::deq), "qLen")), std::to_string(i));
  perform(generic, "entry", OpCode::enq, {{"value", toGeneric(::Test::record(500, 500))}});
  perform(generic, "entry", OpCode::memberDel, {{"key", toGeneric("7")}});
  EXPECT_EQ(shown(perform(generic, "entry", OpCode::metadata)), "3,498");
  EXPECT_EQ(shown(perform(generic, "entry", OpCode::count)), "498");
  EXPECT_EQ(shown(perform(generic, "entry", OpCode::modificationCount)),
            shown(chunk->entryModificationCount()));
  std::vector<string> keys;
  for (auto at = generic->attributeIterator(133); *at; ++*at) {
    keys.push_back(shown(at->key()));
    EXPECT_EQ(shown(at->value()),
              shown(chunk->entry(Vorn::EntryIndex(static_cast<Kes::U16>(std::stoi(keys.back()))))));
  }
  ASSERT_EQ(keys.size(), 497U);  // slot 0 first, though 3 is the oldest
  EXPECT_EQ((std::vector<string>{keys[0], keys[1], keys[5], keys[6]}),
            (std::vector<string>{"0", "3", "8", "9"}));

  ::Test::Bench bench;
  for (char const* name : {"eth9", "eth1", "eth5"}) bench.append(name, ::Test::record(5, 9));
  GenericIf::Ptr const recorder = toGeneric(bench.recorder);
  keys.clear();
  for (auto at = recorder->attributeIterator(recorder->attributeId("portData")); *at; ++*at)
    keys.push_back(shown(at->key()));
  EXPECT_EQ(keys, (std::vector<string>{"eth1", "eth5", "eth9"}));
  perform(recorder, "portData", OpCode::memberDel, {{"key", toGeneric("eth5")}});
  EXPECT_EQ(bench.port("eth5"), nullptr);
  GenericIf::Ptr const port = toGeneric(bench.port("eth1"));
  perform(port, "portMetaData", OpCode::newMember,
          {{"value", toGeneric(Vorn::portMetaDataFactory(8, Pylo::IntfId("eth1")))}});
  EXPECT_EQ(shown(perform(toGeneric(bench.port("eth1")->portMetaData(8)), "counter", OpCode::inc,
                          {{"amount", toGeneric("3")}})),
            "3");
  perform(port, "entryIndex", OpCode::memberIs, {{"key", toGeneric("4")}, {"value", toGeneric("499")}});
  EXPECT_EQ(bench.port("eth1")->entryIndex(4).value(), 499);
  perform(port, "entryIndex", OpCode::memberDelAll);
  EXPECT_EQ(shown(perform(port, "entryIndex", OpCode::member, {{"key", toGeneric("4")}})), "500");
}

// Takes the pool, and everything of one interface, out of one recorder and into another, by name alone.
class Restore {
 public:
  Restore(GenericIf::Ptr from, GenericIf::Ptr to) : from_(std::move(from)), to_(std::move(to)) {}

  void all(char const* intfId) {
    for (auto at = members(from_, "chunkArray"); *at; ++*at)
      put(to_, "chunkArray", at->key(), chunkFor(at->value()));
    copyMetadata(from_, to_, "chunkArray");
    GenericArgs const key = {{"key", toGeneric(intfId)}};
    GenericIf::Ptr const source = perform(from_, "portData", OpCode::member, key);
    GenericIf::Ptr const port = perform(to_, "portData", OpCode::memberIs, key);
    for (auto at = members(source, "chunk"); *at; ++*at) put(port, "chunk", at->key(), chunkFor(at->value()));
    copyMetadata(source, port, "chunk");
    for (auto at = members(source, "entryIndex"); *at; ++*at) put(port, "entryIndex", at->key(), at->value());
    for (auto at = members(source, "portMetaData"); *at; ++*at)
      perform(port, "portMetaData", OpCode::memberIs, {{"value", at->value()}});
    set(port, "lastSyslogTime", get(source, "lastSyslogTime"));
  }

 private:
  static std::unique_ptr<Kes::GenericIterator> members(GenericIf::Ptr const& object, string const& name) {
    return object->attributeIterator(object->attributeId(name));
  }
  static void put(GenericIf::Ptr const& object, string const& name, GenericIf::Ptr const& key,
                  GenericIf::Ptr const& value) {
    perform(object, name, OpCode::memberIs, {{"key", toGeneric(key->strRep())}, {"value", value}});
  }
  // Through its text, as a file would keep it.
  static void copyMetadata(GenericIf::Ptr const& from, GenericIf::Ptr const& to, string const& name) {
    perform(to, name, OpCode::metadataIs,
            {{"value", toGeneric(perform(from, name, OpCode::metadata)->strRep())}});
  }

  // The new chunk for an old one: its records, owner and links, each chunk once.
  GenericIf::Ptr chunkFor(GenericIf::Ptr const& old) {
    if (shown(old) == "0") return old;
    GenericIf::Ptr& made = made_[shown(old)];
    if (made) return made;
    made = old->genericIfListConstructor({});
    GenericIf::Ptr const chunk = made;
    copyMetadata(old, chunk, "entry");
    for (auto at = members(old, "entry"); *at; ++*at) put(chunk, "entry", at->key(), at->value());
    set(chunk, "intfId", get(old, "intfId"));
    for (char const* link : {"prevChunk", "nextChunk"}) set(chunk, link, chunkFor(get(old, link)));
    return chunk;
  }

  GenericIf::Ptr from_;
  GenericIf::Ptr to_;
  std::map<string, GenericIf::Ptr> made_;
};

TEST(Registry, Restore_ofPoolAndLogByNameAlone) {
  ::Test::Bench original;
  original.recorder->numSharedChunksIs(3);
  for (U32 i = 0; i < 2800; ++i) original.update("eth0", i, 1000 + 10 * i, 3, i % 4);
  original.port("eth0")->chunk(3)->entryDel(Vorn::EntryIndex(7));
  original.port("eth0")->newPortMetaData(Vorn::portMetaDataFactory(8, Pylo::IntfId("eth0")));
  original.port("eth0")->portMetaData(8)->counterIs(5);
  ::Test::Bench restored;
  restored.recorder->numSharedChunksIs(3);
  Restore(toGeneric(original.recorder), toGeneric(restored.recorder)).all("eth0");
  auto const same = [&] {
    EXPECT_EQ(restored.recorder->checkInvariants(), "");
    for (char const* command : {"", "csv", "-c"})
      EXPECT_EQ(restored.report(command), original.report(command));
    EXPECT_EQ(restored.recorder->chunkArrayMetadata(), original.recorder->chunkArrayMetadata());
    EXPECT_EQ(restored.port("eth0")->chunkMetadata(), original.port("eth0")->chunkMetadata());
    EXPECT_EQ(restored.port("eth0")->chunkTail()->entryMetadata(),
              original.port("eth0")->chunkTail()->entryMetadata());
  };
  same();
  for (::Test::Bench* bench : {&original, &restored})
    for (U32 i = 0; i < 1700; ++i) bench->update("eth0", i, 30000 + 10 * i, i % 20, i % 4);
  same();
}

}  // namespace
