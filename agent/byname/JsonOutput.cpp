// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>

#include "Kes/ByName/GenericValue.h"
#include "agent/base/JsonStream.h"
#include "agent/byname/ObjectOutput.h"

namespace Agent {

namespace {

// A number, or a type that holds just one.
bool isNumber(Kes::Type const& type) {
  std::array<Kes::Type const*, 6> const numbers = {
      &Kes::GenericOf<Kes::U8>::type(),  &Kes::GenericOf<Kes::U16>::type(),
      &Kes::GenericOf<Kes::U32>::type(), &Kes::GenericOf<Kes::U64>::type(),
      &Kes::GenericOf<Kes::S32>::type(), &Kes::GenericOf<Kes::Seconds>::type()};
  Kes::Attribute const* const inner = type.attribute("value");
  Kes::Type const* const held = inner != nullptr ? &inner->type() : &type;
  return std::find(numbers.begin(), numbers.end(), held) != numbers.end();
}

// JSON has no infinity and no NaN.
bool isFinite(std::string_view number) {
  return number.find_first_not_of("-.0123456789") == std::string_view::npos;
}

class JsonOutput final : public ObjectOutput {
 public:
  explicit JsonOutput(std::FILE* out) : json_(out) {}

  void begin(Group group, std::string_view title, std::size_t) override {
    json_.beginObject();
    if (group == Group::collection) return;
    json_.key("type");
    json_.text(title);
  }
  void end(Group) override { json_.endObject(); }
  void name(std::string_view name) override { json_.key(name); }

  void value(Kes::GenericIf const& value) override;
  void reference(std::string_view description) override {
    json_.beginObject();
    json_.key("reference");
    json_.text(description);
    json_.endObject();
  }
  void null() override { json_.null(); }
  void members(Kes::GenericIf& holder, Kes::Attribute const& collection) override;

 private:
  JsonStream json_;
};

void JsonOutput::value(Kes::GenericIf const& value) {
  Kes::String const text = value.strRep();
  if (&value.type() == &Kes::GenericOf<bool>::type())
    json_.boolean(text == "true");
  else if (isNumber(value.type()) && isFinite(text.view()))
    json_.number(text.view());
  else
    json_.text(text.view());
}

void JsonOutput::members(Kes::GenericIf& holder, Kes::Attribute const& collection) {
  json_.beginObject();
  json_.key("keys");
  json_.beginArray();
  std::uint64_t count = 0;
  for (auto at = holder.attributeIterator(collection.identifier); *at; ++*at, ++count) value(*at->key());
  json_.endArray();
  json_.key("members");
  json_.number(count);
  json_.endObject();
}

}  // namespace

std::unique_ptr<ObjectOutput> jsonOutput(std::FILE* out) { return std::make_unique<JsonOutput>(out); }

}  // namespace Agent
