#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace Bench {

// A snapshot session that records vorn_bench:congestion into overwriting buffers of 16 MiB a processor. It
// uses the session daemon that runs, or one of its own; what it started ends with it.
class LttngSession {
 public:
  // Skipped, with the reason, where no session is to be had.
  LttngSession();
  ~LttngSession();
  LttngSession(LttngSession const&) = delete;
  LttngSession& operator=(LttngSession const&) = delete;

  // Writes what the buffers hold, and returns it as the bytes of all its files.
  std::string snapshot() const;

 private:
  void startDaemon();
  void startSession() const;
  void end();

  std::filesystem::path directory_;
  std::string name_;
  pid_t daemon_ = -1;
};

}  // namespace Bench
