// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Kes/Ptr.h"
#include "Kes/Types.h"
#include "Vorn/Export.h"
#include "Vorn/PortMetaData.h"

namespace Vorn {

// Writes metadata into reports; the platform derives it for its own lines. `stream` is the report's FILE*.
// Called while a report walks the recorder: a writer changes neither metadata nor the recorder.
class VORN_EXPORT PortMetaDataDumper : public Kes::PtrInterface {
 public:
  using Ptr = Kes::Ptr<PortMetaDataDumper>;
  using PtrConst = Kes::Ptr<PortMetaDataDumper const>;
  class GenericIf_;  // by-name access, see GenericIf.h

  std::string_view fwkType() const override { return "Vorn::PortMetaDataDumper"; }

  // Writes a congestion-start record: a congestion whose first record has been overwritten. 0 counts as a
  // line of the text report. An assertion here: a platform that has start records must write them.
  virtual Kes::S32 dumpStartMetaData(PortMetaData const* portMetaData, Kes::VoidPtr stream,
                                     bool csvFormat) const;

  // Writes one line of the statistics report, "SHORTNAME, IDENTIFIER, COUNTER\n". 0, or non-zero (with an
  // error trace) when the line could not be written whole.
  virtual Kes::S32 dumpStatistics(PortMetaData const* portMetaData, Kes::VoidPtr stream) const;

 protected:
  ~PortMetaDataDumper() override;
};

// Orders by timeOfCongestionStart, latest first.
VORN_EXPORT bool PortMetaDataSort(PortMetaData::Ptr const& a, PortMetaData::Ptr const& b);

// Orders by the numbers in the interfaces' short names behind their first two characters: the first number,
// then the one behind a "/", which counts as 0 where there is none. Names with the same numbers are equal
// here. A name of fewer than two characters raises std::out_of_range.
VORN_EXPORT bool PortMetaDataSortOnIntf(PortMetaData const* a, PortMetaData const* b);

}  // namespace Vorn
