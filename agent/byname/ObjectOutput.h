// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "Kes/ByName/GenericIf.h"
#include "Kes/ByName/Type.h"

namespace Agent {

// Takes what a walk (ObjectWalk.h) finds, in order, and writes it at once.
class ObjectOutput {
 public:
  enum class Group : std::uint8_t {
    object,      // attributes by name
    summary,     // an object's values in short, by name
    collection,  // members by key
  };

  virtual ~ObjectOutput() = default;

  // Between these two comes a name before each value and each inner group. `title` tells the object's type,
  // or what the collection holds; `width` is the size of the longest name.
  virtual void begin(Group group, std::string_view title, std::size_t width) = 0;
  virtual void end(Group group) = 0;
  virtual void name(std::string_view name) = 0;

  virtual void value(Kes::GenericIf const& value) = 0;
  // An object that is there but not entered, and none.
  virtual void reference(std::string_view description) = 0;
  virtual void null() = 0;
  // A collection that is not entered.
  virtual void members(Kes::GenericIf& holder, Kes::Attribute const& collection) = 0;
};

// For people: a value alone on its line, or names and values in aligned columns, inner groups indented.
std::unique_ptr<ObjectOutput> textOutput(std::FILE* out);

// For programs: objects with their "type", collections by key; {"reference": ...} for objects and {"keys":
// [...], "members": N} for collections that are not entered.
std::unique_ptr<ObjectOutput> jsonOutput(std::FILE* out);

}  // namespace Agent
