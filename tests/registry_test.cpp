// SPDX-License-Identifier: Apache-2.0
// Types and attributes by name: what is registered, and that by-name access does what the C++ operations do.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iterator>
#include <map>

#include "Kes/ByName/TypeRegistry.h"
#include "Kes/ByName/TypeTable.h"
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

// Each type with its first identifier and its attributes in the order of their identifiers, which tools keep:
// m mutable, x fixed, c constant, p procedure, f function, k collection, o owned collection.
constexpr char expectedTypes[] =
    R"(Microseconds 2 value:m min:c max:c microsecondsInSecond:c fromSeconds:f toSeconds:f
Entry PtrInterface 130 qLen:m timestamp:m duration:m alwaysLog:m dumpEntry:f dumpDrops:f doSyslog:f dumpTxLatency:f
dumpGlobalBuffer:f entryToGpbRecord:f entryToGpbGlobalBufferRecord:f
EntryIndex 2 value:m max:c
EntryIndexOrNull 2 value:m null:c
Chunk PtrInterface 130 prevChunk:m nextChunk:m intfId:m entry:k doClear:p
GlobalBufferChunk PtrInterface 130 entry:k entryTobeMerged:m numEntriesTobeMerged:m duration:m maxBuffer:m
timeOfMaxBuffer:m lastSyslogTime:m counter:m
PortMetaData PtrInterface identifier 130 identifier:x counter:m intfId:x maxQLen:m timeOfMaxQLen:m
timeOfCongestionStart:m cardSlot:m chipIndex:m numCpuQueues:m fabricPeerIntf:m
PortMetaDataDumper PtrInterface 130 dumpStartMetaData:f dumpStatistics:f
PortData PtrInterface intfId 130 intfId:x chunk:k lastSyslogTime:m mergeEntries:m chunkTobeMerged:m
entryTobeMerged:m entryIndex:k portMetaData:o
Clock PtrInterface 130 getUTCTime:p getTime:p
TestClock Clock 258 getUTCTime:p getTime:p utcTime:m time:m
CongestionData PtrInterface 130 vornHwStatus:x clock:x vornConfig:x portMetaDataDumper:x portData:o chunkArray:k
numSharedChunks:m globalBufferChunk:m allocateChunk:f updateEntry:f doAddToLog:f doAddToGlobalLog:f
allocateGlobalChunk:p doMergeAndDumpEntries:f doDumpEntriesInCSVFormat:f handleCommand:f doDumpStatistics:f
doDumpGlobalBufferChunk:f doMergeAndDumpGlobalChunk:f initialized:m handleInitialized:p
)";

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

// Arguments as "NAME=TEXT" or, where `other` supplies the value, "NAME".
GenericArgs args(string const& text,
                 std::function<GenericIf::Ptr(string const&, std::size_t)> const& other = nullptr) {
  GenericArgs all;
  std::istringstream in(text);
  for (string name; in >> name;) {
    std::size_t const end = std::min(name.find('='), name.size());
    GenericIf::Ptr const value =
        end < name.size() ? toGeneric(Kes::String(name.substr(end + 1))) : other(name, all.size());
    all.push_back({name.substr(0, end), value});
  }
  return all;
}

// An object by its address, a value by its text.
string shown(GenericIf::Ptr const& value) {
  auto const* const pointer = dynamic_cast<Kes::GenericPtrIf const*>(value.get());
  return pointer != nullptr ? Kes::format("%p", pointer->object()).str() : value->strRep().str();
}

// A recorder with something of everything in it, and a subject of each type. No two of its numbers and names
// are the same, so that results and states tell which one was read or set.
struct World : ::Test::Bench {
  World() {
    recorder->initializedIs(false);
    recorder->allocateGlobalChunk();
    auto const log = recorder->portDataIs(eth0);
    for (char const* name : {"eth9", "eth5", "eth7"}) recorder->portDataIs(Pylo::IntfId(name));
    for (int i = 0; i < 4; ++i) chunks.push_back(recorder->allocateChunk(eth0));
    chunks[3]->entryMetadataIs({Vorn::EntryIndex(498), 0});
    for (U32 i = 0; i < 6; ++i) {
      update("eth0", i, 1000 + i, 0, i);
      recorder->doAddToGlobalLog(::Test::record(30 + i, 2000 + i));
      if (i % 2 == 0) log->newPortMetaData(Vorn::portMetaDataFactory(i, eth0));
    }
    log->chunkDeq();
    recorder->chunkArrayDeq();
    auto const global = recorder->globalBufferChunk();
    global->entryDeq();
    chunks[3]->entryDeq();
    chunks[3]->entryDel(Vorn::EntryIndex(1));
    auto const add = [this](auto const&... each) { subjects = {toGeneric(each)...}; };
    Vorn::PortMetaDataDumper::Ptr const dumper = Kes::makePtr<::Test::TestDumper>();
    add(Vorn::Microseconds(), Vorn::EntryIndex(), Vorn::EntryIndexOrNull(), entry, chunks[3], global, data,
        dumper, log, clock, recorder);
    subjects.push_back(Kes::makePtr<Vorn::Clock::GenericIf_>(clock.get(), /*constant=*/false));
    auto const eachValue = [this](auto const& visit) {
      U32 number = 20;
      for (GenericIf::Ptr const& subject : subjects)
        for (Kes::Attribute const& a : subject->type().attributes())
          if (a.operation(OpCode::set) != nullptr && a.type().isValue() && a.type().shortName() != "bool")
            visit(subject, string(a.name), std::to_string(++number));
    };
    eachValue([](auto const& subject, auto const& name, auto const& value) {
      set(subject, name, toGeneric(Kes::String(value)));
    });
    eachValue([](auto const& subject, auto const& name, auto const& value) {
      EXPECT_EQ(shown(get(subject, name)), value) << name;
    });
    global->entryTobeMergedIs(Vorn::GlobalBufferChunk::noEntryTobeMerged);
    entry->timestampIs(::Test::us(2004));
  }
  ~World() {
    for (auto const& chunk : chunks) chunk->doClear();
    std::fclose(out);
    std::free(text);
    for (int const descriptor : sockets) ::close(descriptor);
  }
  GenericIf::Ptr const& subject(Kes::Type const& type) const {
    return *std::find_if(subjects.begin(), subjects.end(),
                         [&](auto const& s) { return &s->type() == &type; });
  }
  template <class C>
  C& the() const {
    return Kes::detail::selfOf<C>(*subject(Kes::GenericOf<C>::type()));
  }
  // Another value of a type than any attribute has.
  GenericIf::Ptr fresh(Kes::Type const& type) const {
    std::string_view const name = type.shortName();
    if (name == "VoidPtr") return toGeneric<Kes::VoidPtr>(out);
    if (name == "Chunk") return toGeneric(spare);
    if (name == "GlobalBufferChunk") return toGeneric(Kes::makePtr<Vorn::GlobalBufferChunk>());
    if (!type.isValue()) return subject(type);
    return toGeneric(name == "bool" ? "true" : name.ends_with("Metadata") ? "2,3" : "77");
  }
  template <class T>
  T fresh() const {
    return Kes::fromGeneric<T>(*fresh(Kes::detail::TypeOf<T>::type()));
  }
  GenericArgs arguments(string const& names, Kes::Operation const& operation) {
    return args(names, [&](string const& name, std::size_t index) {
      return name == "socket" ? toGeneric(socket()) : fresh(operation.arguments.at(index).type());
    });
  }
  U32 socket() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    return static_cast<U32>(sockets[0]);
  }
  // All that can be read of a value by name, objects as numbers in the order in which they are met.
  string digest(GenericIf::Ptr const& generic) {
    if (!generic) return "nothing\n";
    string all = string(generic->type().name()) + ' ';
    auto const* const pointer = dynamic_cast<Kes::GenericPtrIf const*>(generic.get());
    if (pointer == nullptr) return all + generic->strRep().str() + '\n';
    auto const [at, isNew] = met.try_emplace({pointer->object(), &pointer->type()}, met.size());
    all += (pointer->constant() ? "constant " : "") + std::to_string(at->second) + '\n';
    if (pointer->object() == nullptr || !isNew) return all;
    EXPECT_TRUE(pointer->object()->fwkType().ends_with(generic->type().shortName())) << all;
    for (Kes::Attribute const& attribute : generic->type().attributes()) {
      all += string(attribute.name) + ": ";
      string last;
      for (auto i = attribute.iterate != nullptr ? attribute.iterate(*generic) : nullptr; i && *i; ++*i) {
        string const key = shown(i->key());
        EXPECT_LE(std::pair(last.size(), last), std::pair(key.size(), key)) << "numbers and names ascend";
        last = key;
        all += key + ' ' + digest(i->value());
      }
      for (OpCode const code : {OpCode::read, OpCode::count, OpCode::modificationCount, OpCode::metadata})
        if (attribute.operation(code) != nullptr)
          all += digest(generic->attributeOp({attribute.identifier, code}));
    }
    return all;
  }
  // All that can be read of the subjects, and what was written, logged and traced.
  string state() {
    string all;
    for (GenericIf::Ptr const& subject : subjects) all += digest(subject);
    std::fflush(out);
    char answer[4096];
    ssize_t const size = ::recv(sockets[1], answer, sizeof answer, MSG_DONTWAIT);
    all += string(text, textSize) + string(answer, size < 0 ? 0 : static_cast<std::size_t>(size));
    for (auto const& lines : {::Test::logged, ::Test::traced})
      for (string const& line : lines) all += line + '\n';
    return all;
  }

  Pylo::IntfId const eth0{"eth0"};
  Vorn::EntryIndex const slot{2};
  Vorn::EntryIndexOrNull const slotOrNull{77};
  Vorn::Entry::Ptr const entry = ::Test::record(1, 1);
  Vorn::PortMetaData::Ptr const data = Vorn::portMetaDataFactory(7, Pylo::IntfId("eth1"));
  Vorn::Chunk::Ptr const spare = Vorn::Chunk::ChunkIs();
  std::vector<Vorn::Chunk::Ptr> chunks;
  std::vector<GenericIf::Ptr> subjects;
  std::map<std::pair<Kes::PtrInterface const*, Kes::Type const*>, std::size_t> met;
  char* text = nullptr;
  std::size_t textSize = 0;
  std::FILE* const out = ::open_memstream(&text, &textSize);
  int sockets[2] = {-1, -1};
};

// Operations in C++ and the arguments that they have by name, under "TYPE.ATTRIBUTE.OPERATION".
using Lines = std::map<string, std::pair<string, std::function<GenericIf::Ptr(World&)>>>;

template <class C, class F>
GenericIf::Ptr answer(World& w, F const& run) {
  using Result = decltype(run(w, w.the<C>()));
  if constexpr (std::is_void_v<Result> || std::is_same_v<Result, C&>)
    return run(w, w.the<C>()), nullptr;
  else
    return toGeneric(std::decay_t<Result>(run(w, w.the<C>())));
}
template <class C, class... F>
void add(Lines& lines, std::tuple<string, string, F> const&... op) {
  string const type(Kes::GenericOf<C>::type().shortName());
  ((lines[type + std::get<0>(op)] = {std::get<1>(op),
                                     [run = std::get<2>(op)](World& w) { return answer<C>(w, run); }}),
   ...);
}

// C++ is run with the world as `w` and the subject of the type as `t`.
#define OP(attribute, code, arguments, ...)                \
  std::tuple(                                              \
      string("." #attribute "." #code), string(arguments), \
      []([[maybe_unused]] World& w, [[maybe_unused]] auto& t) -> decltype(auto) { return __VA_ARGS__; })
#define GET(attribute) OP(attribute, read, "", t.attribute())
#define CALL(attribute) OP(attribute, call, "", t.attribute())
#define VALUE(attribute) \
  GET(attribute),        \
      OP(attribute, set, "value", t.attribute##Is(w.fresh<std::decay_t<decltype(t.attribute())>>()))
#define INC(attribute) OP(attribute, inc, "amount=77", t.attribute##Inc(77))

// What all collections have, and those that are queues.
#define MEMBERS(name, keyText, key)                                                                     \
  OP(name, member, "key=" keyText, t.name(key)), OP(name, memberDel, "key=" keyText, t.name##Del(key)), \
      OP(name, memberDelAll, "", t.name##DelAll())
#define QUEUE(name, counted, value, state)                                          \
  OP(name, enq, "value", t.name##Enq(value)), OP(name, deq, "", t.name##Deq()),     \
      OP(name, count, "", t.counted()), OP(name, metadata, "", t.name##Metadata()), \
      OP(name, metadataIs, "value", t.name##MetadataIs state)
#define PUT(name, value) OP(name, memberIs, "key=2 value", t.name##Is(2, value))
#define NOTIFY(name, key) OP(name, notify, "key=2", t.name##Notify(key))
#define CHANGES(name) OP(name, modificationCount, "", t.name##ModificationCount())
// Of a log's chunks, and of the log for all interfaces.
#define ENTRIES()                                                                            \
  MEMBERS(entry, "2", w.slot), QUEUE(entry, entrys, w.entry, ({w.slot, 3})), CHANGES(entry), \
      NOTIFY(entry, w.slot), OP(entry, memberIs, "key=2 value", t.entryIs(w.slot, w.entry))

Lines table() {
  Lines all;
  add<Vorn::Microseconds>(all, VALUE(value), GET(min), GET(max), GET(microsecondsInSecond),
                          OP(fromSeconds, call, "seconds=4.35", t.fromSeconds(4.35)),
                          OP(toSeconds, call, "usec=77", t.toSeconds(::Test::us(77))));
  add<Vorn::EntryIndex>(all, VALUE(value), INC(value), GET(max));
  add<Vorn::EntryIndexOrNull>(all, VALUE(value), GET(null));
  add<Vorn::Entry>(
      all, VALUE(qLen), VALUE(timestamp), VALUE(duration), VALUE(alwaysLog),
      OP(dumpEntry, call, "filePtr elapsedTime=12 intfName=ab cvsFormat=true",
         t.dumpEntry(w.out, "12", "ab", true)),
      OP(dumpDrops, call, "filePtr elapsedTime=12 intfName=ab", t.dumpDrops(w.out, "12", "ab")),
      OP(doSyslog, call, "intfName=ab lowThreshold=3 highThreshold=9", t.doSyslog("ab", 3, 9)),
      OP(dumpTxLatency, call, "filePtr elapsedTime=12 intfName=ab", t.dumpTxLatency(w.out, "12", "ab")),
      OP(dumpGlobalBuffer, call, "filePtr elapsedTime=12", t.dumpGlobalBuffer(w.out, "12")),
      OP(entryToGpbRecord, call, "recordPtr", t.entryToGpbRecord(w.out)),
      OP(entryToGpbGlobalBufferRecord, call, "recordPtr", t.entryToGpbGlobalBufferRecord(w.out)));
  add<Vorn::Chunk>(all, ENTRIES(), VALUE(prevChunk), VALUE(nextChunk), VALUE(intfId), CALL(doClear));
  add<Vorn::GlobalBufferChunk>(all, ENTRIES(), VALUE(entryTobeMerged), VALUE(numEntriesTobeMerged),
                               VALUE(duration), VALUE(maxBuffer), VALUE(timeOfMaxBuffer),
                               VALUE(lastSyslogTime), VALUE(counter), INC(counter));
  add<Vorn::PortMetaData>(all, GET(identifier), VALUE(counter), INC(counter), GET(intfId), VALUE(maxQLen),
                          VALUE(timeOfMaxQLen), VALUE(timeOfCongestionStart), VALUE(cardSlot),
                          VALUE(chipIndex), VALUE(numCpuQueues), VALUE(fabricPeerIntf));
  add<Vorn::PortMetaDataDumper>(
      all,
      OP(dumpStartMetaData, call, "portMetaData filePtr csvFormat=true",
         t.dumpStartMetaData(w.data.get(), w.out, true)),
      OP(dumpStatistics, call, "portMetaData filePtr", t.dumpStatistics(w.data.get(), w.out)));
  add<Vorn::PortData>(all, GET(intfId), VALUE(lastSyslogTime), VALUE(mergeEntries), VALUE(chunkTobeMerged),
                      VALUE(entryTobeMerged), MEMBERS(chunk, "2", 2), PUT(chunk, w.spare), NOTIFY(chunk, 2),
                      QUEUE(chunk, chunks, w.spare, ({2, 3})),
                      OP(chunk, newMember, "key=2 value", t.newChunk(2, w.spare).value),
                      MEMBERS(entryIndex, "2", 2), PUT(entryIndex, w.slotOrNull), NOTIFY(entryIndex, 2),
                      OP(entryIndex, newMember, "key=2 value", t.newEntryIndex(2, w.slotOrNull)),
                      MEMBERS(portMetaData, "2", 2), NOTIFY(portMetaData, 2),
                      OP(portMetaData, memberIs, "value", t.portMetaDataIs(w.data)),
                      OP(portMetaData, newMember, "value", t.newPortMetaData(w.data)));
  add<Vorn::Clock>(all, CALL(getUTCTime), CALL(getTime));
  add<Vorn::TestClock>(all, CALL(getUTCTime), CALL(getTime), VALUE(utcTime), VALUE(time));
  add<Vorn::CongestionData>(
      all, GET(vornHwStatus), GET(clock), GET(vornConfig), GET(portMetaDataDumper),
      MEMBERS(portData, "eth0", w.eth0), OP(portData, memberIs, "key=77", t.portDataIs(Pylo::IntfId("77"))),
      MEMBERS(chunkArray, "2", 2), PUT(chunkArray, w.spare), CHANGES(chunkArray),
      QUEUE(chunkArray, chunkArrayCount, w.spare, ({2, 3})), VALUE(numSharedChunks), VALUE(globalBufferChunk),
      VALUE(initialized), CALL(handleInitialized), CALL(allocateGlobalChunk),
      OP(allocateChunk, call, "intfId=eth0", t.allocateChunk(w.eth0)),
      OP(updateEntry, call, "intfId=eth0 entry coalesceTime=10 entryKey=4",
         t.updateEntry(w.eth0, w.entry, ::Test::us(10), 4)),
      OP(doAddToLog, call, "intfId=eth0 entry", t.doAddToLog(w.eth0, w.entry)),
      OP(doAddToGlobalLog, call, "entry", t.doAddToGlobalLog(w.entry)),
      OP(doMergeAndDumpEntries, call, "voidPtr cmd=-s3 reportHeader=h footer=f",
         t.doMergeAndDumpEntries(w.out, "-s3", "h", "f")),
      OP(doDumpEntriesInCSVFormat, call, "voidPtr reportHeader=h footer=f showAll=true",
         t.doDumpEntriesInCSVFormat(w.out, "h", "f", true)),
      OP(handleCommand, call, "socket command=-s3 reportHeader=h footer=f",
         t.handleCommand(w.socket(), "-s3", "h", "f")),
      OP(doDumpStatistics, call, "voidPtr reportHeader=h footer=f", t.doDumpStatistics(w.out, "h", "f")),
      OP(doDumpGlobalBufferChunk, call, "voidPtr reportHeader=h footer=f",
         t.doDumpGlobalBufferChunk(w.out, "h", "f")),
      OP(doMergeAndDumpGlobalChunk, call, "filePtr entryPtr csv=true",
         t.doMergeAndDumpGlobalChunk(w.out, w.entry.get(), true)));
  return all;
}

// By name in one world and in C++ in its twin, every operation of every type has the same result and leaves
// the same state: not those of another operation that could stand in its place.
TEST(Registry, Operations_areListedAndDoWhatTheyDoInCpp) {
  EXPECT_TRUE(Vorn::typesRegistered() && Vorn::initialisationDone());
  EXPECT_FALSE(Kes::GenericOf<U32>::type().hasGenericIf() ||
               Kes::GenericOf<Vorn::Config>::type().hasGenericIf());
  string listing;
  Lines lines = table();
  std::map<string, string> others;
  for (Kes::Type const* const type : Kes::TypeRegistry::instance().types().subspan(1)) {
    listing += string(type->shortName()) + ' ';
    if (!type->isValue()) listing += string(type->base()->shortName()) + ' ';
    if (!type->keyAttribute().empty()) listing += string(type->keyAttribute()) + ' ';
    listing += std::to_string(type->attributes().front().identifier) + ' ';
    for (Kes::Attribute const& attribute : type->attributes()) {
      listing += string(attribute.name) + ':' +
                 (attribute.owned ? 'o' : "mxcpfk"[static_cast<int>(attribute.kind)]) + ' ';
      EXPECT_EQ(attribute.identifier, type->attributes().front().identifier +
                                          static_cast<U32>(&attribute - type->attributes().data()));
      for (Kes::Operation const& operation : attribute.operations) {
        string const name = string(type->shortName()) + '.' + string(attribute.name) + '.' +
                            string(Kes::nameOf(operation.code));
        auto const line = lines.extract(name);
        ASSERT_TRUE(line) << name;
        auto const& [arguments, run] = line.mapped();
        auto const outcome = [&, &arguments = arguments, &run = run](bool byName) {
          World world;
          string const result =
              world.digest(byName ? perform(world.subject(*type), string(attribute.name), operation.code,
                                            world.arguments(arguments, operation))
                                  : run(world));
          return result + world.state();
        };
        string like = outcome(/*byName=*/false);
        EXPECT_EQ(outcome(/*byName=*/true), like) << name;
        if (operation.code == OpCode::notify) continue;  // does nothing
        like += string(type->name()) + (attribute.operation(OpCode::call) != nullptr ? "()" : "");
        for (Kes::Argument const& argument : operation.arguments) like += argument.type().name();
        EXPECT_EQ(others.try_emplace(like, name).first->second, name) << "cannot be told apart here";
      }
    }
  }
  EXPECT_EQ(Kes::GenericOf<Vorn::TestClock>::type().attribute(130)->name, "getUTCTime");
  string expected = expectedTypes;
  std::replace(expected.begin(), expected.end(), '\n', ' ');
  EXPECT_EQ(listing, expected);
  EXPECT_TRUE(lines.empty()) << lines.begin()->first;
}

// What an operation raises: "CLASS: TEXT [SUBJECT]", the class without its namespace and "Exception".
string failure(std::function<void()> const& run) {
  try {
    run();
  } catch (Kes::Exception const& error) {
    string const name = typeid(error).name();  // N3Kes13TypeExceptionE
    std::size_t const start = name.find_first_not_of("0123456789", 5);
    auto const* const access = dynamic_cast<Kes::AccessException const*>(&error);
    return name.substr(start, name.size() - start - 10) + ": " + error.what() +
           (access != nullptr ? " [" + access->subject().str() + ']' : "");
  }
  return "";
}

TEST(Registry, Errors_areSpecificAndLeaveTheObjectAsDocumented) {
  ::Test::Bench bench;
  bench.append("eth0", ::Test::record(5, 9));
  GenericIf::Ptr const recorder = toGeneric(bench.recorder);
  GenericIf::Ptr const port = toGeneric(bench.port("eth0"));
  GenericIf::Ptr const constant = toGeneric(Kes::Ptr<Vorn::PortData const>(bench.port("eth0")));
  GenericIf::Ptr const index = toGeneric(Vorn::EntryIndex(3));
  std::tuple<GenericIf::Ptr, char const*, OpCode, char const*, char const*> const cases[] = {
      {index, "qlen", OpCode::read, "", "UnknownAttribute: no attribute 'qlen' in Vorn::EntryIndex [qlen]"},
      {recorder, "allocateChunk", OpCode::call, "intfId=eth0 intfId=eth1",
       "UnknownArgument: CongestionData [intfId]"},
      {recorder, "allocateChunk", OpCode::call, "intfId=eth0 x=1", "UnknownArgument: CongestionData [x]"},
      {recorder, "doAddToLog", OpCode::call, "intfId=eth9",
       "MissingArgument: argument entry is missing [entry]"},
      {recorder, "doAddToGlobalLog", OpCode::call, "entry", "Type: Entry [entry]"},
      {recorder, "doDumpStatistics", OpCode::call, "voidPtr=1 reportHeader=h footer=f",
       "Type: VoidPtr [voidPtr]"},
      {port, "chunkTobeMerged", OpCode::set, "value=0", "Type: Chunk [value]"},
      {port, "intfId", OpCode::set, "value=eth1",
       "ReadOnly: attribute intfId of Vorn::PortData cannot be set [intfId]"},
      {constant, "entryTobeMerged", OpCode::set, "value=1",
       "ReadOnly: the Vorn::PortData is a constant one [Vorn::PortData]"},
      {port, "entryIndex", OpCode::enq, "",
       "UnknownOperation: attribute entryIndex of Vorn::PortData has no operation enq [entryIndex]"},
      {index, "value", static_cast<OpCode>(16), "",
       "UnknownOperation: attribute value of Vorn::EntryIndex has no operation unknown [value]"},
      {port, "chunk", OpCode::member, "key=5", "KeyNotFound: no member 5 in chunk [5]"},
      {get(port, "chunkTobeMerged"), "intfId", OpCode::read, "", "Range: null ValidPtr"},
      {port, "mergeEntries", OpCode::set, "value=yes",
       "Parse: neither true nor false at column 0 deserializing yes"},
      {index, "value", OpCode::set, "value=x",
       "Parse: no digits where a number was expected at column 0 deserializing x"}};
  auto const noValue = [](string const&, std::size_t) { return nullptr; };
  for (auto const& [object, attribute, code, given, text] : cases)
    EXPECT_EQ(failure(std::bind(perform, object, attribute, code, args(given, noValue))), text);
  EXPECT_EQ(failure([&] { set(port, "chunkTobeMerged", toGeneric(Vorn::Entry::Ptr())); }),
            "Type: Chunk [value]");
  EXPECT_EQ(failure([&] { set(index, "value", toGeneric(U32{4})); }), "Type: U16 [value]");
  EXPECT_EQ(failure([&] { index->valIs(*toGeneric(true)); }), "Type: EntryIndex []");
  EXPECT_EQ(failure([&] { port->strRep(); }), "Type: PortData [strRep]");
  EXPECT_EQ(failure([&] { port->attributeIterator(130); }),
            "UnknownOperation: attribute intfId of Vorn::PortData has no operation iterator [intfId]");
  EXPECT_EQ(bench.port("eth9"), nullptr);
  EXPECT_EQ(shown(get(constant, "entryTobeMerged")), "0");
  EXPECT_EQ(shown(index), "3");
  // What is out of range is stored all the same.
  string const outside = "Range: EntryIndex::value < 0 or > EntryIndex::max not allowed";
  EXPECT_EQ(failure([&] { set(index, "value", toGeneric("600")); }), outside);
  EXPECT_EQ(failure([&] { perform(index, "value", OpCode::inc, args("amount=1")); }), outside);
  EXPECT_EQ(shown(index), "601");
}

TEST(Registry, Instances_madeClonedAndSet) {
  GenericIf::Ptr const recorder = toGeneric(::Test::Bench().recorder);
  auto const inputs = [&](string const& name, std::size_t) { return get(recorder, name); };
  std::istringstream in(R"(Microseconds value=5
EntryIndex value=5
EntryIndexOrNull value=500
Chunk
GlobalBufferChunk
Clock
TestClock
PortMetaDataDumper
Entry qLen=5 timestamp=9
PortMetaData intfId=eth0 identifier=3
PortData intfId=eth0
CongestionData portMetaDataDumper clock vornHwStatus vornConfig
)");
  std::size_t made = 0;
  for (string name, text; in >> name && std::getline(in, text); ++made) {
    Kes::Type const& type = *Kes::TypeRegistry::instance().type(name.insert(0, "Vorn::"));
    GenericArgs const given = args(text, inputs);
    GenericIf::Ptr const object = type.construct(given);
    EXPECT_TRUE(&object->type() == &type && &object->clone()->type() == &type) << name;
    EXPECT_EQ(shown(object->clone()), shown(object));
    for (auto const& argument : given)
      EXPECT_EQ(shown(get(object, argument.name.str())), shown(argument.value)) << name;
  }
  EXPECT_EQ(made, Vorn::types().size());
  GenericIf::Ptr const usec = toGeneric(::Test::us(1500));
  GenericIf::Ptr const copy = usec->clone();
  set(copy, "value", toGeneric("7"));
  EXPECT_EQ(shown(usec), "1500");
  usec->valIs(*copy);
  EXPECT_EQ(shown(usec), "7");
}

}  // namespace
