// SPDX-License-Identifier: Apache-2.0
#include "Vorn/Entry.h"

#include "Kes/Format.h"
#include "Kes/Log.h"
#include "Vorn/Messages.h"
#include "Vorn/Trace.h"
#include "Vorn/internal/Assert.h"

namespace Vorn {

namespace {

// A plain record was asked for what only a platform's record can do.
[[noreturn]] void notOverridden(char const* operation) {
  Kes::assertFailed("Vorn", operation, "overridden by the platform's record");
}

}  // namespace

Entry::~Entry() = default;

Kes::S32 Entry::dumpEntry(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst, bool) const {
  notOverridden(
      "virtual Kes::S32 Vorn::Entry::dumpEntry(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst, bool) "
      "const");
}

Kes::S32 Entry::dumpDrops(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst) const {
  notOverridden(
      "virtual Kes::S32 Vorn::Entry::dumpDrops(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst) const");
}

Kes::S32 Entry::dumpTxLatency(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst) const {
  notOverridden(
      "virtual Kes::S32 Vorn::Entry::dumpTxLatency(Kes::VoidPtr, Kes::CharPtrConst, Kes::CharPtrConst) "
      "const");
}

Kes::S32 Entry::dumpGlobalBuffer(Kes::VoidPtr, Kes::CharPtrConst) const {
  notOverridden("virtual Kes::S32 Vorn::Entry::dumpGlobalBuffer(Kes::VoidPtr, Kes::CharPtrConst) const");
}

void Entry::entryToGpbRecord(Kes::VoidPtr) const {
  notOverridden("virtual void Vorn::Entry::entryToGpbRecord(Kes::VoidPtr) const");
}

void Entry::entryToGpbGlobalBufferRecord(Kes::VoidPtr) const {
  notOverridden("virtual void Vorn::Entry::entryToGpbGlobalBufferRecord(Kes::VoidPtr) const");
}

void Entry::doSyslog(Kes::CharPtrConst intfName, Kes::U32 lowThreshold, Kes::U32 highThreshold) const {
  VORN_TRACE(9, "doSyslog");
  Kes::String text;
  if (qLen_ >= highThreshold)
    text = Kes::format("Interface %s queue length is over high threshold of %d, current length is %d",
                       intfName, highThreshold, qLen_);
  else if (qLen_ >= lowThreshold)
    text = Kes::format("Interface %s queue length is over low threshold of %d, current length is %d",
                       intfName, lowThreshold, qLen_);
  if (!text.empty()) Kes::log(QUEUEMONITOR_LENGTH_OVER_THRESHOLD, text);
}

Entry& Entry::qLenIs(Kes::U32 qLen) {
  qLen_ = qLen;
  return *this;
}

Entry& Entry::timestampIs(Microseconds timestamp) {
  timestamp_ = timestamp;
  return *this;
}

Entry& Entry::durationIs(Microseconds duration) {
  duration_ = duration;
  return *this;
}

Entry& Entry::alwaysLogIs(bool alwaysLog) {
  alwaysLog_ = alwaysLog;
  return *this;
}

}  // namespace Vorn
