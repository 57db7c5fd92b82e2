// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>

#include "Vorn/PortMetaDataDumper.h"

namespace Vorn {

// Walks the start records of a report once, from the front, writing one after the other.
class StartRecordCursor {
 public:
  StartRecordCursor(std::span<PortMetaData::Ptr const> records, PortMetaDataDumper const& dumper,
                    Kes::VoidPtr stream, bool csvFormat)
      : left_(records), dumper_(dumper), stream_(stream), csvFormat_(csvFormat) {}

  bool atEnd() const { return left_.empty(); }
  // When the congestion of the next record began.
  Microseconds time() const { return left_.front()->timeOfCongestionStart(); }
  // Writes the next record; returns its writer's result.
  Kes::S32 write() {
    PortMetaData const* const record = left_.front().get();
    left_ = left_.subspan(1);
    return dumper_.dumpStartMetaData(record, stream_, csvFormat_);
  }

 private:
  std::span<PortMetaData::Ptr const> left_;
  PortMetaDataDumper const& dumper_;
  Kes::VoidPtr const stream_;
  bool const csvFormat_;
};

}  // namespace Vorn
