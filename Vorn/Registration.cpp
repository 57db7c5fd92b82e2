// SPDX-License-Identifier: Apache-2.0
#include "Vorn/Registration.h"

#include <array>

#include "Kes/ByName/TypeRegistry.h"
#include "Vorn/GenericIf.h"

namespace Vorn {

namespace {
constinit bool registered = false;
}  // namespace

std::span<Kes::Type const* const> types() {
  static std::array<Kes::Type const*, 12> const inOrder = {
      &Microseconds::GenericIf_::staticType(), &Entry::GenericIf_::staticType(),
      &EntryIndex::GenericIf_::staticType(),   &EntryIndexOrNull::GenericIf_::staticType(),
      &Chunk::GenericIf_::staticType(),        &GlobalBufferChunk::GenericIf_::staticType(),
      &PortMetaData::GenericIf_::staticType(), &PortMetaDataDumper::GenericIf_::staticType(),
      &PortData::GenericIf_::staticType(),     &Clock::GenericIf_::staticType(),
      &TestClock::GenericIf_::staticType(),    &CongestionData::GenericIf_::staticType(),
  };
  return inOrder;
}

void registerTypes() {
  if (registered) return;
  Kes::IntrospectionReactor::Ptr const reactor = Kes::IntrospectionReactor::global();
  if (!reactor->handlerActive()) return;
  registered = true;
  try {
    reactor->namespaceIs("Vorn", types());
  } catch (...) {
    registered = false;
    throw;
  }
}

bool typesRegistered() { return registered; }

}  // namespace Vorn
