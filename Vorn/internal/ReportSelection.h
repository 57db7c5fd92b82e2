// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "Vorn/CommandOptions.h"
#include "Vorn/CongestionData.h"

namespace Vorn {

// What an entry report shows.
struct ReportSelection {
  // Interfaces that hold records, in the recorder's order.
  std::vector<PortData::Ptr> ports;
  // Their congestions whose opening record has been overwritten, in the order of the report.
  std::vector<PortMetaData::Ptr> startRecords;
};

// What a command selects. std::regex_error for a bad interface pattern.
ReportSelection selectionOf(CongestionData const& recorder, CommandOptions const& options);

}  // namespace Vorn
