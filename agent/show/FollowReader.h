// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "agent/record/RecordRow.h"

namespace Agent {

// What an agent sends is not what Protocol.h says; the text is for people.
class FollowError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads what an agent sends to a client that follows (Protocol.h): bytes cut anywhere, which nobody trusts.
// Fields are known by their names in the first line; those that are not known here are left out, and so are
// lines of another kind than records.
class FollowReader {
 public:
  struct Handlers {
    std::function<void(RecordRow const&)> record;  // its name is borrowed for the call
    std::function<void(Kes::U64)> skipped;
  };
  explicit FollowReader(Handlers handlers) : handlers_(std::move(handlers)) {}

  // Throws FollowError, and what the handlers throw.
  void take(std::string_view bytes);

  // Whether the first line has come.
  bool begun() const { return !fields_.empty(); }
  // What the agent says in place of lines, so far without the last newline; empty: nothing.
  std::string const& verdict() const { return verdict_; }

 private:
  using Put = void (*)(RecordRow& row, std::string_view text);

  void takeLine(std::string_view line);
  void takeNames();

  Handlers handlers_;
  std::string line_;                // as far as it has come
  std::vector<std::string> texts_;  // of a line, one a field
  std::vector<Put> fields_;         // what each field is; null: not known
  bool inVerdict_ = false;
  std::string verdict_;
};

}  // namespace Agent
