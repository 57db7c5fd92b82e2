// SPDX-License-Identifier: Apache-2.0
// The smallest platform: a driver's thread that sees congestion, a thread that owns the recorder and answers
// commands on a socket, and a record, a dumper and a clock of the platform's own. docs/integration.md walks
// through it. So that it shows something by itself, the driver here has four things to tell and three to ask.

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <thread>

#include "Kes/Format.h"
#include "Vorn/Vorn.h"

namespace {

// A line of a report. All writers return 0, or -1 to end the report.
template <class... Args>
Kes::S32 writeLine(Kes::VoidPtr stream, char const* form, Args const&... args) {
  return std::fputs(Kes::format(form, args...).charPtr(), static_cast<std::FILE*>(stream)) < 0 ? -1 : 0;
}

// This platform counts lost packets too. Writers that no report of ours asks for are left as they are.
class PortEntry final : public Vorn::Entry {
 public:
  PortEntry(Kes::U32 qLen, Vorn::Microseconds timestamp, Kes::U32 drops)
      : Entry(qLen, timestamp), drops_(drops) {}
  Kes::S32 dumpEntry(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime, Kes::CharPtrConst intfName,
                     bool cvsFormat) const override {
    return writeLine(filePtr, cvsFormat ? "%s,%s,%u,%u\n" : "%16s us  %-6s  %6u us  %8u bytes\n", elapsedTime,
                     intfName, duration().value(), qLen());
  }
  Kes::S32 dumpDrops(Kes::VoidPtr filePtr, Kes::CharPtrConst elapsedTime,
                     Kes::CharPtrConst intfName) const override {
    return writeLine(filePtr, "%16s us  %-6s  %u dropped\n", elapsedTime, intfName, drops_);
  }

 private:
  Kes::U32 const drops_;
};

// A congestion that lasts longer than its interface's history reaches back.
class PortMetaDataDumper final : public Vorn::PortMetaDataDumper {
 public:
  Kes::S32 dumpStartMetaData(Vorn::PortMetaData const* portMetaData, Kes::VoidPtr stream,
                             bool csvFormat) const override {
    return writeLine(stream, csvFormat ? "%u,%s,,\n" : "%16u us  %-6s  congestion began\n",
                     portMetaData->timeOfCongestionStart().value(), portMetaData->intfId().shortName());
  }
};

// Records bear the chip's time, so the recorder goes by it too: here as of the last that the chip has told.
class ChipClock final : public Vorn::Clock {
 public:
  Kes::Seconds getUTCTime() const override { return Vorn::Microseconds::toSeconds(latest); }
  Vorn::Microseconds latest;
};

// What the driver sees. It crosses to the recorder's thread as plain values in a pipe, which keeps their
// order and never tears what is as small as this; so no object of the libraries is ever used by two threads.
struct Sighting {
  Kes::U64 time;  // microseconds
  Kes::U32 port, queue, qLen, drops;
};

void drive(int out, sockaddr_un const& address) {
  for (Sighting const& seen : {Sighting{10'000'000, 0, 3, 30'000, 0},
                               Sighting{10'000'800, 0, 3, 90'000, 0},   // 800 us later: the same congestion
                               Sighting{10'001'000, 1, 3, 150'000, 7},  // over the high threshold
                               Sighting{10'005'000, 0, 3, 40'000, 0}})  // 4,200 us later: a new one
    if (write(out, &seen, sizeof seen) < 0) perror("write");
  for (char const* const command : {"", "-iEt2 -d", "csv"}) {
    int const server = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(server, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) perror("connect");
    dprintf(server, "%s\n", command);
    std::string report;
    for (char c; read(server, &c, 1) == 1;) report += c;
    std::printf("--- \"%s\"\n%s", command, report.c_str());
    close(server);
  }
  close(out);
}

// A congestion is seen again and again while it lasts: what follows within a millisecond is one record.
void take(Sighting const& seen, Vorn::CongestionData& recorder, ChipClock& clock) {
  static Pylo::IntfId const ports[] = {Pylo::IntfId("Ethernet1"), Pylo::IntfId("Ethernet2")};
  clock.latest = Vorn::Microseconds(seen.time);
  if (!Vorn::isVornEnabled(recorder.vornConfig(), recorder.vornHwStatus())) return;
  auto const entry = Kes::makePtr<PortEntry>(seen.qLen, clock.latest, seen.drops);
  recorder.updateEntry(ports[seen.port], entry, Vorn::Microseconds(1000), seen.queue);
}

// A child has the history as it stands, and ten seconds for its client; nobody else waits for that one.
void answer(int client, Vorn::CongestionData& recorder) {
  if (client >= 0 && fork() == 0) {
    alarm(10);
    std::string command;
    for (char c; command.size() < 1024 && read(client, &c, 1) == 1 && c != '\n';) command += c;
    std::FILE* const stream = fdopen(client, "w");
    try {
      recorder.doMergeAndDumpEntries(stream, command, /*reportHeader=*/"", /*footer=*/"");
    } catch (std::exception const& fault) {
      writeLine(stream, "%s\n", fault.what());
    }
    _exit(std::fclose(stream));
  }
  close(client);
}

}  // namespace

int main() {
  // Threshold messages go to the system log unless a host takes them.
  Kes::logSinkIs([](Kes::LogHandle const& handle, Kes::String const& text) {
    std::printf("message: %s: %s\n", handle.name(), text.charPtr());
  });
  auto const clock = Kes::makePtr<ChipClock>();
  auto const status = Kes::makePtr<Vorn::Hardware::Status>();
  status->vornEnabledByDefaultIs(true);
  status->defHighThresholdIs(100'000);
  status->defLowThresholdIs(20'000);
  auto const config = Kes::makePtr<Vorn::Config>();
  config->logIntervalIs(1.0);
  auto const recorder =
      Kes::makePtr<Vorn::CongestionData>(status, clock, config, Kes::makePtr<PortMetaDataDumper>());
  std::signal(SIGCHLD, SIG_IGN);  // children that have ended leave nothing behind
  sockaddr_un const address{AF_UNIX, "embed.sock"};
  unlink(address.sun_path);
  int const listener = socket(AF_UNIX, SOCK_STREAM, 0);
  int ends[2];
  if (pipe(ends) != 0 || bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
      listen(listener, 16) != 0)
    return perror("embed"), 1;
  std::jthread const driver(drive, ends[1], address);
  pollfd watched[] = {{ends[0], POLLIN, 0}, {listener, POLLIN, 0}};
  // What the driver has told goes before what is asked; its end of the pipe ends it all.
  for (Sighting seen; poll(watched, 2, -1) > 0;) {
    if (watched[0].revents == 0)
      answer(accept(listener, nullptr, nullptr), *recorder);
    else if (read(ends[0], &seen, sizeof seen) == sizeof seen)
      take(seen, *recorder, *clock);
    else
      break;
  }
  unlink(address.sun_path);
}
