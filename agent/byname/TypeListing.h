// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "Kes/ByName/Type.h"

// The registered types, as people and as programs want to read them.
namespace Agent {

enum class ListingForm : bool { text, json };

// One line a type, in order of registration: what it is and how many attributes of its own it has.
void listTypes(std::FILE* out, ListingForm form);

// A type, what makes one, and its attributes in declared order, inherited ones last.
void listType(std::FILE* out, ListingForm form, Kes::Type const& type);

}  // namespace Agent
