// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "Vorn/CongestionData.h"
#include "agent/burst/BurstLedger.h"
#include "agent/serve/AgentStatus.h"
#include "agent/serve/CommandServer.h"

namespace Agent {

// Answers the requests that are not of the recorder's vocabulary (Protocol.h lists them): the agent's own
// status and configuration, metrics, queries of the history, the history for a file, what is looked up by
// name, and what is changed by name.
//
// Looking up and saving are for everybody, since reports are. Changing is for root and for the user that the
// agent runs as, is limited to what SafeChanges.h allows, and is noted in the system log.
class OwnRequests {
 public:
  // The ledger outlives this. `status` and `config` answer the requests of these names, `config` without the
  // last newline; interfaces that have no records are known by `interfaces`; `changed` is called after each
  // change by name.
  OwnRequests(Vorn::CongestionData::Ptr recorder, BurstLedger const& ledger,
              std::function<AgentStatus()> status, std::function<std::string()> config,
              InterfaceNames interfaces, std::function<void()> changed);

  // Nothing for a request of the vocabulary. `client` is the user who asks.
  std::optional<CommandServer::Answer> operator()(std::string const& line, uid_t client) const;

 private:
  CommandServer::Answer query(std::string const& request) const;
  std::string change(std::string const& request, uid_t client) const;

  Vorn::CongestionData::Ptr recorder_;
  BurstLedger const* ledger_;
  std::function<AgentStatus()> status_;
  std::function<std::string()> config_;
  InterfaceNames interfaces_;
  std::function<void()> changed_;
};

}  // namespace Agent
