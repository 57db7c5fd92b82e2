// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace Agent {

// A short text that a process and the children that it forks share: what a child says of its work outlives
// it.
class SharedText {
 public:
  static constexpr std::size_t most = 1024;  // bytes; the rest is cut

  // Empty. Throws std::system_error.
  SharedText();
  ~SharedText();
  SharedText(SharedText const&) = delete;
  SharedText& operator=(SharedText const&) = delete;

  // Allocates nothing.
  void set(std::string_view text) noexcept;
  std::string text() const;

 private:
  struct Page {
    std::size_t size;
    char text[most];
  };
  Page* const page_;
};

}  // namespace Agent
