// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LinuxEntry.h"

#include <algorithm>
#include <new>

#include "Kes/Exception.h"
#include "agent/base/Saturated.h"
#include "agent/record/FlowName.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

using Kes::CharPtrConst;
using Kes::S32;
using Kes::U32;
using Kes::U64;
using Kes::VoidPtr;

LinuxEntry::LinuxEntry(QueueKey queue, U32 handle, CongestionUpdate const& update)
    : Entry(update.qLen, Vorn::Microseconds(update.timestamp)),
      queue_(queue),
      handle_(handle),
      peakBound_(update.peakBound),
      drops_(update.drops),
      latency_(update.latency) {
  if (update.flows != nullptr) flowsAre(*update.flows);
}

LinuxEntry::~LinuxEntry() = default;

void LinuxEntry::updateIs(CongestionUpdate const& update, Vorn::Microseconds until) {
  durationIs(Vorn::Microseconds(until.value() - timestamp().value()));
  qLenIs(update.qLen);
  peakBound_ = update.peakBound;
  drops_ = saturated(U64{drops_} + update.drops);
  latency_ = update.latency;
  if (update.flows != nullptr) flowsAre(*update.flows);
}

// Into the memory that those of the update before have, where it is enough.
void LinuxEntry::flowsAre(BurstFlows const& flows) noexcept {
  try {
    if (!flows_) flows_ = std::make_unique<BurstFlows>();
    flows_->bytes = flows.bytes;
    flows_->packets = flows.packets;
    std::size_t const kept = std::min(flows.largest.size(), BurstFlows::most);
    flows_->largest.assign(flows.largest.begin(), flows.largest.begin() + static_cast<std::ptrdiff_t>(kept));
    for (FlowShare& share : flows_->largest)
      if (share.cgroup.size() > FlowShare::longestCgroup) share.cgroup.resize(FlowShare::longestCgroup);
  } catch (std::bad_alloc const&) {
    flows_.reset();
  }
}

Kes::String LinuxEntry::flow(U32 place) const {
  if (!flows_ || place >= flows_->largest.size()) throw Kes::RangeException("no flow at this place");
  return Kes::String(flowText(flows_->largest[place]));
}

Kes::String LinuxEntry::queueName() const { return Kes::String(QueueName::ofKey(queue_).text()); }

Kes::String LinuxEntry::handleName() const {
  return handle_ == 0 ? Kes::String() : Kes::String(QueueName::ofHandle(handle_).text());
}

RecordRow LinuxEntry::row(std::string_view interface) const {
  return {.kind = queue_ == noQueue ? RecordRow::Kind::global : RecordRow::Kind::record,
          .interface = interface,
          .queue = queue_,
          .handle = handle_,
          .timestamp = timestamp().value(),
          .duration = duration().value(),
          .length = qLen(),
          .peakBound = peakBound_,
          .latency = latency_,
          .drops = drops_,
          .flows = flows()};
}

S32 LinuxEntry::dumpEntry(VoidPtr filePtr, CharPtrConst, CharPtrConst intfName, bool cvsFormat) const {
  auto* const out = static_cast<std::FILE*>(filePtr);
  return cvsFormat ? writeCsvLine(out, row(intfName))
                   : writeTextLine(out, row(intfName), RecordView::records);
}

S32 LinuxEntry::dumpDrops(VoidPtr filePtr, CharPtrConst, CharPtrConst intfName) const {
  if (drops_ == 0) return 1;
  return writeTextLine(static_cast<std::FILE*>(filePtr), row(intfName), RecordView::drops);
}

S32 LinuxEntry::dumpTxLatency(VoidPtr filePtr, CharPtrConst, CharPtrConst intfName) const {
  return writeTextLine(static_cast<std::FILE*>(filePtr), row(intfName), RecordView::latency);
}

S32 LinuxEntry::dumpGlobalBuffer(VoidPtr filePtr, CharPtrConst) const {
  return writeTextLine(static_cast<std::FILE*>(filePtr), row(""), RecordView::global);
}

}  // namespace Agent
