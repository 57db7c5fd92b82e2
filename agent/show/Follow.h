// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include "agent/base/FileDescriptor.h"
#include "agent/query/Query.h"
#include "agent/show/PrintableOutput.h"
#include "agent/show/ShowClient.h"

namespace Agent {

// What following needs of its surroundings.
struct FollowPlace {
  std::function<FileDescriptor()> connect;         // blocking; throws std::system_error
  Output output;                                   // gets the lines that there are, and is to show them now
  int reader;                                      // behind it: once it has hung up nothing is to be shown
  std::function<void(std::string const&)> remark;  // for people, beside the lines
};

// Shows the records of bursts as they close, those that the query is about, in its form: text with its titles
// first, comma-separated lines with the names of fields first, or JSON, one object a line. Tells how many
// were skipped because nobody took them in time. Where the agent ends it waits for it to come back.
//
// Ends after the query's count, when the reader has hung up, or when the agent cannot be reached at first or
// refuses.
AnswerEnd followRecords(Query const& query, FollowPlace const& place);

}  // namespace Agent
