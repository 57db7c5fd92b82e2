// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex>

#include "Vorn/CommandOptions.h"
#include "tests/model/ModelRecorder.h"

namespace Model {

using Report = Vorn::CommandOptions::Report;

// The reports that the model's records make.
class Reports {
 public:
  Reports(Recorder& recorder, Kes::Seconds now) : recorder_(recorder), now_(now) {}

  // The report that the options ask for. `order` is the order in which the ports are met.
  std::string report(Vorn::CommandOptions const& options, std::vector<std::string> const& order) {
    if (options.report == Report::statistics) return begin() + statistics() + Test::footer;
    if (options.report == Report::globalBuffer) return begin() + globalReport();
    return begin() + entryReport(options, order);
  }

 private:
  // A port's records without holes; the next one to be written stands at the back.
  struct Source {
    std::string intf;
    std::vector<Record const*> records;
  };

  struct Start {
    U64 time;
    std::string intf;
    U32 identifier;
  };

  static std::string shortName(std::string const& name) { return Pylo::IntfId(name).shortName().str(); }

  static std::string line(char const* kind, Record const& record, std::string const& intf) {
    return Test::recordLine(kind, std::to_string(record.timestamp), intf, record.qLen, record.duration);
  }

  static bool matches(Vorn::CommandOptions const& options, std::string const& name) {
    auto const fits = [&](std::string const& text) {
      return std::regex_match(shortName(name), std::regex(text));
    };
    auto const& patterns = options.interfacePatterns;
    return options.allInterfaces || std::any_of(patterns.begin(), patterns.end(), fits);
  }

  static Source sourceOf(Port const& port, bool oldestFirst) {
    Source source{shortName(port.name), {}};
    for (Chunk const& chunk : port.chunks)
      for (auto const& record : chunk.records)
        if (record) source.records.push_back(&*record);
    if (oldestFirst) std::reverse(source.records.begin(), source.records.end());
    return source;
  }

  // The source whose next record comes first; of equal times the source met first.
  static Source* choose(std::vector<Source>& sources, bool oldestFirst) {
    Source* best = nullptr;
    for (Source& source : sources) {
      if (source.records.empty()) continue;
      U64 const time = source.records.back()->timestamp;
      U64 const bestTime = best != nullptr ? best->records.back()->timestamp : 0;
      if (best == nullptr || (oldestFirst ? time < bestTime : time > bestTime)) best = &source;
    }
    return best;
  }

  std::string begin() const {
    char text[64];
    std::snprintf(text, sizeof text, "\nReport generated at %f\n", now_);
    return text + std::string(Test::header);
  }

  std::string entryReport(Vorn::CommandOptions const& options, std::vector<std::string> const& order) {
    bool const csv = options.report == Report::csv;
    bool const plain = csv || (!options.drops && !options.latency);
    U32 const limit = csv ? 0 : options.entryCount;
    char const* const kind = csv ? "csv" : options.drops ? "drops" : options.latency ? "latency" : "text";
    std::vector<Source> sources;
    std::vector<Start> starts;
    for (std::string const& name : order) {
      Port const& port = *recorder_.find(name);
      if (!matches(options, name)) continue;
      sources.push_back(sourceOf(port, csv));
      auto const& records = sources.back().records;
      if (records.empty()) continue;
      U64 const oldest = (csv ? records.back() : records.front())->timestamp;
      for (auto const& [identifier, data] : port.metaData)
        if (data.start != 0 && data.start < oldest)
          starts.push_back({data.start, shortName(name), identifier});
    }
    // The next one stands at the back.
    std::sort(starts.begin(), starts.end(),
              [&](Start const& a, Start const& b) { return csv ? a.time > b.time : a.time < b.time; });

    std::string out;
    U32 lines = 0;
    auto const writeStart = [&] {
      out += Test::startLine(csv, starts.back().intf, starts.back().identifier);
      if (Test::startResult(starts.back().identifier) == 0) ++lines;
      starts.pop_back();
    };
    while (Source* const source = choose(sources, csv)) {
      Record const& record = *source->records.back();
      while (plain && !starts.empty() &&
             (csv ? starts.back().time < record.timestamp : starts.back().time > record.timestamp)) {
        writeStart();
        if (limit != 0 && lines >= limit) break;
      }
      source->records.pop_back();
      if (limit != 0 && lines >= limit) break;
      U64 const age = Vorn::Microseconds::fromSeconds(now_).value() - record.timestamp;
      if (!csv && options.ageLimit != 0 && age > U64{options.ageLimit} * 1000000) break;
      if (options.showAll && plain) out += mergeGlobal(&record, csv);
      out += line(kind, record, source->intf);
      if (csv ? record.result != 0 : record.result == -1) return out;
      if (record.result == 0) ++lines;
    }
    while (plain && !starts.empty()) {
      writeStart();
      if (!csv && lines == options.entryCount) break;
    }
    if (options.showAll) out += mergeGlobal(nullptr, csv);
    if (recorder_.global) recorder_.global->next = 65535;
    return out + Test::footer;
  }

  // The global records that come before a record; all that are left when it is null.
  std::string mergeGlobal(Record const* before, bool ascending) {
    if (!recorder_.global || recorder_.global->records.empty()) return "";
    if (recorder_.global->next == 65535) {
      recorder_.global->left = static_cast<U16>(recorder_.global->records.size());
      U32 const behind = (recorder_.global->head + recorder_.global->left) % Vorn::entriesPerChunk;
      recorder_.global->next = static_cast<U16>(ascending ? recorder_.global->head : behind - 1);
    }
    std::string out;
    for (; recorder_.global->left != 0 && recorder_.global->next < Vorn::entriesPerChunk;
         --recorder_.global->left) {
      if (Record const* const record = recorder_.global->at(recorder_.global->next)) {
        bool const later = before != nullptr && (ascending ? before->timestamp <= record->timestamp
                                                           : before->timestamp >= record->timestamp);
        if (later) break;
        out += line(ascending ? "csv" : "text", *record, "N/A");
      }
      recorder_.global->next =
          static_cast<U16>((recorder_.global->next + (ascending ? 1U : 499U)) % Vorn::entriesPerChunk);
    }
    return out;
  }

  std::string globalReport() {
    if (!recorder_.global || recorder_.global->records.empty()) return "";
    std::string out;
    for (std::size_t k = recorder_.global->records.size(); k-- > 0;)
      out += line("global", *recorder_.global->records[k], "-");
    return out + Test::footer;
  }

  // All the model's short names are two letters, a number, and at times a slash and a second number.
  std::string statistics() const {
    std::vector<std::tuple<int, int, std::string, U32, U32>> rows;
    for (Port const& port : recorder_.ports)
      for (auto const& [identifier, data] : port.metaData) {
        std::string const name = shortName(port.name);
        std::size_t const slash = name.find('/');
        int const second = slash == std::string::npos ? 0 : std::stoi(name.substr(slash + 1));
        rows.emplace_back(std::stoi(name.substr(2)), second, name, identifier, data.counter);
      }
    std::sort(rows.begin(), rows.end());
    std::string out;
    for (auto const& [first, second, name, identifier, counter] : rows)
      if (counter != 0)
        out += name + ", " + std::to_string(identifier) + ", " + std::to_string(counter) + '\n';
    return out + "\nGlobal Hit Count = " + std::to_string(recorder_.global ? recorder_.global->counter : 0) +
           '\n';
  }

  Recorder& recorder_;
  Kes::Seconds const now_;
};

}  // namespace Model
