// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/AgentStatus.h"

#include <algorithm>
#include <ctime>
#include <string_view>

#include "Kes/Format.h"
#include "agent/base/JsonStream.h"
#include "agent/base/Printable.h"
#include "agent/record/LocalZone.h"

namespace Agent {

namespace {

using Kes::U64;
using Vorn::Microseconds;

constexpr std::size_t mostNamed = 20;
constexpr U64 inSecond = Microseconds::microsecondsInSecond();

std::time_t secondsOf(Microseconds time) { return static_cast<std::time_t>(time.value() / inSecond); }

std::string durationText(std::chrono::microseconds duration) {
  U64 const seconds = static_cast<U64>(duration.count()) / inSecond;
  std::string const days = seconds < 86'400 ? "" : std::to_string(seconds / 86'400) + " d ";
  return days + Kes::format("%02u:%02u:%02u", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60).str();
}

std::string lossText(std::vector<InterfaceHistory> const& interfaces, LocalZone& zone) {
  auto const isWhole = [](InterfaceHistory const& history) { return history.lost == 0; };
  auto const losers = static_cast<std::size_t>(std::find_if(interfaces.begin(), interfaces.end(), isWhole) -
                                               interfaces.begin());
  if (losers == 0)
    return "records lost to the pool: none; the histories are whole since their first records\n";
  std::string text = "records lost, and since when the history is whole (" + zone.name() + "):\n";
  std::size_t const named = std::min(losers, mostNamed);
  for (std::size_t i = 0; i < named; ++i) {
    text += Kes::format("  %-12s %12u  %s\n", printable(interfaces[i].name, longestShownName),
                        interfaces[i].lost, zone.moment(interfaces[i].whole))
                .str();
  }
  if (losers != named)
    text += Kes::format("  and %u more %6u\n", losers - named, lostOf(interfaces, named)).str();
  return text + (losers != interfaces.size() ? "  the others: whole since their first records\n" : "");
}

// The members of an object. An empty text, and a time that is 0, is null.
class Members {
 public:
  explicit Members(JsonStream& json) : json_(json) {}

  Members& number(std::string_view key, U64 value) {
    json_.key(key);
    json_.number(value);
    return *this;
  }
  Members& signedNumber(std::string_view key, Kes::S64 value) {
    json_.key(key);
    json_.number(std::to_string(value));
    return *this;
  }
  Members& real(std::string_view key, double value) { return number(key, static_cast<U64>(value + 0.5)); }
  Members& flag(std::string_view key, bool value) {
    json_.key(key);
    json_.boolean(value);
    return *this;
  }
  Members& text(std::string_view key, std::string_view value) {
    json_.key(key);
    value.empty() ? json_.null() : json_.text(value);
    return *this;
  }
  // Once as text, once as a number.
  Members& time(std::string const& key, Microseconds value) {
    bool const known = value != Microseconds(0);
    text(key, known ? rfc3339(value) : "");
    json_.key(key + "_us");
    known ? json_.number(value.value()) : json_.null();
    return *this;
  }

 private:
  JsonStream& json_;
};

void writeHistory(std::optional<HistoryKeeper::Status> const& history, JsonStream& json) {
  json.key("history");
  if (!history) return json.null();
  json.beginObject();
  Members(json)
      .flag("kept", history->keeping)
      .text("path", history->path)
      .number("written", history->written)
      .number("failed", history->failed)
      .text("fault", history->fault)
      .number("read_back_records", history->found.records)
      .time("read_back_saved_at", history->found.savedAt)
      .text("found_fault", history->found.fault)
      .text("put_aside", history->aside)
      .number("chunks_left_out", history->found.chunksLeftOut);
  json.endObject();
}

void writeInterfaces(std::vector<InterfaceHistory> const& interfaces, JsonStream& json) {
  json.key("interfaces");
  json.beginArray();
  for (InterfaceHistory const& history : interfaces) {
    json.beginObject();
    Members(json)
        .text("name", history.name)
        .number("records_lost", history.lost)
        .time("whole_since", history.whole);
    json.endObject();
  }
  json.endArray();
}

}  // namespace

std::optional<AgentStatus::Gap> AgentStatus::gap() const {
  Microseconds const saved = history ? history->found.savedAt : Microseconds(0);
  if (saved == Microseconds(0) || saved >= beginning.wallTime) return std::nullopt;
  return Gap{saved, beginning.wallTime};
}

std::string AgentStatus::text() const {
  LocalZone zone(secondsOf(now));
  std::string text = Kes::format("agent: version %s, up %s, %u looks so far\n", VORN_VERSION,
                                 durationText(uptime), source.looks)
                         .str();
  text += source.text() + "; " + std::to_string(bursts) + " bursts seen\n";
  if (clock.steps != 0) text += clock.text() + '\n';
  text += Kes::format(
              "records: %u, into which %u updates were merged\n"
              "chunks: %u private, %u shared of %u at most%s, %u free; %u steals\n",
              counts.appends, counts.merges, chunks.privates, chunks.shared, poolLimit,
              poolGrows ? " now" : "", chunks.free, counts.steals)
              .str();
  if (!poolFault.empty()) text += poolFault + '\n';
  text += lossText(interfaces, zone);
  text += messages.text() + '\n';
  text += (history ? history->text() : "history: not kept, for want of --state-dir") + '\n';
  if (auto const unrecorded = gap()) {
    text += "history: " + recordsText(history->found.records) +
            " read back at the start, those of the sum among them\n";
    text += Kes::format("not recorded: from %s", zone.second(secondsOf(unrecorded->from))).str();
    text += Kes::format(" to %s (%s)\n", zone.second(secondsOf(unrecorded->to)), zone.name()).str();
  }
  return text + clients.text() + '\n' + failures.text() + '\n';
}

void AgentStatus::writeJson(std::FILE* out) const {
  JsonStream json(out);
  json.beginObject();
  Members members(json);
  members.text("version", VORN_VERSION)
      .number("uptime_us", static_cast<U64>(uptime.count()))
      .time("started_at", beginning.wallTime)
      .flag("enabled", source.enabled)
      .text("fault", source.fault)
      .text("seen_by", source.means == SourceStatus::Means::probe ? "probe" : "looks")
      .text("no_probe_because", source.meansReason)
      .number("bursts_lost", source.lostBursts)
      .number("bursts_without_flows", source.flowlessBursts)
      .number("late_notices", source.lostNotices)
      .number("missed_packets", source.lostEvents)
      .number("asked_interval_us", source.askedInterval)
      .number("interval_us", source.interval)
      .real("achieved_interval_us", source.achievedInterval)
      .real("longest_interval_us", source.longestInterval)
      .number("looks", source.looks)
      .number("late_looks", source.lateLooks)
      .number("interrupted_looks", source.interruptedLooks)
      .number("failed_looks", source.failedLooks)
      .real("look_cost_us", source.lookCost)
      .number("queues", source.queues)
      .number("bursts", bursts)
      .number("clock_steps", clock.steps)
      .signedNumber("last_clock_step_us", clock.lastStep / 1000)
      .number("records", counts.appends)
      .number("merges", counts.merges)
      .number("steals", counts.steals)
      .number("records_lost", lostOf(interfaces, 0))
      .number("private_chunks", chunks.privates)
      .number("shared_chunks", chunks.shared)
      .number("free_chunks", chunks.free)
      .number("pool_chunks", poolLimit)
      .flag("pool_grows", poolGrows)
      .flag("pool_too_small", !poolFault.empty())
      .number("threshold_messages_sent", messages.thresholds.sent)
      .number("threshold_messages_lost", messages.thresholds.lost)
      .number("other_messages_sent", messages.others.sent)
      .number("other_messages_lost", messages.others.lost)
      .number("messages_waiting", messages.waiting)
      .number("trace_lines_lost", messages.lostTraces)
      .number("clients", clients.connected)
      .number("clients_waiting", clients.waiting)
      .number("clients_reporting", clients.reporting)
      .number("clients_following", clients.following)
      .number("requests", clients.requests)
      .number("reports", clients.reports)
      .number("clients_refused", clients.refused)
      .number("clients_dropped", clients.dropped)
      .number("records_skipped", clients.skipped)
      .number("failures", failures.count)
      .text("last_failure", failures.last);
  writeHistory(history, json);
  auto const unrecorded = gap().value_or(Gap{});
  members.time("not_recorded_from", unrecorded.from).time("not_recorded_to", unrecorded.to);
  writeInterfaces(interfaces, json);
  json.endObject();
}

AgentStatus statusOf(StatusSources const& sources) {
  Vorn::CongestionData const& recorder = sources.recorder;
  auto const uptime = std::chrono::steady_clock::now() - sources.beginning.moment;
  return {.beginning = sources.beginning,
          .now = sources.clock.now(),
          .uptime = std::chrono::duration_cast<std::chrono::microseconds>(uptime),
          .source = sources.source.status(),
          .bursts = sources.feed.bursts(),
          .clock = sources.clock.status(),
          .counts = recorder.counts(),
          .chunks = recorder.chunkCounts(),
          .poolLimit = recorder.numSharedChunks(),
          .poolGrows = sources.feed.poolGrows(),
          .poolFault = sources.feed.poolFault(),
          .messages = journalStatus(),
          .history = sources.history == nullptr ? std::nullopt : std::optional(sources.history->status()),
          .clients = sources.server.status(),
          .failures = failureStatus(),
          .interfaces = interfaceHistories(recorder)};
}

}  // namespace Agent
