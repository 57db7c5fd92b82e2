// SPDX-License-Identifier: Apache-2.0
#include "Kes/Format.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace Kes {

namespace {

constexpr int widthLimit = 4096;

// One conversion of the format, such as "%-8.3lf", taken apart.
struct Conversion {
  std::string flags;
  int width = 0;
  int precision = -1;
  char letter = 0;  // 0: the format ended inside the conversion
};

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool done() const { return pos_ == text_.size(); }
  char next() { return done() ? '\0' : text_[pos_++]; }

  std::string_view literal() {
    std::size_t const start = pos_;
    pos_ = std::min(text_.find('%', pos_), text_.size());
    return text_.substr(start, pos_ - start);
  }

  Conversion conversion() {
    Conversion result;
    result.flags = span("-+ #0");
    result.width = number();
    if (peek() == '.') {
      ++pos_;
      result.precision = number();
    }
    span("hlqjzt");
    result.letter = next();
    return result;
  }

 private:
  char peek() const { return done() ? '\0' : text_[pos_]; }

  std::string span(std::string_view set) {
    std::size_t const start = pos_;
    pos_ = std::min(text_.find_first_not_of(set, pos_), text_.size());
    return std::string(text_.substr(start, pos_ - start));
  }

  int number() {
    int result = 0;
    while (peek() >= '0' && peek() <= '9') result = std::min(result * 10 + (next() - '0'), widthLimit);
    return result;
  }

  std::string_view text_;
  std::size_t pos_ = 0;
};

// Lets printf do one conversion of a value whose type is known to fit `type`: what the compiler cannot check,
// as the format is put together here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class T>
void print(std::string& out, Conversion const& c, char const* type, T value) {
  std::string form = "%" + c.flags + std::to_string(c.width);
  if (c.width == 0) form = "%" + c.flags;
  if (c.precision >= 0) form += "." + std::to_string(c.precision);
  form += type;
  int const size = std::snprintf(nullptr, 0, form.c_str(), value);
  if (size < 0) return;
  std::size_t const start = out.size();
  out.resize(start + static_cast<std::size_t>(size) + 1);
  std::snprintf(out.data() + start, static_cast<std::size_t>(size) + 1, form.c_str(), value);
  out.pop_back();
}
#pragma GCC diagnostic pop

void printText(std::string& out, Conversion const& c, std::string_view text) {
  if (c.letter == 's' && c.precision >= 0) text = text.substr(0, static_cast<std::size_t>(c.precision));
  std::size_t const width = static_cast<std::size_t>(c.width);
  std::size_t const padding = width > text.size() ? width - text.size() : 0;
  bool const left = c.flags.find('-') != std::string::npos;
  if (!left) out.append(padding, ' ');
  out.append(text);
  if (left) out.append(padding, ' ');
}

// %x and %o want their bits; everything else the value with its own sign.
void printInteger(std::string& out, Conversion const& c, FormatArg const& arg) {
  bool const isSigned = arg.kind() == FormatArg::Kind::signedNumber;
  U64 const bits = isSigned ? static_cast<U64>(arg.signedNumber()) : arg.unsignedNumber();
  switch (c.letter) {
    case 'x': return print(out, c, "llx", static_cast<unsigned long long>(bits));
    case 'X': return print(out, c, "llX", static_cast<unsigned long long>(bits));
    case 'o': return print(out, c, "llo", static_cast<unsigned long long>(bits));
    case 'c': return printText(out, c, std::string(1, static_cast<char>(bits)));
    default: break;
  }
  Conversion decimal = c;
  std::erase(decimal.flags, '#');  // which means nothing to a decimal number, and printf leaves open
  if (isSigned)
    print(out, decimal, "lld", static_cast<long long>(arg.signedNumber()));
  else
    print(out, decimal, "llu", static_cast<unsigned long long>(bits));
}

void printFloating(std::string& out, Conversion const& c, double value) {
  switch (c.letter) {
    case 'e': return print(out, c, "e", value);
    case 'E': return print(out, c, "E", value);
    case 'g': return print(out, c, "g", value);
    case 'G': return print(out, c, "G", value);
    default: return print(out, c, "f", value);
  }
}

void printArg(std::string& out, Conversion const& c, FormatArg const& arg) {
  switch (arg.kind()) {
    case FormatArg::Kind::signedNumber:
    case FormatArg::Kind::unsignedNumber: return printInteger(out, c, arg);
    case FormatArg::Kind::floating: return printFloating(out, c, arg.floating());
    case FormatArg::Kind::text: return printText(out, c, arg.text());
    case FormatArg::Kind::pointer: return print(out, Conversion{{}, c.width, -1, 'p'}, "p", arg.pointer());
  }
}

}  // namespace

String formatArgs(std::string_view format, std::initializer_list<FormatArg> args) {
  std::string out;
  Reader reader(format);
  auto arg = args.begin();
  while (!reader.done()) {
    out += reader.literal();
    if (reader.next() == '\0') break;
    Conversion const conversion = reader.conversion();
    if (conversion.letter == '\0' || conversion.letter == '%')
      out += '%';
    else if (arg == args.end())
      out += "(missing)";
    else
      printArg(out, conversion, *arg++);
  }
  return out;
}

}  // namespace Kes
