// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <spdlog/logger.h>
#include <spdlog/sinks/ringbuffer_sink.h>

#include <chrono>
#include <cstdio>
#include <iterator>
#include <memory>

#include "bench/Workload.h"

namespace Bench {

// A formatted line a record into spdlog's ring-buffer sink. It is given the time, so that it reads no clock,
// and a sink without a lock. It holds as many lines as the others hold records, but one ring has those of all
// interfaces, so a busy one pushes out the records of the quiet. A line takes some 400 bytes.
class SpdlogLog {
 public:
  static constexpr std::size_t firsts = 0;
  static constexpr std::size_t least = 1;

  explicit SpdlogLog(Workload const& workload)
      : names_(workload.names()),
        sink_(std::make_shared<spdlog::sinks::ringbuffer_sink_st>(workload.ports() * std::size_t{capacity})),
        logger_("congestion", sink_) {}

  void append(U32 port, U32 qLen, U64 timestamp) {
    line_.clear();
    fmt::format_to(std::back_inserter(line_), "{} {} {} {}", timestamp, names_[port], qLen, 0);
    logger_.log(spdlog::log_clock::time_point(std::chrono::microseconds(timestamp)), spdlog::source_loc{},
                spdlog::level::info, spdlog::string_view_t(line_.data(), line_.size()));
  }

  // Told from the latest 65,536 lines.
  std::vector<Kept> kept(U32 port) const {
    std::vector<Kept> records;
    for (auto const& message : sink_->last_raw(1 << 16)) {
      std::string const line(message.payload.data(), message.payload.size());
      Kept record{};
      char name[64];
      expect(std::sscanf(line.c_str(), "%ju %63s %u %ju", &record.timestamp, name, &record.qLen,
                         &record.duration) == 4,
             "a line of the log");
      if (names_[port] == name) records.push_back(record);
    }
    return records;
  }

 private:
  std::vector<std::string> const& names_;
  std::shared_ptr<spdlog::sinks::ringbuffer_sink_st> sink_;
  spdlog::logger logger_;
  spdlog::memory_buf_t line_;
};

}  // namespace Bench
