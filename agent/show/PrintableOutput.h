// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace Agent {

// Passes lines of text on, printable (Printable.h): whoever answers at a socket may send what a terminal
// would obey.
class PrintableOutput {
 public:
  explicit PrintableOutput(std::function<void(std::string_view)> output) : output_(std::move(output)) {}

  // The next bytes, cut anywhere. A character that is not complete yet waits for its rest.
  void take(std::string_view bytes);
  // No more bytes follow.
  void finish() { put(held_.size()); }

 private:
  void put(std::size_t bytes);

  std::function<void(std::string_view)> output_;
  std::string held_;
};

}  // namespace Agent
