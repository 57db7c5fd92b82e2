// SPDX-License-Identifier: Apache-2.0
// vorn-agent: records the congestion of this machine's egress queues, and serves reports of it.

#include <net/if.h>
#include <sched.h>
#include <sys/resource.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "Kes/Format.h"
#include "Vorn/CongestionData.h"
#include "Vorn/Trace.h"
#include "agent/AgentOptions.h"
#include "agent/LiveSettings.h"
#include "agent/RecorderInputs.h"
#include "agent/base/AgentClock.h"
#include "agent/base/EventLoop.h"
#include "agent/base/Journal.h"
#include "agent/base/PoolLimit.h"
#include "agent/base/ServiceManager.h"
#include "agent/base/Signals.h"
#include "agent/base/StandardStreams.h"
#include "agent/burst/CongestionFeed.h"
#include "agent/history/HistoryKeeper.h"
#include "agent/probe/QueueSource.h"
#include "agent/record/LinuxEntryType.h"
#include "agent/record/LinuxPortMetaDataDumper.h"
#include "agent/serve/AgentStatus.h"
#include "agent/serve/CommandServer.h"
#include "agent/serve/OwnRequests.h"

namespace {

void openLog(Agent::AgentOptions const& options) {
  Agent::openJournal(options.messagesToStderr);
  for (Kes::U32 level = 0; options.traceLevel && level <= *options.traceLevel; ++level) {
    Vorn::defaultTraceHandle().levelIs(level, true);
  }
}

// Report children go back to the ordinary policy.
void makeRealTime(int priority) {
  sched_param parameters{};
  parameters.sched_priority = priority;
  if (::sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &parameters) == 0) return;
  int const reason = errno;
  Agent::note(LOG_WARNING, "--fifo " + std::to_string(priority) + " is refused (" + std::strerror(reason) +
                               "): running at ordinary priority");
}

// Each client takes a descriptor, each report another one.
void allowManyClients() {
  constexpr rlim_t enough = 4096;
  rlimit files{};
  if (::getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur >= enough) return;
  files.rlim_cur = std::min(files.rlim_max, enough);
  ::setrlimit(RLIMIT_NOFILE, &files);  // with fewer, newcomers wait earlier
}

std::vector<std::string> presentInterfaces() {
  std::vector<std::string> names;
  struct if_nameindex* const all = ::if_nameindex();
  if (all == nullptr) return names;
  for (auto const* one = all; one->if_index != 0; ++one) names.emplace_back(one->if_name);
  ::if_freenameindex(all);
  return names;
}

Vorn::CongestionData::Ptr makeRecorder(Agent::AgentOptions const& options, Vorn::Config::Ptr const& config,
                                       Vorn::Hardware::Status::Ptr const& status,
                                       Agent::AgentClock::Ptr const& clock) {
  auto const recorder = Kes::makePtr<Vorn::CongestionData>(status, clock, config,
                                                           Kes::makePtr<Agent::LinuxPortMetaDataDumper>());
  if (options.poolChunks != 0) recorder->numSharedChunksIs(options.poolChunks);
  if (recorder->numSharedChunks() == 0 || recorder->numSharedChunks() > Agent::maxPoolChunks) {
    char const* const setting = std::getenv("SIM_NUM_SHARED_CHUNKS");
    throw std::runtime_error(Kes::format("SIM_NUM_SHARED_CHUNKS is \"%s\": a pool holds 1 to %u chunks",
                                         setting, Agent::maxPoolChunks)
                                 .str());
  }
  return recorder;
}

void remarkOn(Agent::AgentOptions const& options) {
  for (std::string const& remark : Agent::remarksOn(options, presentInterfaces()))
    Agent::note(LOG_WARNING, remark);
}

void serve(Agent::AgentOptions const& options) {
  Agent::registerLinuxEntry();
  Agent::EventLoop loop;
  std::function<void()> reload;
  Agent::Signals const signals(loop, [&reload] { reload(); });
  Agent::JournalRetries const retries(loop);
  Agent::ServiceManager manager(loop);
  auto const config = Agent::configOf(options);
  auto const status = Agent::hardwareStatusOf(options);
  auto const clock = Kes::makePtr<Agent::AgentClock>();
  auto const recorder = makeRecorder(options, config, status, clock);
  Agent::BurstLedger ledger;
  std::optional<Agent::HistoryKeeper> history;
  if (!options.stateDirectory.empty())
    history.emplace(options.stateDirectory, recorder, ledger, options.poolGrows);
  Agent::CongestionFeed feed(recorder, config, status, clock, ledger);
  Agent::QueueSource source(feed, config, status, Agent::sourceOptionsOf(options), options.source,
                            options.probe);
  std::optional<Agent::CommandServer> server;
  std::optional<Agent::LiveSettings> settings;
  Agent::AgentStatus::Beginning const beginning{clock->now(), std::chrono::steady_clock::now()};
  auto const agentStatus = [&] {  // asked for by the server's clients only
    return Agent::statusOf(
        {*recorder, source, feed, *clock, history ? &*history : nullptr, *server, beginning});
  };
  Kes::U64 changesByName = 0;
  server.emplace(loop, options.socketPath, recorder,
                 Agent::OwnRequests(
                     recorder, ledger, agentStatus, [&settings] { return settings->listing(); },
                     presentInterfaces, [&changesByName] { ++changesByName; }),
                 presentInterfaces, Agent::clientLimitsOf(options));
  feed.closedHandlerIs([&server](Agent::QueueAddress const& queue, Agent::LinuxEntry::Ptr const& record) {
    server->handleClosed(record->row(queue.intfId.shortName().view()));
  });
  settings.emplace(options, Agent::LiveSettings::Parts{config, status, recorder, feed, source, *server});
  std::string const answering = "answering at " + options.socketPath;
  reload = [&settings, &manager, &answering] {
    manager.tellReloading();
    bool const good = settings->reload();
    manager.tellReady(answering + (good ? "" : "; the new configuration was refused, see the system log"));
    if (good) remarkOn(settings->options());
  };
  if (options.fifoPriority) makeRealTime(*options.fifoPriority);
  ledger.start(loop);
  source.start(loop);
  remarkOn(options);
  Agent::note(LOG_INFO, "recording; requests at " + options.socketPath);
  if (history) {
    history->start(loop, std::chrono::seconds(options.saveInterval),
                   [&feed, &changesByName] { return feed.changes() + changesByName; });
  }
  manager.tellReady(answering);
  loop.run();
  manager.tellStopping();
  ledger.settle(std::numeric_limits<Kes::U64>::max());  // what has ended is closed
  if (history) history->finish();
  Agent::note(LOG_INFO, "ending");
}

}  // namespace

int main(int argc, char** argv) {
  Agent::openClosedStandardStreams();
  allowManyClients();
  ::tzset();  // once here, not in every report's process
  int exitStatus = 0;
  auto const options = Agent::parseAgentOptions(argc, argv, exitStatus);
  if (!options) return exitStatus;
  openLog(*options);
  try {
    serve(*options);
    return 0;
  } catch (std::exception const& error) {
    Agent::note(LOG_ERR, error.what());
    if (!options->messagesToStderr) std::fprintf(stderr, "vorn-agent: %s\n", error.what());
    return 1;
  }
}
