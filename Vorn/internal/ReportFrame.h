// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "Kes/String.h"
#include "Kes/Time.h"
#include "Kes/Types.h"
#include "Vorn/Trace.h"

namespace Vorn {

// Where a report goes, and what stands around its lines. Both texts are written as they are.
struct ReportFrame {
  std::FILE* stream;
  Kes::String header;
  Kes::String footer;

  // Whether there is a stream to write to; traces an error in the name of `operation` otherwise.
  bool hasStream(char const* operation) const {
    if (stream == nullptr) VORN_TRACE(0, operation << " : no stream to write to");
    return stream != nullptr;
  }
  void begin(Kes::Seconds time) const {
    std::fprintf(stream, "\nReport generated at %f\n", time);
    std::fputs(header.charPtr(), stream);
  }
  // Returns how many characters were written, or a negative number on an output error.
  Kes::S32 end() const { return std::fprintf(stream, "%s", footer.charPtr()); }
};

}  // namespace Vorn
