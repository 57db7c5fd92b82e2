// SPDX-License-Identifier: Apache-2.0
#include "agent/ConfigFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include "agent/base/FileDescriptor.h"
#include "agent/base/Printable.h"

namespace Agent {

namespace {

// No byte of a file that is accepted.
constexpr char noComment = '\x01';

std::string trimmed(std::string_view text) {
  std::size_t const begin = std::min(text.find_first_not_of(" \t\r"), text.size());
  return std::string(text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin));
}

// Puts together what makes one statement: a line, or several with an array, without comments and without
// blanks beside an array's commas, which not every version of CLI11 leaves out.
class Statement {
 public:
  // What is wrong with the line, or null.
  char const* take(std::string_view line) {
    char quote = '\0';
    for (char const c : line) {
      if (quote == '\0' && c == '#') break;
      if (c == '\\' && quote == '"') return "a backslash stands in '...' only";
      if (quote != '\0') {
        if (c == quote) quote = '\0';
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '[' && ++depth_ > 1) {
        return "an array holds no arrays";
      } else if (depth_ > 0 && (c == ',' || c == ']')) {
        text_ = trimmed(text_);
        if (c == ']') --depth_;
        if (c == ']' && text_.ends_with(',')) text_.pop_back();
      }
      text_ += c;
    }
    return quote == '\0' ? nullptr : "a string without an end";
  }

  bool isWhole() const { return depth_ == 0; }
  std::string end() { return trimmed(std::exchange(text_, {})); }

 private:
  std::string text_;
  int depth_ = 0;
};

}  // namespace

ConfigFile::ConfigFile(std::string path, std::string const& text) : path_(std::move(path)) {
  Statement statement;
  std::istringstream lines(text);
  unsigned number = 0;
  unsigned begin = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (statement.isWhole()) begin = number;
    if (std::any_of(line.begin(), line.end(),
                    [](unsigned char c) { return (c < 0x20 && c != '\t' && c != '\r') || c == 0x7f; }))
      throw fault(number, "a control character");
    if (char const* const what = statement.take(line)) throw fault(number, what);
    if (!statement.isWhole()) continue;
    std::string const whole = statement.end();
    if (!whole.empty()) add(whole, begin);
  }
  if (!statement.isWhole()) throw fault(begin, "an array without an end");
}

void ConfigFile::add(std::string const& statement, unsigned line) {
  if (statement.front() == '[') throw fault(line, "there are no sections in this file");
  std::size_t const equals = statement.find('=');
  std::string const value = equals == std::string::npos ? "" : trimmed(statement.substr(equals + 1));
  std::vector<CLI::ConfigItem> items;
  try {
    std::istringstream text(statement);
    items = CLI::ConfigTOML().comment(noComment)->from_config(text);
  } catch (std::exception const& error) {
    throw fault(line, error.what());
  }
  if (value.empty() || items.size() != 1) throw fault(line, "this is not NAME = VALUE");
  std::string const name = items.front().fullname();
  if (Setting const* const earlier = find(name))
    throw fault(line, '"' + name + "\" is set in line " + std::to_string(earlier->line) + " already");
  settings_.push_back({name, value == "[]" ? std::vector<std::string>() : items.front().inputs, line});
}

std::optional<ConfigFile> ConfigFile::read(std::string const& path) {
  auto const refuse = [&path](std::string const& why) { return ConfigError(path + ": " + why); };
  FileDescriptor const file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (!file && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  if (!file) throw refuse(std::strerror(errno));
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
  auto const found = std::find_if(settings_.begin(), settings_.end(),
                                  [&name](Setting const& setting) { return setting.name == name; });
  return found == settings_.end() ? nullptr : &*found;
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
  char const quote = value.find_first_of("\"\\") == std::string::npos ? '"' : '\'';
  return quote + value + quote;
}

}  // namespace Agent
