// SPDX-License-Identifier: Apache-2.0
#include "agent/serve/OwnRequests.h"

#include <syslog.h>
#include <unistd.h>

#include "agent/base/Journal.h"
#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/byname/ObjectChange.h"
#include "agent/byname/ObjectLookup.h"
#include "agent/byname/ObjectPath.h"
#include "agent/history/HistoryWriter.h"
#include "agent/query/QueryReport.h"
#include "agent/serve/Metrics.h"

namespace Agent {

OwnRequests::OwnRequests(Vorn::CongestionData::Ptr recorder, BurstLedger const& ledger,
                         std::function<AgentStatus()> status, std::function<std::string()> config,
                         InterfaceNames interfaces, std::function<void()> changed)
    : recorder_(std::move(recorder)),
      ledger_(&ledger),
      status_(std::move(status)),
      config_(std::move(config)),
      interfaces_(std::move(interfaces)),
      changed_(std::move(changed)) {}

std::optional<CommandServer::Answer> OwnRequests::operator()(std::string const& line, uid_t client) const {
  using Answer = CommandServer::Answer;
  std::string const request(Protocol::requestIn(line));
  try {
    if (request == Protocol::statusRequest) return Answer{.text = status_().text()};
    // It may be long. The child finds all parts as they stand when its turn comes.
    if (request == Protocol::jsonStatusRequest)
      return Answer{.writer = [status = status_](std::FILE* out) {
        status().writeJson(out);
        return std::string();
      }};
    if (request == Protocol::metricsRequest || request == Protocol::classicMetricsRequest) {
      auto const form = request == Protocol::metricsRequest ? MetricsForm::openMetrics : MetricsForm::classic;
      return Answer{.writer = [status = status_, ledger = ledger_, form](std::FILE* out) {
        writeMetrics(*ledger, status(), form, out);
        return std::string();
      }};
    }
    if (request == Protocol::saveRequest)
      return Answer{.writer = [recorder = recorder_, ledger = ledger_](std::FILE* out) {
        writeHistory(*recorder, *ledger, out);
        return std::string();
      }};
    if (request == Protocol::configRequest) return Answer{.text = config_() + '\n'};
    if (isQuery(request)) return query(request);
    if (isObjectChange(request)) return Answer{.text = change(request, client)};
    if (!ObjectLookup::claims(request)) return std::nullopt;
    // What is wrong is said now. The child looks again: while it waits for its turn, chunks change hands.
    ObjectLookup(recorder_, request);
    return Answer{.writer = [recorder = recorder_, request](std::FILE* out) {
      ObjectLookup(recorder, request).write(out);
      return std::string();
    }};
  } catch (ObjectError const& error) {
    return Answer{.failure = error.what()};
  } catch (QueryError const& error) {
    return Answer{.failure = printable(error.what())};
  }
}

CommandServer::Answer OwnRequests::query(std::string const& request) const {
  return {.writer = [recorder = recorder_, ledger = ledger_, interfaces = interfaces_,
                     query = queryFrom(request)](std::FILE* out) {
    QueryReport report(query, *recorder, *ledger, interfaces());
    ReportChild::patternsAreDone();
    return report.write(out);
  }};
}

std::string OwnRequests::change(std::string const& request, uid_t client) const {
  if (client != 0 && client != ::geteuid()) {
    throw ObjectError("only root and user " + std::to_string(::geteuid()) +
                      ", as whom the agent runs, may set and call; you are user " + std::to_string(client));
  }
  std::string answer = changeObject(recorder_, request);
  changed_();
  note(LOG_NOTICE, "user " + std::to_string(client) + ": " + request);
  return answer;
}

}  // namespace Agent
