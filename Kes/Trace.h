// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <locale>
#include <sstream>
#include <string_view>

#include "Kes/Export.h"
#include "Kes/Types.h"

// Diagnostics for the field: free-form lines at levels 0 (errors) to 9 (finest), which never change
// behaviour. A level that is off costs one load and a branch; the line's expressions are evaluated only when
// it is on.
namespace Kes {

// Names a component's traces and says which levels are on. Constant-initialised and trivially destroyed, so
// that it can be used at any moment of a process's life, static initialisation included.
class KES_EXPORT TraceHandle {
 public:
  static constexpr U32 maxLevel = 9;

  // `allLevels`: whether every level starts on; otherwise only errors (level 0) do. The name is borrowed for
  // ever: pass a literal.
  constexpr TraceHandle(char const* name, bool allLevels) : name_(name), levels_(allLevels ? ~0U : 1U) {}

  char const* name() const { return name_; }
  bool enabled(U32 level) const {
    return level <= maxLevel && ((levels_.load(std::memory_order_relaxed) >> level) & 1U) != 0;
  }
  // Turns one level on or off; levels above 9 do not exist and are ignored.
  void levelIs(U32 level, bool on);
  // Hands one line to the sink. Use KES_TRACE, which tests the level first.
  void write(U32 level, std::string_view line) const;

 private:
  char const* name_;
  std::atomic<U32> levels_;
};

// Receives every trace line, without a newline. The default writes "NAME LEVEL LINE" to stderr.
using TraceSink = void (*)(TraceHandle const& handle, U32 level, std::string_view line);

// Replaces the sink of the process; null brings the default back.
KES_EXPORT void traceSinkIs(TraceSink sink);

}  // namespace Kes

// KES_TRACE(handle, 8, "port " << name): writes the line if the handle's level is on. What makes the line
// stays out of the way of the code around it; a line that cannot be made, for lack of memory, is dropped.
#define KES_TRACE(handle, level, expressions)         \
  do {                                                \
    if ((handle).enabled(level)) [[unlikely]] {       \
      [&]() __attribute__((noinline, cold)) {         \
        try {                                         \
          std::ostringstream kesTraceLine;            \
          kesTraceLine.imbue(std::locale::classic()); \
          kesTraceLine << expressions;                \
          (handle).write(level, kesTraceLine.view()); \
        } catch (std::exception const&) {             \
        }                                             \
      }                                               \
      ();                                             \
    }                                                 \
  } while (false)
