// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Vorn/GenericIf.h"
#include "agent/record/LinuxEntry.h"

namespace Agent {

// Access by name to the agent's records: what Vorn::Entry has, and their own.
class LinuxEntry::GenericIf_ : public Kes::GenericObject<LinuxEntry, Vorn::Entry::GenericIf_> {
 public:
  using GenericObject::GenericObject;
  static Kes::Type const& staticType();
};

// Makes the type known under its name, once.
void registerLinuxEntry();

}  // namespace Agent
