// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LinuxEntryType.h"

#include <array>

#include "Kes/ByName/TypeRegistry.h"
#include "Kes/ByName/TypeTable.h"

namespace Agent {

Kes::Type const& LinuxEntry::GenericIf_::staticType() {
  using Define = Kes::Define<LinuxEntry>;
  static Kes::Type const type({.name = "Agent::LinuxEntry",
                               .base = &Vorn::Entry::GenericIf_::staticType,
                               .attributes = {Define::fixed<&LinuxEntry::queueName>("queue"),
                                              Define::fixed<&LinuxEntry::queue>("queueId"),
                                              Define::fixed<&LinuxEntry::handleName>("handle"),
                                              Define::fixed<&LinuxEntry::peakBound>("peakBound"),
                                              Define::fixed<&LinuxEntry::drops>("drops"),
                                              Define::fixed<&LinuxEntry::latency>("latency")},
                               .wrap = &Define::wrap});
  return type;
}

void registerLinuxEntry() {
  static std::array<Kes::Type const*, 1> const types = {&LinuxEntry::GenericIf_::staticType()};
  if (Kes::TypeRegistry::instance().type(types[0]->name()) == nullptr)
    Kes::IntrospectionReactor::global()->namespaceIs("Agent", types);
}

}  // namespace Agent
