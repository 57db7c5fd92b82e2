// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Kes/Export.h"
#include "Kes/Ptr.h"

namespace Kes {

// Immutable 8-bit text. Copies share the bytes (counted like every Ptr, and under the same thread-safety
// switch), so passing a String by value costs no allocation. The empty text allocates nothing. Bytes may be
// 0; charPtr() then reads as far as the first.
class KES_EXPORT String {
 public:
  String() noexcept = default;
  String(std::string_view text);
  String(std::string const& text) : String(std::string_view(text)) {}
  // A null pointer is the empty text.
  String(char const* text) : String(text == nullptr ? std::string_view() : std::string_view(text)) {}

  std::string_view view() const noexcept {
    return bytes_ ? std::string_view(bytes_->text) : std::string_view("");
  }
  // NUL-terminated; lives as long as any String that shares these bytes.
  char const* charPtr() const noexcept { return view().data(); }
  std::string str() const { return std::string(view()); }
  std::size_t size() const noexcept { return view().size(); }
  bool empty() const noexcept { return !bytes_; }

  friend bool operator==(String const& a, String const& b) noexcept {
    return a.bytes_ == b.bytes_ || a.view() == b.view();
  }
  friend std::strong_ordering operator<=>(String const& a, String const& b) noexcept {
    return a.view() <=> b.view();
  }

 private:
  struct Bytes final : PtrInterface {
    explicit Bytes(std::string_view from) : text(from) {}
    std::string const text;
  };
  Ptr<Bytes const> bytes_;
};

KES_EXPORT std::ostream& operator<<(std::ostream& out, String const& text);

}  // namespace Kes
