// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>

namespace Agent {

// Writes one JSON value into a stream, part by part, and a newline at destruction. Texts may be any bytes:
// what is not UTF-8 is written as replacement characters, and what is not ASCII in escapes. The stream tells
// by its error flag whether all was written.
class JsonStream {
 public:
  explicit JsonStream(std::FILE* out);
  ~JsonStream();
  JsonStream(JsonStream const&) = delete;
  JsonStream& operator=(JsonStream const&) = delete;

  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  void key(std::string_view text);

  void text(std::string_view text);
  void number(std::uint64_t value);
  // Decimal digits as they are, with a sign and a fraction if need be.
  void number(std::string_view digits);
  void boolean(bool value);
  void null();

 private:
  struct Writer;
  std::unique_ptr<Writer> writer_;
};

}  // namespace Agent
