// SPDX-License-Identifier: Apache-2.0
#include "Vorn/EntryQueue.h"

namespace Vorn {

Entry::Ptr const& EntryQueue::entry(EntryIndex index) const {
  index.check();
  return slots_.slot(index.value());
}

Entry::Ptr EntryQueue::entryDel(EntryIndex index) {
  index.check();
  return slots_.del(index.value());
}

Entry::Ptr EntryQueue::entryDel(EntryIterator& at) {
  EntryIndex const index = at.key();
  ++at;
  return entryDel(index);
}

void EntryQueue::entryIs(EntryIndex index, Entry::Ptr const& entry) {
  index.check();
  if (entry)
    slots_.put(index.value(), entry);
  else
    slots_.del(index.value());
}

void EntryQueue::entryMetadataIs(EntryMetadata const& metadata) {
  metadata.head.check();
  slots_.stateIs(metadata.head.value(), metadata.count);
}

bool EntryQueue::entryInvariantsHold() const {
  if (slots_.head() >= entriesPerChunk || slots_.count() > entriesPerChunk) return false;
  for (Kes::U32 slot = 0; slot < entriesPerChunk; ++slot)
    if (!slots_.contains(slot) && slots_.slot(slot)) return false;
  return true;
}

}  // namespace Vorn
