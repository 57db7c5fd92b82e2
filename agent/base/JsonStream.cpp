// SPDX-License-Identifier: Apache-2.0
#include "agent/base/JsonStream.h"

#include <rapidjson/encodings.h>
#include <rapidjson/filewritestream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/writer.h>

#include <array>
#include <string>
#include <utility>

namespace Agent {

namespace {

struct TextSink {
  using Ch = char;
  void Put(char c) { text += c; }
  std::string text{};
};

// Each byte that belongs to no UTF-8 character becomes a replacement character.
std::string asUtf8(std::string_view text) {
  using Utf8 = rapidjson::UTF8<>;
  constexpr unsigned replacement = 0xFFFD;
  rapidjson::MemoryStream in(text.data(), text.size());
  TextSink out;
  while (in.Tell() < text.size()) {
    char const* const begin = in.src_;
    unsigned character = 0;
    if (!Utf8::Decode(in, &character)) {
      character = replacement;
      in.src_ = begin + 1;
    }
    Utf8::Encode(out, character);
  }
  return std::move(out.text);
}

rapidjson::SizeType sizeOf(std::string const& text) { return static_cast<rapidjson::SizeType>(text.size()); }

}  // namespace

struct JsonStream::Writer {
  explicit Writer(std::FILE* out) : stream(out, buffer.data(), buffer.size()), json(stream) {}

  std::array<char, 16'384> buffer;
  rapidjson::FileWriteStream stream;
  // Pure ASCII: what a terminal would obey is escaped, and loses nothing.
  rapidjson::Writer<rapidjson::FileWriteStream, rapidjson::UTF8<>, rapidjson::ASCII<>> json;
};

JsonStream::JsonStream(std::FILE* out) : writer_(std::make_unique<Writer>(out)) {}

JsonStream::~JsonStream() {
  writer_->stream.Put('\n');
  writer_->stream.Flush();
}

void JsonStream::beginObject() { writer_->json.StartObject(); }
void JsonStream::endObject() { writer_->json.EndObject(); }
void JsonStream::beginArray() { writer_->json.StartArray(); }
void JsonStream::endArray() { writer_->json.EndArray(); }

void JsonStream::key(std::string_view text) {
  std::string const utf8 = asUtf8(text);
  writer_->json.Key(utf8.data(), sizeOf(utf8));
}

void JsonStream::text(std::string_view text) {
  std::string const utf8 = asUtf8(text);
  writer_->json.String(utf8.data(), sizeOf(utf8));
}

void JsonStream::number(std::uint64_t value) { writer_->json.Uint64(value); }

void JsonStream::number(std::string_view digits) {
  writer_->json.RawValue(digits.data(), digits.size(), rapidjson::kNumberType);
}

void JsonStream::boolean(bool value) { writer_->json.Bool(value); }
void JsonStream::null() { writer_->json.Null(); }

}  // namespace Agent
