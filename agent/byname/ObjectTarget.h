// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <string>

#include "Kes/ByName/GenericIf.h"
#include "Kes/ByName/Type.h"
#include "Vorn/CongestionData.h"
#include "agent/byname/ObjectNames.h"
#include "agent/byname/ObjectPath.h"

namespace Agent {

// What a path leads to. It keeps alive what it names.
struct ObjectTarget {
  ObjectPath path;  // with completed names
  // What the last step names, and who has it; null for the recorder itself.
  Kes::GenericIf::Ptr holder{};
  DeclaredAttribute declared{};
  // The value or object, or the member of the collection where the last step has a key. Null for a whole
  // collection, a procedure and a function.
  Kes::GenericIf::Ptr value{};

  Kes::Attribute const& attribute() const { return *declared.attribute; }
};

// Follows a path from the recorder. ObjectError that says how far it leads and what is there.
ObjectTarget findTarget(Vorn::CongestionData::Ptr const& recorder, ObjectPath const& path, Names names);

// Performs an operation on an attribute. ObjectError for whatever it complains of.
Kes::GenericIf::Ptr perform(Kes::GenericIf& holder, Kes::Attribute const& attribute, Kes::OpCode code,
                            Kes::GenericArgs const& arguments);

// Whether it is the generic interface of no object.
bool isNull(Kes::GenericIf const& generic);

bool isOperation(Kes::Attribute const& attribute);

// "3 members: eth0, eth1, uplink": how many there are, and which are the first. Beyond `counted` they are
// "more than" that.
std::string membersOf(Kes::GenericIf& holder, Kes::Attribute const& collection,
                      std::size_t counted = std::numeric_limits<std::size_t>::max());

}  // namespace Agent
