// SPDX-License-Identifier: Apache-2.0
// Formats. Input: one conversion in numbers, to be compared with the C library; then arguments of any kind
// and a format.

#include "Kes/Format.h"

#include "fuzz/Harness.h"

namespace {

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class T, class U>
void compare(std::string const& form, T value, std::string const& theirForm, U theirValue) {
  char expected[8192];
  std::snprintf(expected, sizeof expected, theirForm.c_str(), theirValue);
  Fuzz::check(Kes::format(form, value).str() == expected, form.c_str(), expected);
}

void compareOne(Fuzz::Input& input) {
  // Conversions, and the flags that mean something to them.
  static std::string const kinds[] = {"d-+ 0",  "i-+ 0",  "u-0",    "x-#0",   "X-#0",   "o-#0", "c-",
                                      "f-+ #0", "e-+ #0", "E-+ #0", "g-+ #0", "G-+ #0", "s-"};
  std::string const& kind = kinds[input.below(std::size(kinds))];
  std::string begin = "%";
  Kes::U32 const dice = input.byte();
  for (std::size_t i = 1; i < kind.size(); ++i)
    if (((dice >> i) & 1) != 0) begin += kind[i];
  if ((dice & 64) != 0) begin += std::to_string(1 + input.byte());
  if ((dice & 128) != 0 && kind[0] != 'c') begin += "." + std::to_string(input.byte());
  Kes::U64 number = 0;
  for (int i = 0; i < 8; ++i) number = number << 8 | input.byte();
  std::string const text = input.text(input.byte()).c_str();  // up to a null character
  std::string const form = begin + kind[0];
  std::string const wide = begin + "ll" + kind[0];
  double floating;
  std::memcpy(&floating, &number, sizeof floating);
  switch (kind[0]) {
    case 's': return compare(form, text, form, text.c_str());
    case 'c': return compare(form, 1 + number % 255, form, static_cast<int>(1 + number % 255));
    case 'd':
    case 'i': return compare(form, static_cast<Kes::S64>(number), wide, static_cast<long long>(number));
    case 'u':
    case 'x':
    case 'X':
    case 'o': return compare(form, number, wide, static_cast<unsigned long long>(number));
    default: return compare(form, floating, form, floating);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  Fuzz::Input input(data, size);
  compareOne(input);
  std::string const text = input.text(input.byte());
  char const* const none = nullptr;
  Kes::FormatArg const all[] = {-1, ~Kes::U64{0}, 1e308, text, none, static_cast<void const*>(data)};
  auto const a = all[input.below(6)], b = all[input.below(6)], c = all[input.below(6)];
  std::string const form = input.rest();
  // Each of the three takes its width of 4,096 at most, a number of 309 digits before as many decimals, or a
  // text; behind them conversions are missing.
  std::string const formatted = Kes::formatArgs(form, {a, b, c}).str();
  Fuzz::check(formatted.size() <= 9 * form.size() + 3 * (2 * 4096 + 512), "size", form);
  if (form.find('%') == std::string::npos) Fuzz::check(formatted == form, "plain text", form);
  return 0;
}
