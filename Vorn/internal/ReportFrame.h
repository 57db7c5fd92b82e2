#pragma once

#include <cstdio>

#include "Kes/String.h"
#include "Kes/Time.h"
#include "Kes/Types.h"
#include "Vorn/Trace.h"

// What all reports have around their lines.
namespace Vorn {

// The stream of a report; null, with an error trace, for a null pointer.
inline std::FILE* reportStream(Kes::VoidPtr stream, char const* operation) {
  if (stream == nullptr) VORN_TRACE(0, operation << " : no stream to write to");
  return static_cast<std::FILE*>(stream);
}

inline void beginReport(std::FILE* stream, Kes::Seconds time, Kes::String const& reportHeader) {
  std::fprintf(stream, "\nReport generated at %f\n", time);
  std::fputs(reportHeader.charPtr(), stream);
}

// Returns how many characters were written, or a negative number on an output error.
inline Kes::S32 endReport(std::FILE* stream, Kes::String const& footer) {
  return std::fprintf(stream, "%s", footer.charPtr());
}

}  // namespace Vorn
