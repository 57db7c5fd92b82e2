// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <initializer_list>
#include <string_view>
#include <type_traits>

#include "Kes/Export.h"
#include "Kes/String.h"
#include "Kes/Types.h"

namespace Kes {

// One argument of format(), with its own type. Texts are borrowed for the call.
class FormatArg {
 public:
  enum class Kind : U8 { signedNumber, unsignedNumber, floating, text, pointer };

  template <std::signed_integral T>
  FormatArg(T number) : kind_(Kind::signedNumber), signed_(number) {}
  template <std::unsigned_integral T>
  FormatArg(T number) : kind_(Kind::unsignedNumber), unsigned_(number) {}
  template <std::floating_point T>
  FormatArg(T number) : kind_(Kind::floating), floating_(static_cast<double>(number)) {}
  FormatArg(char const* text) : kind_(Kind::text), text_(text == nullptr ? "(null)" : text) {}
  FormatArg(std::string_view text) : kind_(Kind::text), text_(text) {}
  FormatArg(std::string const& text) : FormatArg(std::string_view(text)) {}
  FormatArg(String const& text) : FormatArg(text.view()) {}
  FormatArg(void const* pointer) : kind_(Kind::pointer), pointer_(pointer) {}

  Kind kind() const { return kind_; }
  S64 signedNumber() const { return signed_; }
  U64 unsignedNumber() const { return unsigned_; }
  double floating() const { return floating_; }
  std::string_view text() const { return text_; }
  void const* pointer() const { return pointer_; }

 private:
  Kind kind_;
  union {
    S64 signed_;
    U64 unsigned_;
    double floating_;
    std::string_view text_;
    void const* pointer_;
  };
};

KES_EXPORT String formatArgs(std::string_view format, std::initializer_list<FormatArg> args);

// printf-style formatting that knows its arguments' types. The flags, width, precision and conversions of
// printf are honoured (%d %i %u %x %X %o %c %s %f %e %g %p %%); length modifiers are accepted and mean
// nothing. A number prints its true value whatever its width or sign under %d and %u alike, a null text
// prints "(null)", an argument of another kind than its conversion prints in its own natural form, a missing
// one as "(missing)", and surplus ones are ignored: no format can be undefined behaviour. %n is not a
// conversion here. Widths and precisions are limited to 4,096.
template <class... Args>
String format(std::string_view form, Args const&... args) {
  return formatArgs(form, {FormatArg(args)...});
}

}  // namespace Kes
