#pragma once

#include <charconv>
#include <cstdio>
#include <cstring>

#include "bench/Workload.h"

namespace Bench {

// A line of a report, "TIME,INTERFACE,QLEN,DURATION": every contestant's reports consist of these.
struct ReportLine {
  char const* time;  // at most 20 characters
  char const* intf;  // and 40
  U32 qLen;
  U64 duration;
};

// Whether it could be written whole.
inline bool writeLine(std::FILE* out, ReportLine const& from, char separator) {
  char line[128];
  char* const limit = line + sizeof line - 1;  // leaves room for a separator
  char* end = line;
  for (char const* text : {from.time, from.intf}) {
    std::size_t const size = std::strlen(text);
    std::memcpy(end, text, size);
    end += size;
    *end++ = separator;
  }
  end = std::to_chars(end, limit, from.qLen).ptr;
  *end++ = separator;
  end = std::to_chars(end, limit, from.duration).ptr;
  *end++ = '\n';
  auto const size = static_cast<std::size_t>(end - line);
  return std::fwrite(line, 1, size, out) == size;
}

}  // namespace Bench
