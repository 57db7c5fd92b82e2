// SPDX-License-Identifier: Apache-2.0
#include "Kes/ByName/GenericValue.h"

#include <charconv>

namespace Kes {

bool Text<bool>::read(StrepPos& pos, StrepPos end) {
  std::string_view const rest(pos, static_cast<std::size_t>(end - pos));
  for (bool const value : {true, false}) {
    std::string_view const word = value ? "true" : "false";
    if (!rest.starts_with(word)) continue;
    pos += word.size();
    return value;
  }
  throw ParseException("neither true nor false");
}

String Text<S32>::write(S32 value) { return format("%d", value); }

String Text<Seconds>::write(Seconds value) {
  char digits[400];  // the largest double has 309 digits, the smallest 324 behind the point and 17 more
  auto const written = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed);
  return std::string_view(digits, static_cast<std::size_t>(written.ptr - digits));
}

Seconds Text<Seconds>::read(StrepPos& pos, StrepPos end) {
  Seconds value = 0.0;
  auto const read = std::from_chars(pos, end, value);
  if (read.ec != std::errc()) throw ParseException("no number of seconds");
  pos = read.ptr;
  return value;
}

String Text<VoidPtr>::write(VoidPtr) { throw TypeException("VoidPtr", "strRep"); }

CharPtrConst FromGeneric<CharPtrConst>::of(GenericIf const& generic) {
  if (auto const* const text = dynamic_cast<GenericValue<String> const*>(&generic))
    return text->value().charPtr();
  if (auto const* const same = dynamic_cast<GenericValue<CharPtrConst> const*>(&generic))
    return same->value();
  throw TypeException("CharPtrConst", "");
}

#define KES_BASIC_TYPE(T, text)             \
  Type const& GenericOf<T>::type() {        \
    static Type const type({.name = text}); \
    return type;                            \
  }
KES_BASIC_TYPE(bool, "bool")
KES_BASIC_TYPE(U8, "U8")
KES_BASIC_TYPE(U16, "U16")
KES_BASIC_TYPE(U32, "U32")
KES_BASIC_TYPE(U64, "U64")
KES_BASIC_TYPE(S32, "int")
KES_BASIC_TYPE(Seconds, "Kes::Seconds")
KES_BASIC_TYPE(String, "Kes::String")
KES_BASIC_TYPE(CharPtrConst, "Kes::CharPtrConst")
KES_BASIC_TYPE(VoidPtr, "Kes::VoidPtr")
#undef KES_BASIC_TYPE

}  // namespace Kes
