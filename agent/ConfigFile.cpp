// SPDX-License-Identifier: Apache-2.0
#include "agent/ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#include "agent/base/FileDescriptor.h"
#include "agent/base/Printable.h"

namespace Agent {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isWordByte(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '-';
}

}  // namespace

// Takes a text from its front.
class ConfigFile::Reader {
 public:
  Reader(ConfigFile const& file, std::string_view text) : file_(file), text_(text) {
    if (text_.starts_with(byteOrderMark)) at_ = byteOrderMark.size();
  }

  std::optional<Setting> next() {
    skipLines();
    if (at_ == text_.size()) return std::nullopt;
    Setting setting{.name{}, .values{}, .isArray = false, .line = line_};
    if (peek() == '[') refuse("there are no sections in this file");
    setting.name = taken(isWordByte);
    skipBlanks();
    if (setting.name.empty() || !take('=')) refuse("this is not NAME = VALUE");
    skipBlanks();
    setting.isArray = take('[');
    if (setting.isArray)
      takeArray(setting);
    else
      setting.values.push_back(value());
    skipBlanks();
    if (at_ != text_.size() && !take('\n')) refuse("something stands behind the value");
    ++line_;
    return setting;
  }

 private:
  [[noreturn]] void refuse(std::string const& what) const { throw file_.fault(line_, what); }

  char peek() const { return at_ == text_.size() ? '\n' : text_[at_]; }
  bool take(char c) {
    bool const found = at_ != text_.size() && text_[at_] == c;
    if (found) ++at_;
    return found;
  }
  template <class Predicate>
  std::string taken(Predicate isMeant) {
    std::size_t const begin = at_;
    while (at_ != text_.size() && isMeant(text_[at_])) ++at_;
    return std::string(text_.substr(begin, at_ - begin));
  }

  // And a comment.
  void skipBlanks() {
    taken([](char c) { return c == ' ' || c == '\t' || c == '\r'; });
    if (peek() == '#') taken([](char c) { return c != '\n'; });
  }
  void skipLines() {
    for (skipBlanks(); take('\n'); skipBlanks()) ++line_;
  }

  void takeArray(Setting& setting) {
    for (skipLines(); !take(']'); skipLines()) {
      if (setting.values.size() == maxValues)
        refuse("a list of more than " + std::to_string(maxValues) + " values");
      if (peek() == '[') refuse("an array holds no arrays");
      if (at_ != text_.size()) setting.values.push_back(value());
      skipLines();
      if (at_ == text_.size()) throw file_.fault(setting.line, "an array without an end");
      if (!take(',') && peek() != ']') refuse("a comma is missing between two values");
    }
  }

  std::string value() {
    if (take('"')) return quoted('"');
    if (take('\'')) return quoted('\'');
    std::string const word = taken([](char c) { return isWordByte(c) || c == '.' || c == '+'; });
    if (word.empty()) refuse("a value is missing");
    if (word == "true" || word == "false") return word;
    return number(word);
  }

  std::string quoted(char quote) {
    std::string value;
    for (; !take(quote); ++at_) {
      if (peek() == '\n') refuse("a string without an end");
      if (quote == '"' && take('\\') && peek() != '"' && peek() != '\\')
        refuse(R"(of escapes there are \" and \\ only; '...' takes a backslash as it is)");
      value += peek();
    }
    return value;
  }

  // Without the underscores between its digits.
  std::string number(std::string const& word) const {
    std::string plain;
    for (std::size_t i = 0; i < word.size(); ++i) {
      bool const joins =
          word[i] == '_' && i != 0 && isDigit(word[i - 1]) && i + 1 < word.size() && isDigit(word[i + 1]);
      if (!joins) plain += word[i];
    }
    double read = 0.0;
    auto const [end, error] = std::from_chars(plain.data(), plain.data() + plain.size(), read);
    if (error == std::errc::invalid_argument || end != plain.data() + plain.size())
      refuse('"' + word + "\" is neither a number nor true nor false; text stands in quotes");
    return plain;
  }

  ConfigFile const& file_;
  std::string_view const text_;
  std::size_t at_ = 0;
  unsigned line_ = 1;
};

ConfigFile::ConfigFile(std::string path, std::string const& text) : path_(std::move(path)) {
  auto const control = std::find_if(text.begin(), text.end(), [](unsigned char c) {
    return (c < 0x20 && c != '\t' && c != '\r' && c != '\n') || c == 0x7f;
  });
  if (control != text.end())
    throw fault(1 + static_cast<unsigned>(std::count(text.begin(), control, '\n')), "a control character");
  Reader reader(*this, text);
  while (auto setting = reader.next()) {
    auto const [earlier, isNew] = places_.emplace(setting->name, settings_.size());
    if (!isNew)
      throw fault(setting->line, '"' + setting->name + "\" is set in line " +
                                     std::to_string(settings_[earlier->second].line) + " already");
    settings_.push_back(std::move(*setting));
  }
}

std::optional<ConfigFile> ConfigFile::read(std::string const& path) {
  auto const refuse = [&path](std::string const& why) { return ConfigError(printable(path + ": " + why)); };
  FileDescriptor const file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  if (!file) throw refuse(std::strerror(errno));
  struct stat about {};
  if (::fstat(file.get(), &about) != 0) throw refuse(std::strerror(errno));
  bool const isNull = S_ISCHR(about.st_mode) && about.st_rdev == makedev(1, 3);
  if (!S_ISREG(about.st_mode) && !isNull) throw refuse("neither a regular file nor /dev/null");
  std::string text(maxBytes + 1, '\0');
  std::size_t size = 0;
  for (ssize_t got = 1; got != 0 && size < text.size(); size += static_cast<std::size_t>(got)) {
    got = ::read(file.get(), text.data() + size, text.size() - size);
    if (got < 0) throw refuse(std::strerror(errno));
  }
  if (size > maxBytes) throw refuse("longer than " + std::to_string(maxBytes) + " bytes");
  text.resize(size);
  return ConfigFile(path, text);
}

ConfigFile::Setting const* ConfigFile::find(std::string const& name) const {
  auto const place = places_.find(name);
  return place == places_.end() ? nullptr : &settings_[place->second];
}

std::string ConfigFile::place(unsigned line) const { return path_ + ':' + std::to_string(line); }

ConfigError ConfigFile::fault(unsigned line, std::string const& what) const {
  return ConfigError(printable(place(line) + ": " + what));
}

std::string configText(std::string const& value) {
  std::size_t const digits = value.find_first_not_of("0123456789");
  bool const isNumber = !value.empty() && digits != 0 &&
                        (digits == std::string::npos ||
                         (value[digits] == '.' && digits + 1 < value.size() &&
                          value.find_first_not_of("0123456789", digits + 1) == std::string::npos));
  if (isNumber || value == "true" || value == "false") return value;
  std::string text = "\"";
  for (char const c : value) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + '"';
}

}  // namespace Agent
