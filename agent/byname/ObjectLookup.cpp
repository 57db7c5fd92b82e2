// SPDX-License-Identifier: Apache-2.0
#include "agent/byname/ObjectLookup.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <utility>

#include "agent/byname/ObjectNames.h"
#include "agent/byname/ObjectTarget.h"
#include "agent/byname/ObjectWalk.h"
#include "agent/byname/TypeListing.h"

namespace Agent {

namespace {

using Kes::U32;
using Writer = std::function<void(std::FILE*)>;

constexpr std::string_view jsonOption = "--json";
constexpr std::string_view allOption = "--all";
constexpr std::string_view depthOption = "--depth=";

// Takes the first word off a text, and the blanks around it.
std::string_view takeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  std::string_view const word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return word;
}

struct Options {
  bool json = false;
  U32 depth = 1;
};

U32 depthOf(std::string_view number) {
  U32 depth = 0;
  auto const [end, error] = std::from_chars(number.data(), number.data() + number.size(), depth);
  if (error != std::errc() || end != number.data() + number.size() || depth == 0)
    throw ObjectError("--depth wants a number from 1, not " + quotedPart(number));
  return depth;
}

// Takes the options in front of a text off it.
Options takeOptions(std::string_view& text, bool ofGet) {
  Options options;
  while (text.starts_with("--")) {
    std::string_view const word = takeWord(text);
    if (word == jsonOption)
      options.json = true;
    else if (ofGet && word == allOption)
      options.depth = wholeDepth;
    else if (ofGet && word.starts_with(depthOption))
      options.depth = depthOf(word.substr(depthOption.size()));
    else
      throw ObjectError("no option " + quotedPart(word) + " here");
  }
  return options;
}

ListingForm formOf(Options const& options) { return options.json ? ListingForm::json : ListingForm::text; }

Writer lookUpTypes(std::string_view request) {
  Options const options = takeOptions(request, /*ofGet=*/false);
  if (!request.empty()) throw ObjectError("'types' takes no name; 'type NAME' tells of one type");
  return [form = formOf(options)](std::FILE* out) { listTypes(out, form); };
}

Writer lookUpType(std::string_view request) {
  Options options = takeOptions(request, /*ofGet=*/false);
  std::string_view const name = takeWord(request);
  options.json |= takeOptions(request, /*ofGet=*/false).json;
  if (name.empty() || !request.empty()) throw ObjectError("'type' takes one name; 'types' lists them");
  return [form = formOf(options), &type = findType(name)](std::FILE* out) { listType(out, form, type); };
}

void explainCall(ObjectTarget const& target) {
  std::string const path = pathText(target.path);
  std::string const arguments = argumentsOf(target.attribute());
  throw ObjectError(path + " is a " + std::string(kindOf(target.attribute())) + ": it is called, 'call " +
                    path + (arguments.empty() ? "()'" : "(...)', with the arguments (" + arguments + ")"));
}

Writer lookUpObject(Vorn::CongestionData::Ptr const& recorder, std::string_view request) {
  Options const options = takeOptions(request, /*ofGet=*/true);
  ObjectPath const path = parsePath(request);
  ObjectTarget const target = findTarget(recorder, path, Names::completed);
  bool const isCollection = !target.value;
  if (isCollection && isOperation(target.attribute())) explainCall(target);
  std::string const found = pathText(target.path);
  bool const isGroup = isCollection || (!target.value->type().isValue() && !isNull(*target.value));
  // A value that was asked for by its whole name stands alone, for scripts.
  bool const isNamed = !target.path.empty() && (isGroup || found != pathText(path));
  std::string const heading = isNamed ? found + ": " : "";
  return [target, options, heading](std::FILE* out) {
    auto const output = options.json ? jsonOutput(out) : textOutput(out);
    if (!options.json) std::fputs(heading.c_str(), out);
    walk(target, options.depth, *output);
  };
}

}  // namespace

bool ObjectLookup::claims(std::string_view request) {
  std::string_view const verb = takeWord(request);
  return verb == "types" || verb == "type" || verb == "get";
}

ObjectLookup::ObjectLookup(Vorn::CongestionData::Ptr const& recorder, std::string_view request) {
  std::string_view const verb = takeWord(request);
  if (verb == "types")
    write_ = lookUpTypes(request);
  else if (verb == "type")
    write_ = lookUpType(request);
  else
    write_ = lookUpObject(recorder, request);
}

}  // namespace Agent
