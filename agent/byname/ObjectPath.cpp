// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/ObjectPath.h"

#include <algorithm>

#include "agent/base/Printable.h"

namespace Agent {

namespace {

bool isNameByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::string_view withoutBlanks(std::string_view text) {
  std::size_t const first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(withoutBlanks(text)) {}

  ObjectPath path();
  std::vector<std::pair<std::string, std::string>> arguments();
  std::string assignedValue();
  void end() {
    if (!atEnd()) fail("nothing more is expected");
  }

 private:
  bool atEnd() const { return at_ == text_.size(); }
  bool startsWith(char c) const { return !atEnd() && text_[at_] == c; }
  bool takes(char c) {
    if (!startsWith(c)) return false;
    ++at_;
    return true;
  }
  void skipBlanks() {
    while (takes(' ')) {
    }
  }
  [[noreturn]] void fail(char const* what) const {
    throw ObjectError(std::string(what) + " at column " + std::to_string(at_) + " of " + quotedPart(text_));
  }
  std::string name();
  std::string key();
  std::string quoted();
  // Up to one of `ends`, or the end of the text.
  std::string_view bare(char const* ends) {
    std::size_t const begin = std::exchange(at_, std::min(text_.find_first_of(ends, at_), text_.size()));
    return text_.substr(begin, at_ - begin);
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

ObjectPath Reader::path() {
  ObjectPath path;
  if (atEnd() || startsWith('(')) return path;
  if (takes('.') && (atEnd() || startsWith(' ') || startsWith('('))) return path;
  do {
    if (path.size() == maxPathSteps) fail("the path is too long");
    PathStep step{name()};
    if (takes('[')) step.key = key();
    path.push_back(std::move(step));
  } while (takes('.'));
  return path;
}

std::string Reader::name() {
  std::size_t const begin = at_;
  while (!atEnd() && isNameByte(text_[at_])) ++at_;
  if (at_ == begin) fail("a name is expected");
  return std::string(text_.substr(begin, at_ - begin));
}

std::string Reader::key() {
  bool const isQuoted = startsWith('"');
  std::string key = isQuoted ? quoted() : std::string(bare("]"));
  if (!isQuoted && key.empty()) fail("a key is expected");
  if (!takes(']')) fail("']' is expected behind the key");
  return key;
}

std::string Reader::quoted() {
  std::string value;
  ++at_;
  while (!takes('"')) {
    if (takes('\\') && !startsWith('"') && !startsWith('\\')) fail("'\"' or '\\' is expected behind '\\'");
    if (atEnd()) fail("a closing '\"' is expected");
    value += text_[at_++];
  }
  return value;
}

std::vector<std::pair<std::string, std::string>> Reader::arguments() {
  std::vector<std::pair<std::string, std::string>> arguments;
  skipBlanks();
  if (!takes('(')) fail("'(' and the arguments, if any, are expected");
  skipBlanks();
  if (takes(')')) return arguments;
  do {
    skipBlanks();
    std::string argument = name();
    skipBlanks();
    if (!takes('=')) fail("'=' is expected behind the argument's name");
    skipBlanks();
    std::string value = startsWith('"') ? quoted() : std::string(withoutBlanks(bare(",)")));
    arguments.emplace_back(std::move(argument), std::move(value));
    skipBlanks();
  } while (takes(','));
  if (!takes(')')) fail("',' or ')' is expected");
  return arguments;
}

std::string Reader::assignedValue() {
  if (!atEnd() && !startsWith(' ')) fail("a blank and the value are expected");
  skipBlanks();
  if (atEnd()) fail("a value is expected");
  return startsWith('"') ? quoted() : std::string(bare(""));
}

}  // namespace

// Texts of exceptions may repeat a request whole.
ObjectError::ObjectError(std::string_view text) : std::runtime_error(printable(text, /*longest=*/350)) {}

std::string quotedPart(std::string_view text) { return "'" + printable(text, longestShownName) + "'"; }

ObjectPath parsePath(std::string_view text) {
  Reader reader(text);
  ObjectPath path = reader.path();
  reader.end();
  return path;
}

ObjectCall parseCall(std::string_view text) {
  Reader reader(text);
  ObjectPath path = reader.path();
  auto arguments = reader.arguments();
  reader.end();
  return {std::move(path), std::move(arguments)};
}

ObjectAssignment parseAssignment(std::string_view text) {
  Reader reader(text);
  ObjectPath path = reader.path();
  std::string value = reader.assignedValue();
  reader.end();
  return {std::move(path), std::move(value)};
}

std::string pathText(ObjectPath const& path) {
  if (path.empty()) return ".";
  std::string text;
  for (PathStep const& step : path) {
    if (!text.empty()) text += '.';
    text += step.name;
    if (step.key) text += '[' + keyText(*step.key) + ']';
  }
  return text;
}

std::string keyText(std::string_view key) {
  if (!key.empty() && key.front() != '"' && key.find(']') == std::string_view::npos) return printable(key);
  std::string quoted = "\"";
  for (char const c : key) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return printable(quoted + '"');
}

}  // namespace Agent
