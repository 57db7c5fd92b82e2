// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/Metrics.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "Kes/Format.h"
#include "agent/base/Printable.h"
#include "agent/record/RecordColumns.h"

namespace Agent {

namespace {

using Kes::U64;
using Vorn::Microseconds;

constexpr U64 inSecond = Microseconds::microsecondsInSecond();

// The family of metrics that sums up a column of the records.
consteval std::string_view metricOf(std::string_view column) {
  for (auto const& one : recordColumns)
    if (one.name == column && !one.metric.empty()) return one.metric;
  throw "no such column, or none that is summed up";
}

// What is kept in microseconds is written in seconds.
std::string numberText(U64 value, Unit unit) {
  if (unit != Unit::microseconds) return std::to_string(value);
  std::string fraction = std::to_string(inSecond + value % inSecond);
  fraction.front() = '.';
  return std::to_string(value / inSecond) + fraction;
}

// As floating-point numbers are written in labels, so that it is the same text whoever compares it.
std::string boundText(U64 bound, Unit unit) {
  std::string text = numberText(bound, unit);
  if (unit != Unit::microseconds) return text + ".0";
  text.erase(std::max(text.find_last_not_of('0'), text.find('.') + 1) + 1);
  return text;
}

// What is not printable is written by its code, so that names which differ stay different.
std::string escaped(std::string_view value) {
  std::string const shown = printable(value);
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (shown[i] != value[i])
      text += Kes::format("\\\\x%02x", static_cast<unsigned char>(value[i])).str();
    else
      (text += value[i] == '\\' || value[i] == '"' ? "\\" : "") += value[i];
  }
  return text;
}

class Writing {
 public:
  Writing(MetricsForm form, std::FILE* out) : form_(form), out_(out) {}

  void counter(std::string const& name, char const* unit, char const* help) {
    // The family of NAME_total is NAME, where it used to be NAME_total.
    family(form_ == MetricsForm::classic ? name + "_total" : name, "counter", unit, help);
    sample_ = name + "_total";
  }
  void gauge(std::string const& name, char const* unit, char const* help) {
    family(name, "gauge", unit, help);
    sample_ = name;
  }
  void histogram(std::string const& name, char const* unit, char const* help) {
    family(name, "histogram", unit, help);
    sample_ = name;
  }

  // Of the family told last. `labels` are what stands between the braces.
  void value(std::string_view labels, std::string_view number) { put("", labels, number); }
  void values(std::string const& labels, Histogram const& histogram, HistogramBounds const& bounds,
              Unit unit) {
    U64 sum = 0;
    for (std::size_t i = 0; i < histogram.counts.size(); ++i) {
      std::string const bound = i < bounds.size() ? boundText(bounds[i], unit) : "+Inf";
      sum += histogram.counts[i];
      put("_bucket", labels + ",le=\"" + bound + '"', std::to_string(sum));
    }
    put("_sum", labels, numberText(histogram.sum, unit));
    put("_count", labels, std::to_string(sum));
  }
  // A family of one value without labels.
  void lone(U64 number, Unit unit = Unit::count) { value("", numberText(number, unit)); }

  void finish() {
    if (form_ == MetricsForm::openMetrics) std::fputs("# EOF\n", out_);
  }

 private:
  void family(std::string const& name, char const* type, std::string_view unit, char const* help) {
    std::fprintf(out_, "# HELP %s %s\n# TYPE %s %s\n", name.c_str(), help, name.c_str(), type);
    if (form_ == MetricsForm::openMetrics && !unit.empty())
      std::fprintf(out_, "# UNIT %s %s\n", name.c_str(), unit.data());
  }

  void put(std::string_view suffix, std::string_view labels, std::string_view number) {
    line_.assign(sample_).append(suffix);
    if (!labels.empty()) line_.append("{").append(labels).append("}");
    line_.append(" ").append(number).append("\n");
    std::fwrite(line_.data(), 1, line_.size(), out_);
  }

  MetricsForm const form_;
  std::FILE* const out_;
  std::string sample_;
  std::string line_;
};

void writeQueues(BurstLedger const& ledger, Writing& writing) {
  struct Queue {
    std::string labels;
    BurstLedger::Account const* account;
  };
  std::vector<Queue> queues;
  queues.reserve(ledger.accounts().size());
  for (auto const& [id, account] : ledger.accounts()) {
    std::string const kind(account.address.kind.data());
    queues.push_back({"device=\"" + escaped(id.intfId.stringValue().view()) + "\",queue=\"" +
                          std::string(QueueName::ofKey(id.key).text()) + "\",kind=\"" + escaped(kind) + '"',
                      &account});
  }
  auto const each = [&](auto number, Unit unit = Unit::count) {
    for (auto const& [labels, account] : queues) writing.value(labels, numberText(number(*account), unit));
  };
  auto const histograms = [&](Histogram QueueTotals::*which, HistogramBounds const& bounds, Unit unit) {
    for (auto const& [labels, account] : queues) writing.values(labels, account->totals.*which, bounds, unit);
  };
  writing.counter("vorn_bursts", "", "Bursts of the queue, however short.");
  each([](auto const& account) { return account.totals.bursts; });
  writing.counter("vorn_congested_seconds", "seconds", "Time that the queue was congested.");
  each([](auto const& account) { return account.totals.congested; }, Unit::microseconds);
  writing.counter(std::string(metricOf("drops")), "packets", "Packets that the queue's bursts lost.");
  each([](auto const& account) { return account.totals.drops; });
  writing.gauge("vorn_queue_congested", "", "Whether the queue is congested now.");
  each([](auto const& account) { return U64{account.open}; });
  writing.gauge("vorn_queue_peak_bytes", "bytes", "Longest backlog of the burst that lasts now, else 0.");
  each([](auto const& account) { return account.open ? U64{account.peak} : 0; });
  writing.histogram(std::string(metricOf("queue_length_bytes")), "bytes",
                    "Longest backlogs of the bursts that are over.");
  histograms(&QueueTotals::peak, QueueTotals::peakBounds, Unit::count);
  writing.histogram(std::string(metricOf("duration_us")), "seconds",
                    "How long the bursts that are over lasted.");
  histograms(&QueueTotals::duration, QueueTotals::durationBounds, Unit::microseconds);
  writing.histogram(std::string(metricOf("latency_us")), "seconds",
                    "How long the last byte of the longest backlog waited, where that is known.");
  histograms(&QueueTotals::latency, QueueTotals::latencyBounds, Unit::microseconds);
}

// How long ago it was since when no record is missing.
U64 historyReach(AgentStatus const& status) {
  Microseconds lost{};
  Microseconds since = status.beginning.wallTime;
  for (InterfaceHistory const& history : status.interfaces) {
    if (history.lost != 0) lost = std::max(lost, history.whole);
    if (history.whole != Microseconds(0)) since = std::min(since, history.whole);
  }
  if (lost != Microseconds(0)) since = lost;
  return status.now.value() - std::min(status.now, since).value();
}

void writeAgent(AgentStatus const& status, Writing& writing) {
  writing.gauge("vorn_build_info", "", "The agent's version.");
  writing.value("version=\"" VORN_VERSION "\"", "1");
  writing.gauge("vorn_start_time_seconds", "seconds", "When the agent began, in seconds since 1970.");
  writing.lone(status.beginning.wallTime.value(), Unit::microseconds);
  writing.gauge("vorn_queues", "", "Queues that are watched.");
  writing.lone(status.source.queues);
  writing.gauge("vorn_probe_attached", "", "1 where a probe in the kernel sees every packet.");
  writing.lone(status.source.means == SourceStatus::Means::probe ? 1 : 0);
  writing.counter("vorn_probe_lost_bursts", "", "Bursts of which the probe could not tell.");
  writing.lone(status.source.lostBursts);
  writing.counter("vorn_looks", "", "Looks at all queues since the agent began.");
  writing.lone(status.source.looks);
  writing.counter("vorn_late_looks", "", "Looks that came later than two intervals.");
  writing.lone(status.source.lateLooks);
  writing.counter("vorn_failed_looks", "", "Looks that the kernel did not answer.");
  writing.lone(status.source.failedLooks);
  writing.gauge("vorn_look_interval_seconds", "seconds", "Time between two looks, as it is tried.");
  writing.lone(status.source.interval, Unit::microseconds);
  writing.counter("vorn_messages_lost", "", "Messages that the system log did not take.");
  writing.lone(status.messages.thresholds.lost + status.messages.others.lost);
  writing.counter("vorn_records_lost", "", "Records that the pool has taken from the history.");
  writing.lone(lostOf(status.interfaces, 0));
  writing.gauge("vorn_pool_chunks", "", "Chunks of 500 records: in use, free, and not yet made.");
  Kes::U32 const made = status.chunks.shared + status.chunks.free;
  writing.value("state=\"shared\"", std::to_string(status.chunks.shared));
  writing.value("state=\"free\"", std::to_string(status.chunks.free));
  writing.value("state=\"unmade\"", std::to_string(status.poolLimit - std::min(status.poolLimit, made)));
  writing.gauge("vorn_history_reach_seconds", "seconds",
                "How far back the history is whole for all interfaces.");
  writing.lone(historyReach(status), Unit::microseconds);
}

}  // namespace

void writeMetrics(BurstLedger const& ledger, AgentStatus const& status, MetricsForm form, std::FILE* out) {
  Writing writing(form, out);
  writeQueues(ledger, writing);
  writeAgent(status, writing);
  writing.finish();
}

}  // namespace Agent
