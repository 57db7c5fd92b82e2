// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace Agent {

// Where a report goes, piece by piece.
using Output = std::function<void(std::string_view)>;

// Passes lines of text on, printable (Printable.h): whoever answers at a socket may send what a terminal
// would obey. Only colours pass, where they are wanted.
class PrintableOutput {
 public:
  explicit PrintableOutput(Output output, bool colour = false)
      : output_(std::move(output)), colour_(colour) {}

  // The next bytes, cut anywhere. A character or a colour that is not complete yet waits for its rest.
  void take(std::string_view bytes);
  // No more bytes follow.
  void finish() { put(held_.size()); }

 private:
  void put(std::size_t bytes);

  Output output_;
  bool const colour_;
  std::string held_;
};

}  // namespace Agent
