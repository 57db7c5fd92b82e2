// SPDX-License-Identifier: Apache-2.0
#include "Vorn/CongestionData.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <unordered_set>

#include "Vorn/StartEntry.h"
#include "Vorn/Trace.h"
#include "Vorn/internal/Assert.h"

namespace Vorn {

namespace {

// SIM_NUM_SHARED_CHUNKS as it stood when the process first asked. The text is copied: the environment may
// change.
std::optional<std::string> const& numSharedChunksSetting() {
  static std::optional<std::string> const setting = [] {
    char const* const text = std::getenv("SIM_NUM_SHARED_CHUNKS");
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
  }();
  return setting;
}

// Ends a log that has left the recorder: its shared chunks become free ones of the pool, and the counted
// links between chunks no longer keep each other alive. Releasing records runs the host's code, so no chunk
// may name the old owner any more by then, and one that has found a new owner meanwhile is left alone: it has
// an older neighbour, and a name but where the owner has none.
void endLog(PortData& port) {
  for (Chunk::Ptr const& chunk : port.chunkIterator()) {
    chunk->prevChunkIs(nullptr);
    chunk->nextChunkIs(nullptr);
    chunk->intfIdIs(Pylo::IntfId());
  }
  port.entryIndexDelAll();
  port.chunkTobeMergedIs(nullptr);
  port.mergeEntriesIs(false);
  while (Chunk::Ptr const chunk = port.chunkDeq()) {
    if (!chunk->intfId().empty() || chunk->prevChunk()) continue;
    auto const released = chunk->entryTakeAll();
  }
  Kes::slabTrim();
}

}  // namespace

CongestionData::CongestionData(Hardware::Status::PtrConst const& vornHwStatus, Clock::Ptr const& clock,
                               Config::PtrConst const& vornConfig,
                               PortMetaDataDumper::PtrConst const& portMetaDataDumper)
    : vornHwStatus_(vornHwStatus),
      clock_(clock),
      vornConfig_(vornConfig),
      portMetaDataDumper_(portMetaDataDumper) {
  handleInitialized();
}

CongestionData::~CongestionData() {
  std::vector<PortMetaData::Ptr>().swap(startEntry);
  portDataDelAll();
  chunkArrayDelAll();
  // Through the setter, so that what runs while it is released finds null here.
  globalBufferChunkIs(nullptr);
}

void CongestionData::handleInitialized() {
  constexpr char operation[] = "void Vorn::CongestionData::handleInitialized()";
  VORN_TRACE(8, operation);
  assertThat(!initialized_, operation, "!initialized()");
  if (auto const& setting = numSharedChunksSetting())
    numSharedChunksIs(static_cast<Kes::U32>(std::strtol(setting->c_str(), nullptr, 10)));
  initializedIs(true);
}

PortData::Ptr CongestionData::portData(Pylo::IntfId const& intfId) const {
  PortData::Ptr const* const found = portData_.find(intfId);
  return found != nullptr ? *found : nullptr;
}

PortData::Ptr CongestionData::portDataIs(Pylo::IntfId const& intfId) {
  PortData::Ptr port = portData(intfId);
  if (!port) portData_.put(intfId, port = Kes::makePtr<PortData>(intfId));
  return port;
}

void CongestionData::portDataDel(Pylo::IntfId const& intfId) {
  if (PortData::Ptr const port = portData_.del(intfId)) endLog(*port);
}

void CongestionData::portDataDel(PortDataMap::Iterator& at) { endLog(*portData_.del(at)); }

void CongestionData::portDataDelAll() {
  while (!portData_.empty()) {
    PortDataMap::Iterator first = portDataIterator();
    portDataDel(first);
  }
}

void CongestionData::countsAre(Counts const& counts) {
  appends_ = counts.appends;
  merges_ = counts.merges;
  pool_.stealsIs(counts.steals);
}

CongestionData::ChunkCounts CongestionData::chunkCounts() const {
  ChunkCounts counts;
  for (auto const& [intfId, port] : portData_) {
    if (port->chunks() == 0) continue;
    ++counts.privates;
    counts.shared += port->chunks() - 1;
  }
  Kes::U32 pooled = 0;
  for (auto i = chunkArrayIterator(); i; ++i) ++pooled;
  counts.free = pooled - std::min(pooled, counts.shared);
  return counts;
}

Chunk::Ptr CongestionData::allocateChunk(Pylo::IntfId intfId) {
  PortData::Ptr const port = portData(intfId);
  assertThat(port != nullptr, "Vorn::Chunk::Ptr Vorn::CongestionData::allocateChunk(Pylo::IntfId)", "pd");
  return pool_.allocate(portData_, *port);
}

void CongestionData::allocateGlobalChunk() {
  VORN_TRACE(8, "void Vorn::CongestionData::allocateGlobalChunk()");
  if (!globalBufferChunk_) globalBufferChunkIs(Kes::makePtr<GlobalBufferChunk>());
}

std::string CongestionData::checkInvariants() const {
  std::unordered_set<Chunk const*> pooled;
  for (Chunk::Ptr const& chunk : chunkArrayIterator())
    if (!pooled.insert(chunk.get()).second) return "a chunk stands in the pool twice";
  std::unordered_set<Chunk const*> held;
  for (auto const& [intfId, port] : portData_) {
    if (port->intfId() != intfId) return "a log stands under another interface's name";
    if (std::string const broken = port->checkInvariants(); !broken.empty())
      return intfId.stringValue().str() + ": " + broken;
    for (PortData::ChunkIterator i = port->chunkIterator(); i; ++i) {
      if (!held.insert((*i).get()).second) return "two logs hold one chunk";
      bool const isFirst = i.older() == nullptr;
      if (!isFirst && !pooled.contains((*i).get())) return "a shared chunk is not in the pool";
      if (isFirst && pooled.contains((*i).get())) return "a private chunk is in the pool";
    }
  }
  for (Chunk const* const chunk : pooled)
    if (!held.contains(chunk) && !chunk->intfId().empty()) return "a free chunk names an owner";
  return "";
}

}  // namespace Vorn
