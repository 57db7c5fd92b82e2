// SPDX-License-Identifier: Apache-2.0
// What a follower reads from an agent. Input: where to cut the bytes in two, and the bytes behind the names.

#include "agent/record/RecordColumns.h"
#include "agent/show/FollowReader.h"
#include "fuzz/Harness.h"

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  std::size_t const cut = input.byte();
  std::string const bytes = Agent::recordFieldNames() + input.rest();
  auto const read = [&bytes](std::size_t where) {
    std::string seen;
    auto const record = [&seen](Agent::RecordRow const& row) {
      seen += Test::Bench::written([&](std::FILE* out) { Agent::writeCsvLine(out, row); });
    };
    try {
      Agent::FollowReader reader({record, [&seen](Kes::U64 count) { seen += std::to_string(count) + ' '; }});
      reader.take(std::string_view(bytes).substr(0, where));
      reader.take(std::string_view(bytes).substr(where));
      return seen + reader.verdict();
    } catch (Agent::FollowError const& error) {
      return seen + error.what();
    }
  };
  Fuzz::check(read(bytes.size()) == read(std::min(cut, bytes.size())), "cut elsewhere", bytes);
  return 0;
}
