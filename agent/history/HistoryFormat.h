// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "Kes/Types.h"

// The bytes of a saved history; docs/history-format.md tells the whole format. A header, then sections, each
// of which has a type, a length and a checksum. All numbers are little-endian.
namespace Agent::HistoryFormat {

inline constexpr std::string_view magic = "VORNHIST";
inline constexpr Kes::U32 byteOrder = 0x01020304;
inline constexpr Kes::U32 version = 3;
inline constexpr std::size_t headerBytes = 20;  // magic, byte order, version, checksum

enum class Section : Kes::U16 { state = 1, interface, queue, chunk, record, globalLog, end, totals, flows };

inline constexpr std::size_t sectionHeadBytes = 4;  // type and length
inline constexpr std::size_t checksumBytes = 4;

// Of an interface, in bytes.
inline constexpr std::size_t longestName = 255;

// Of a queueing discipline's kind, in bytes.
inline constexpr std::size_t longestKind = 15;

// Of a shared chunk in `shared`, of a record in `flags`.
inline constexpr Kes::U8 isShared = 1;
inline constexpr Kes::U8 alwaysLogged = 1;
inline constexpr Kes::U8 latestOfItsQueue = 2;

// Of a flow in `flags`.
inline constexpr Kes::U8 isFragment = 1;

// CRC-32 (polynomial 0xEDB88320, as in Ethernet and zip) of the bytes that gave `before`, 0 for none, and of
// `bytes` behind them.
Kes::U32 checksum(Kes::U32 before, std::string_view bytes);

// Fields one behind the other.
class Fields {
 public:
  template <class Number>
  void add(Number number) {
    char bytes[sizeof number];
    for (std::size_t i = 0; i < sizeof number; ++i) bytes[i] = static_cast<char>((number >> (8 * i)) & 0xff);
    bytes_.append(bytes, sizeof number);
  }
  void addReal(double number);
  // Two bytes of length, then the text, which must be shorter than 64 KiB.
  void addText(std::string_view text);
  void addBytes(std::string_view bytes) { bytes_ += bytes; }

  std::string& bytes() { return bytes_; }

 private:
  std::string bytes_;
};

// Takes them apart again. Beyond the end there are zeros and empty texts; afterwards isWhole() tells whether
// the bytes were just what was taken.
class FieldReader {
 public:
  explicit FieldReader(std::string_view bytes) : rest_(bytes) {}

  template <class Number>
  Number take() {
    std::string_view const bytes = takeBytes(sizeof(Number));
    Number number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
      number = static_cast<Number>(number | (Number{static_cast<unsigned char>(bytes[i])} << (8 * i)));
    return number;
  }
  double takeReal();
  std::string_view takeText() { return takeBytes(take<Kes::U16>()); }
  std::string_view takeBytes(std::size_t count);

  bool isWhole() const { return !failed_ && rest_.empty(); }

 private:
  std::string_view rest_;
  bool failed_ = false;
};

}  // namespace Agent::HistoryFormat
