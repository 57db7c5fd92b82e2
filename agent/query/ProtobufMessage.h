// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "Kes/Types.h"

namespace Agent {

// A message in the wire format of protocol buffers, field by field: numbers as varints, and bytes, texts and
// messages with their length in front.
class ProtobufMessage {
 public:
  ProtobufMessage& number(Kes::U32 field, Kes::U64 value) {
    varint(Kes::U64{field} << 3);
    varint(value);
    return *this;
  }
  ProtobufMessage& text(Kes::U32 field, std::string_view value) {
    varint(Kes::U64{field} << 3 | 2);
    varint(value.size());
    bytes_.append(value);
    return *this;
  }
  ProtobufMessage& message(Kes::U32 field, ProtobufMessage const& value) { return text(field, value.bytes_); }

  std::string_view bytes() const { return bytes_; }

 private:
  void varint(Kes::U64 value) {
    for (; value >= 128; value >>= 7) bytes_ += static_cast<char>(value | 128);
    bytes_ += static_cast<char>(value);
  }

  std::string bytes_;
};

}  // namespace Agent
