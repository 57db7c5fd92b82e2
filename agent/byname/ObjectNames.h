// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kes/ByName/Type.h"

// Types and attributes by the names that an operator gives them.
namespace Agent {

// An attribute, and the type in the chain of bases whose own it is.
struct DeclaredAttribute {
  Kes::Attribute const* attribute;
  Kes::Type const* type;
};

// All that objects of a type have: the type's own in declared order, then those of its bases that it does not
// declare anew.
std::vector<DeclaredAttribute> attributesOf(Kes::Type const& type);

// "fixed", "owned collection", ...
std::string_view kindOf(Kes::Attribute const& attribute);

// Arguments as text: "intfName: Kes::CharPtrConst, lowThreshold: U32". Attributes that are not called have
// none.
std::string argumentsOf(std::vector<Kes::Argument> const& arguments);
std::string argumentsOf(Kes::Attribute const& attribute);

// How names are matched: exactly, or by a beginning that only one name has.
enum class Names { exact, completed };

// The attribute of a name. ObjectError that says which name may have been meant.
DeclaredAttribute findAttribute(Kes::Type const& type, std::string_view name, Names names);

// The registered type of a name, which may lack its namespace and be written in any case where that leaves
// one. ObjectError likewise.
Kes::Type const& findType(std::string_view name);

}  // namespace Agent
