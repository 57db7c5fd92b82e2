// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>

#include "Vorn/CongestionData.h"
#include "agent/AgentOptions.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/probe/QueueSource.h"
#include "agent/serve/CommandServer.h"

namespace Agent {

// What these options say to the parts that take them from elsewhere.
QdiscSourceOptions sourceOptionsOf(AgentOptions const& options);
CommandServer::Limits clientLimitsOf(AgentOptions const& options);

// The configuration in force: brings the agent's parts to what a configuration file says that has been
// changed, while they go on working, and shows it.
//
// A reading takes effect as a whole or, where the file is bad, not at all. It is done between two looks and
// loses neither a look nor a burst that is open. What only a start can change (AgentOptions::Setting::isLive
// tells), and a smaller pool, stay as they are until then; the journal says so.
//
// It also gives each interface that has a queue its thresholds, by its name or by the first pattern that
// fits.
class LiveSettings {
 public:
  // What there is to be changed. All outlive the settings, and are made of `options` already.
  struct Parts {
    Vorn::Config::Ptr config;
    Vorn::Hardware::Status::Ptr hwStatus;
    Vorn::CongestionData::Ptr recorder;
    CongestionFeed& feed;
    QueueSource& source;
    CommandServer& server;
  };

  // Before the source starts.
  LiveSettings(AgentOptions options, Parts parts);
  ~LiveSettings();
  LiveSettings(LiveSettings const&) = delete;
  LiveSettings& operator=(LiveSettings const&) = delete;

  AgentOptions const& options() const { return options_; }

  // Reads the file again, and notes in the journal what came of it. Whether the file was good.
  bool reload();

  // All settings as a configuration file would have them, with their origins as comments, without the last
  // newline.
  std::string listing() const;

 private:
  void handleInterface(std::string const& name, bool here);
  void thresholdsAre(std::string const& name);
  bool isKept(AgentOptions::Setting const& old, AgentOptions const& next) const;

  AgentOptions options_;
  Parts const parts_;
  Kes::U32 const poolAtStart_;
  std::set<std::string> interfaces_;  // that have queues now
};

}  // namespace Agent
