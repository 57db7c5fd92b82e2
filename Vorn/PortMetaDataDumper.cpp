// SPDX-License-Identifier: Apache-2.0
#include "Vorn/PortMetaDataDumper.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "Kes/Format.h"
#include "Vorn/Trace.h"
#include "Vorn/internal/Assert.h"

namespace Vorn {

namespace {

long numberIn(std::string const& text) { return std::strtol(text.c_str(), nullptr, 10); }

// The numbers of a short name behind its two-letter prefix: "Et3/1" is {3, 1}, "Et3" {3, 0}.
std::pair<long, long> numbersIn(Kes::String const& shortName) {
  std::string const numbers = shortName.str().substr(2);
  std::size_t const slash = numbers.find('/');
  if (slash == std::string::npos) return {numberIn(numbers), 0};
  return {numberIn(numbers.substr(0, slash)), numberIn(numbers.substr(slash + 1))};
}

}  // namespace

PortMetaDataDumper::~PortMetaDataDumper() = default;

Kes::S32 PortMetaDataDumper::dumpStartMetaData(PortMetaData const*, Kes::VoidPtr, bool) const {
  Kes::assertFailed(
      "Vorn",
      "virtual Kes::S32 Vorn::PortMetaDataDumper::dumpStartMetaData(const PortMetaData*, Kes::VoidPtr, "
      "bool) const",
      "overridden by the platform's dumper");
}

Kes::S32 PortMetaDataDumper::dumpStatistics(PortMetaData const* portMetaData, Kes::VoidPtr stream) const {
  Kes::String const line = Kes::format("%s, %u, %u\n", portMetaData->intfId().shortName(),
                                       portMetaData->identifier(), portMetaData->counter());
  int const written = std::fprintf(static_cast<std::FILE*>(stream), "%s", line.charPtr());
  if (written < static_cast<int>(line.size())) {
    int const error = errno;
    VORN_TRACE(0, "dumpStatistics : " << std::strerror(error));
    return -1;
  }
  VORN_TRACE(8, " log " << line);
  return 0;
}

bool PortMetaDataSort(PortMetaData::Ptr const& a, PortMetaData::Ptr const& b) {
  return a->timeOfCongestionStart() > b->timeOfCongestionStart();
}

bool PortMetaDataSortOnIntf(PortMetaData const* a, PortMetaData const* b) {
  return numbersIn(a->intfId().shortName()) < numbersIn(b->intfId().shortName());
}

}  // namespace Vorn
