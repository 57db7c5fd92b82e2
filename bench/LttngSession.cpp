#include "bench/LttngSession.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "bench/LttngTracepoint.h"
#include "bench/Workload.h"

namespace Bench {

namespace {

namespace fs = std::filesystem;

// A program of the path without input and output; 127 is its exit status when there is none.
pid_t start(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t const child = fork();
  if (child != 0) return child;
  int const null = open("/dev/null", O_RDWR);
  for (int const stream : {0, 1, 2}) dup2(null, stream);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

int run(std::vector<std::string> words) {
  pid_t const child = start(std::move(words));
  int status = -1;
  if (child == -1 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

// Whether it comes true within some seconds.
template <class Condition>
bool within(std::chrono::seconds time, Condition condition) {
  auto const end = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

}  // namespace

LttngSession::LttngSession() : name_("vorn-bench-" + std::to_string(getpid())) {
  directory_ = fs::temp_directory_path() / name_;
  fs::create_directory(directory_);
  try {
    startDaemon();
    startSession();
  } catch (...) {
    end();
    throw;
  }
}

LttngSession::~LttngSession() { end(); }

void LttngSession::startDaemon() {
  // Without --no-sessiond the client would start a daemon that outlives it.
  int const listed = run({"lttng", "--no-sessiond", "list"});
  if (listed == 127) throw Skipped("lttng is not installed");
  if (listed == 0) return;
  daemon_ = start({"lttng-sessiond"});
  bool const answers = within(std::chrono::seconds(5), [] {
    return run({"lttng", "--no-sessiond", "list"}) == 0;
  });
  if (!answers) throw Skipped("no session daemon can be started");
}

void LttngSession::startSession() const {
  std::vector<std::vector<std::string>> const steps = {
      {"lttng", "--no-sessiond", "create", name_, "--snapshot", "--output=" + directory_.string()},
      {"lttng", "--no-sessiond", "enable-channel", "-s", name_, "--userspace", "--overwrite",
       "--num-subbuf=4", "--subbuf-size=4M", "records"},
      {"lttng", "--no-sessiond", "enable-event", "-s", name_, "--userspace", "-c", "records",
       "vorn_bench:congestion"},
      {"lttng", "--no-sessiond", "start", name_}};
  for (auto const& step : steps)
    if (run(step) != 0) throw Skipped("\"lttng " + step[2] + "\" fails");
  if (!within(std::chrono::seconds(5), [] { return congestionTraced(); }))
    throw Skipped("the session does not reach this process");
}

std::string LttngSession::snapshot() const {
  if (run({"lttng", "--no-sessiond", "snapshot", "record", "-s", name_}) != 0)
    throw std::runtime_error("\"lttng snapshot record\" fails");
  std::string bytes;
  for (auto const& entry : fs::recursive_directory_iterator(directory_)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    bytes.append(std::istreambuf_iterator<char>(file), {});
  }
  return bytes;
}

void LttngSession::end() {
  run({"lttng", "--no-sessiond", "destroy", name_});
  if (daemon_ > 0) {
    kill(daemon_, SIGTERM);
    waitpid(daemon_, nullptr, 0);
  }
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

}  // namespace Bench
