// The parts that everything else is made of: counted pointers, texts, numbers as text, access by name.

#include <cstdio>
#include <memory>

#include "Kes/ByName/TypeRegistry.h"
#include "Vorn/GenericIf.h"
#include "Vorn/Registration.h"
#include "bench/RecorderLog.h"
#include "bench/Suite.h"

namespace Bench {

namespace {

void addPointers() {
  auto const entry = Kes::makePtr<Vorn::Entry>(1U, Vorn::Microseconds(1));
  addLoop("pointer/copy", [entry] { return Vorn::Entry::Ptr(entry); });
  benchmark::RegisterBenchmark("pointer/copy, thread-safe", [entry](benchmark::State& state) {
    Kes::threadSafePtrsIs(true);
    for (auto _ : state) benchmark::DoNotOptimize(Vorn::Entry::Ptr(entry));
    Kes::threadSafePtrsIs(false);
  });
  addLoop("pointer/copy of a std::shared_ptr",
          [shared = std::make_shared<U64>(1)] { return std::shared_ptr(shared); });
  addLoop("record/made and released", [] { return Kes::makePtr<Vorn::Entry>(1U, Vorn::Microseconds(1)); });
}

void addTexts() {
  static constexpr char name[] = "Ethernet117/3";
  Kes::String const text("a text that is longer than a short one");
  std::string const standard = text.str();
  addLoop("text/copy", [text] { return Kes::String(text); });
  addLoop("text/copy of a std::string", [standard] { return std::string(standard); });
  addLoop("text/made", [standard] { return Kes::String(standard); });
  addLoop("interface identifier/made", [] { return Pylo::IntfId(name); });
  addLoop("interface identifier/copy", [id = Pylo::IntfId(name)] { return Pylo::IntfId(id); });
  addLoop("interface identifier/compared",
          [a = Pylo::IntfId(name), b = Pylo::IntfId(name)] { return a == b; });
  addLoop("number/text", [] { return Kes::DecimalText(1'795'388'706'905'736).view().size(); });
  addLoop("number/snprintf", [] {
    char digits[24];
    return std::snprintf(digits, sizeof digits, "%ju", U64{1'795'388'706'905'736});
  });
  addLoop("message/format", [] { return Kes::format("queue length %u on %s", 123456U, name); });
  addLoop("message/snprintf", [] {
    char message[64];
    return std::snprintf(message, sizeof message, "queue length %u on %s", 123456U, name);
  });
}

// By-name access to a record's length, which must be what the record says.
void addByName() {
  auto const entry = Kes::makePtr<Vorn::Entry>(1500U, Vorn::Microseconds(1));
  auto const generic = Kes::makePtr<Vorn::Entry::GenericIf_>(entry);
  Kes::AttributeId const qLen = generic->attributeId("qLen");
  expect(generic->attributeOp({qLen, Kes::OpCode::read})->strRep() == "1500", "an attribute read by name");
  addLoop("registry/type by name", [] { return Kes::TypeRegistry::instance().type("Vorn::CongestionData"); });
  addLoop("by name/attribute", [generic] { return generic->attributeId("qLen"); });
  addLoop("by name/read", [generic, qLen] { return generic->attributeOp({qLen, Kes::OpCode::read}); });
  addLoop("by name/set", [generic, qLen, arguments = Kes::GenericArgs{{"value", Kes::toGeneric(1500U)}}] {
    return generic->attributeOp({qLen, Kes::OpCode::set}, arguments);
  });
  addLoop("by name/C++ read", [entry] { return entry->qLen(); });
}

}  // namespace

void addCases(bool) {
  expect(Vorn::typesRegistered(), "the types are registered");
  addPointers();
  addTexts();
  addByName();
}

}  // namespace Bench
