// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Types.h"
#include "agent/byname/ObjectOutput.h"
#include "agent/byname/ObjectTarget.h"

namespace Agent {

// A walk through all levels.
inline constexpr Kes::U32 wholeDepth = ~Kes::U32{0};

// Hands an object or a collection and `depth` levels of what is in it to the output, attributes in declared
// order and members by ascending key. Objects of a type that is already on the way are not entered, so that
// no walk follows links in circles. Holds one collection a level, whatever it finds.
void walk(ObjectTarget const& target, Kes::U32 depth, ObjectOutput& output);

}  // namespace Agent
