// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// How an operator names what the recorder holds: the text alone, before anything is looked up.
//
//   path  := [ step ("." step)* ]               nothing, or ".", is the recorder itself
//   step  := name [ "[" key "]" ]
//   key   := text up to the next "]", or a quoted text
//   call  := path "(" [ name "=" value ("," name "=" value)* ] ")"
//   value := text up to "," or ")" without the blanks around it, or a quoted text
//
// A quoted text stands in double quotes, with \" and \\ for these two characters. So a key can hold anything:
// portData[eth0.100], portData["a]b"].
namespace Agent {

// What is wrong with a request for something by name, in printable words for the operator.
class ObjectError : public std::runtime_error {
 public:
  explicit ObjectError(std::string_view text);
};

// What the request said, for such a text: in quotes, and no longer than a name may be.
std::string quotedPart(std::string_view text);

// No object lies deeper.
inline constexpr std::size_t maxPathSteps = 32;

struct PathStep {
  std::string name;
  std::optional<std::string> key{};
};
using ObjectPath = std::vector<PathStep>;

struct ObjectCall {
  ObjectPath path;
  std::vector<std::pair<std::string, std::string>> arguments;  // name, value
};

struct ObjectAssignment {
  ObjectPath path;
  std::string value;
};

// These read a whole text, blanks around it left out. An ObjectError tells the column, from 0, where the text
// goes wrong.
ObjectPath parsePath(std::string_view text);
ObjectCall parseCall(std::string_view text);
// A path, a blank, and a value: the rest of the text, or a quoted text.
ObjectAssignment parseAssignment(std::string_view text);

// The path as it would be written; "." for the recorder itself.
std::string pathText(ObjectPath const& path);
// The key as it is written in brackets, quoted where it has to be, and printable.
std::string keyText(std::string_view key);

}  // namespace Agent
