// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LinuxEntryType.h"

#include <array>

#include "Kes/ByName/TypeRegistry.h"
#include "Kes/ByName/TypeTable.h"

namespace Agent {

namespace {

// The places of a record's flows, with them in words.
class FlowIterator {
 public:
  explicit FlowIterator(LinuxEntry const& record) : record_(record) {}
  explicit operator bool() const {
    return record_.flows() != nullptr && place_ < record_.flows()->largest.size();
  }
  Kes::U32 key() const { return place_; }
  Kes::String operator*() const { return record_.flow(place_); }
  FlowIterator& operator++() {
    ++place_;
    return *this;
  }

 private:
  LinuxEntry const& record_;
  Kes::U32 place_ = 0;
};

FlowIterator flowIterator(LinuxEntry const& record) { return FlowIterator(record); }

}  // namespace

Kes::Type const& LinuxEntry::GenericIf_::staticType() {
  using Define = Kes::Define<LinuxEntry>;
  static Kes::Type const type(
      {.name = "Agent::LinuxEntry",
       .base = &Vorn::Entry::GenericIf_::staticType,
       .attributes = {Define::fixed<&LinuxEntry::queueName>("queue"),
                      Define::fixed<&LinuxEntry::queue>("queueId"),
                      Define::fixed<&LinuxEntry::handleName>("handle"),
                      Define::fixed<&LinuxEntry::peakBound>("peakBound"),
                      Define::fixed<&LinuxEntry::drops>("drops"),
                      Define::fixed<&LinuxEntry::latency>("latency"),
                      Define::fixed<&LinuxEntry::enteredBytes>("enteredBytes"),
                      Define::fixed<&LinuxEntry::enteredPackets>("enteredPackets"),
                      Define::collection<&flowIterator>(
                          "flow", {Define::op<Kes::OpCode::member, &LinuxEntry::flow>("key")})},
       .wrap = &Define::wrap});
  return type;
}

void registerLinuxEntry() {
  static std::array<Kes::Type const*, 1> const types = {&LinuxEntry::GenericIf_::staticType()};
  if (Kes::TypeRegistry::instance().type(types[0]->name()) == nullptr)
    Kes::IntrospectionReactor::global()->namespaceIs("Agent", types);
}

}  // namespace Agent
