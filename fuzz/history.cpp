// SPDX-License-Identifier: Apache-2.0
// Saved histories. Input: one byte; where it is 0 the file follows, else sections, each a byte of its type,
// one of its length and so many bytes, which get their frame and their checksums here.

#include "agent/history/HistoryFormat.h"
#include "agent/history/HistoryReader.h"
#include "agent/history/HistoryWriter.h"
#include "fuzz/Harness.h"

namespace {

using namespace Agent;

std::string framed(Fuzz::Input& input) {
  HistoryFormat::Fields file;
  file.addBytes(HistoryFormat::magic);
  file.add(HistoryFormat::byteOrder);
  file.add(HistoryFormat::version);
  Kes::U32 sum = HistoryFormat::checksum(0, file.bytes());
  file.add(sum);
  while (!input.empty()) {
    HistoryFormat::Fields section;
    section.add(static_cast<Kes::U16>(input.byte()));
    std::string const fields = input.text(input.byte());
    section.add(static_cast<Kes::U16>(fields.size()));
    section.addBytes(fields);
    sum = HistoryFormat::checksum(sum, section.bytes());
    file.addBytes(section.bytes());
    file.add(sum);
  }
  return file.bytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  std::string const bytes = input.byte() == 0 ? input.rest() : framed(input);
  Test::Bench before;
  BurstLedger ledger;
  HistoryRead const found = readHistory(bytes, *before.recorder, ledger);
  Fuzz::check((found.kind == HistoryRead::Kind::whole) == found.fault.empty(), "fault", found.fault);
  Fuzz::check(before.recorder->checkInvariants().empty(), "invariants");

  // What was sound can be written, and is the same when it is read.
  auto const saved = [](Test::Bench& bench, BurstLedger const& accounts) {
    return Test::Bench::written([&](std::FILE* out) { writeHistory(*bench.recorder, accounts, out); });
  };
  before.clock->utcTimeIs(1);
  std::string const first = saved(before, ledger);
  Test::Bench after;
  BurstLedger ledgerAfter;
  HistoryRead const read = readHistory(first, *after.recorder, ledgerAfter);
  Fuzz::check(read.kind == HistoryRead::Kind::whole && read.records == found.records, "again", read.fault);
  after.clock->utcTimeIs(1);
  Fuzz::check(saved(after, ledgerAfter) == first, "the same");
  return 0;
}
