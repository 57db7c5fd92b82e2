#pragma once

#include <cstddef>

#include "Vorn/PortMetaDataDumper.h"
#include "Vorn/StartEntry.h"

namespace Vorn {

// Walks startEntry once, from its front, writing one record after the other.
class StartRecordCursor {
 public:
  StartRecordCursor(PortMetaDataDumper::PtrConst dumper, Kes::VoidPtr stream, bool csvFormat)
      : dumper_(std::move(dumper)), stream_(stream), csvFormat_(csvFormat) {}

  bool atEnd() const { return next_ >= startEntry.size(); }
  // When the congestion of the next record began.
  Microseconds time() const { return startEntry[next_]->timeOfCongestionStart(); }
  // Writes the next record; returns its writer's result.
  Kes::S32 write() {
    PortMetaData::Ptr const record = startEntry[next_++];
    return dumper_->dumpStartMetaData(record.get(), stream_, csvFormat_);
  }

 private:
  PortMetaDataDumper::PtrConst const dumper_;
  Kes::VoidPtr const stream_;
  bool const csvFormat_;
  std::size_t next_ = 0;
};

}  // namespace Vorn
