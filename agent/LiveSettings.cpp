// SPDX-License-Identifier: Apache-2.0
#include "agent/LiveSettings.h"

#include <syslog.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "agent/ConfigFile.h"
#include "agent/RecorderInputs.h"
#include "agent/base/Journal.h"
#include "agent/base/Printable.h"

namespace Agent {

namespace {

using Setting = AgentOptions::Setting;

void enumerate(std::string& list, std::string const& name) { list += (list.empty() ? "" : ", ") + name; }

}  // namespace

QdiscSourceOptions sourceOptionsOf(AgentOptions const& options) {
  return {options.interval, options.startThresholdBytes, options.interfaces, options.excluded,
          options.coalescing};
}

CommandServer::Limits clientLimitsOf(AgentOptions const& options) {
  AgentOptions::ClientLimits const& clients = options.clients;
  // Kept for root and the agent's own user: a sixteenth of the connections, a fifth of the reports.
  return {.connections{clients.connections, clients.userConnections, std::max(1U, clients.connections / 16)},
          .reports{clients.reports, clients.userReports, std::max(1U, clients.reports / 5)}};
}

LiveSettings::LiveSettings(AgentOptions options, Parts parts)
    : options_(std::move(options)),
      parts_(std::move(parts)),
      poolAtStart_(parts_.recorder->numSharedChunks()) {
  parts_.feed.poolGrowsIs(options_.poolGrows);
  parts_.feed.interfaceHandlerIs([this](Pylo::IntfId const& intfId, bool here) {
    handleInterface(std::string(intfId.stringValue().view()), here);
  });
}

LiveSettings::~LiveSettings() { parts_.feed.interfaceHandlerIs({}); }

void LiveSettings::handleInterface(std::string const& name, bool here) {
  if (here) {
    interfaces_.insert(name);
    thresholdsAre(name);
  } else {
    interfaces_.erase(name);
    parts_.config->portConfigDel(name);
  }
}

void LiveSettings::thresholdsAre(std::string const& name) {
  if (Thresholds const* const own = thresholdsFor(options_, name))
    parts_.config->portConfigIs(name, {own->high, own->low});
  else
    parts_.config->portConfigDel(name);
}

// Whether a setting that the next options have otherwise stays as it is until the agent is started again.
bool LiveSettings::isKept(Setting const& old, AgentOptions const& next) const {
  if (old.name != "pool") return !old.isLive;
  return !next.poolGrows && next.poolChunks < parts_.recorder->numSharedChunks();
}

bool LiveSettings::reload() {
  AgentOptions next;
  try {
    next = readAgain(options_);
  } catch (std::exception const& error) {
    note(LOG_ERR, std::string("the configuration in force stays; the new one is refused: ") + error.what());
    return false;
  }
  std::string changed;
  std::string later;
  bool otherPool = false;
  for (std::size_t i = 0; i < next.settings.size(); ++i) {
    Setting const& old = options_.settings[i];  // both list all options
    Setting& wanted = next.settings[i];
    if (wanted.values == old.values) continue;
    bool const kept = isKept(old, next);
    enumerate(kept ? later : changed, old.name);
    if (kept) wanted = old;
    if (old.name != "pool") continue;
    otherPool = !kept;
    if (kept) next.poolGrows = options_.poolGrows;
    if (kept) next.poolChunks = options_.poolChunks;
  }
  options_ = std::move(next);
  configIs(*parts_.config, options_);
  hardwareStatusIs(*parts_.hwStatus, options_);
  for (std::string const& name : interfaces_) thresholdsAre(name);
  parts_.feed.poolGrowsIs(options_.poolGrows);
  if (otherPool) {
    std::uint32_t const atLeast = std::max(parts_.recorder->numSharedChunks(), Vorn::ChunkPool::defaultLimit);
    parts_.recorder->numSharedChunksIs(options_.poolGrows ? atLeast : options_.poolChunks);
  }
  parts_.source.optionsAre(sourceOptionsOf(options_));
  parts_.server.limitsAre(clientLimitsOf(options_));
  note(LOG_NOTICE,
       "the configuration was read again: " + (changed.empty() ? "nothing changes" : changed + " changed") +
           (later.empty() ? "" : "; at the next start: " + later));
  return true;
}

std::string LiveSettings::listing() const {
  std::string text;
  for (Setting const& setting : options_.settings) {
    std::vector<std::string> values = setting.values;
    std::string origin = setting.origin;
    // It can be set by name as well.
    std::string const chunks = std::to_string(parts_.recorder->numSharedChunks());
    if (setting.name == "pool" && options_.poolGrows) {
      origin += ", " + chunks + " now";
    } else if (setting.name == "pool") {
      values = {chunks};
      auto const wanted = options_.poolChunks == 0 ? poolAtStart_ : options_.poolChunks;
      if (parts_.recorder->numSharedChunks() != wanted) origin = "set by name";
    }
    std::string line;
    if (setting.isList) {
      for (std::string const& value : values) enumerate(line, configText(value));
      line = setting.name + " = [" + line + ']';
    } else {
      line = values.empty() ? '#' + setting.name + " is not set"
                            : setting.name + " = " + configText(values.front());
    }
    constexpr std::size_t column = 32;
    line.resize(std::max(line.size() + 2, column), ' ');
    text += (text.empty() ? "" : "\n") + line + "# " + origin;
  }
  return text;
}

}  // namespace Agent
