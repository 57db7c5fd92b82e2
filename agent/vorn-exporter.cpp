// SPDX-License-Identifier: Apache-2.0
// vorn-exporter: serves what the agent tells of its metrics over HTTP, to a monitoring system that asks.

#include <fcntl.h>
#include <microhttpd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "agent/base/Printable.h"
#include "agent/base/Protocol.h"
#include "agent/base/StandardStreams.h"
#include "agent/export/AcceptedForm.h"
#include "agent/export/ListenAddress.h"
#include "agent/show/ShowClient.h"

namespace {

// Who asks for metrics waits ten seconds as a rule, so what takes longer is of no use to anybody.
constexpr int patienceSeconds = 8;
constexpr unsigned connectionSeconds = 10;

// An agent that does not answer holds up a thread; the others still tell so.
constexpr unsigned threads = 4;
constexpr unsigned mostConnections = 32;
constexpr unsigned mostOfAnAddress = 8;  // so that nobody takes them all

constexpr char const* plainText = "text/plain; charset=utf-8";

struct Page {
  unsigned status;
  std::string type;
  std::string text;
};

Page metricsPage(std::string socketPath, std::string_view accept) {
  bool const open = Agent::acceptedForm(accept) == Agent::MetricsForm::openMetrics;
  auto const request = open ? Agent::Protocol::metricsRequest : Agent::Protocol::classicMetricsRequest;
  std::string text;
  std::string fault;
  try {
    auto const socket = Agent::connectToAgent(socketPath, patienceSeconds);
    Agent::AnswerEnd const end = Agent::fetchBytes(socket.get(), std::string(request), text);
    if (end.kind != Agent::AnswerEnd::Kind::whole) fault = end.text;
  } catch (std::exception const& error) {
    fault = std::string("cannot reach the agent: ") + error.what();
  }
  if (!fault.empty())
    return {MHD_HTTP_SERVICE_UNAVAILABLE, plainText, "vorn-exporter: " + Agent::printable(fault) + '\n'};
  return {MHD_HTTP_OK,
          open ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
               : "text/plain; version=0.0.4; charset=utf-8",
          std::move(text)};
}

Page pageFor(std::string const& socketPath, std::string_view method, std::string_view path,
             std::string_view accept) {
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD)
    return {MHD_HTTP_METHOD_NOT_ALLOWED, plainText, "only GET and HEAD\n"};
  if (path == "/metrics") return metricsPage(socketPath, accept);
  if (path == "/") {
    return {MHD_HTTP_OK, "text/html; charset=utf-8",
            "<!DOCTYPE html>\n<html lang=\"en\"><title>vorn-exporter</title>\n"
            "<p>Queue congestion of this machine: <a href=\"/metrics\">metrics</a></html>\n"};
  }
  return {MHD_HTTP_NOT_FOUND, plainText, "there is only /metrics\n"};
}

// What a header that may come several times says in all.
std::string headerOf(MHD_Connection* connection, char const* name) {
  struct Sought {
    char const* name;
    std::string text{};
  } sought{name};
  auto const collect = [](void* cookie, MHD_ValueKind, char const* key, char const* value) {
    auto& into = *static_cast<Sought*>(cookie);
    if (value != nullptr && ::strcasecmp(key, into.name) == 0) into.text.append(value).append(",");
    return MHD_YES;
  };
  MHD_get_connection_values(connection, MHD_HEADER_KIND, collect, &sought);
  return sought.text;
}

// Called by the library's threads; nothing may be thrown through them. A connection that gets no page is
// closed.
MHD_Result handleRequest(void* cookie, MHD_Connection* connection, char const* path, char const* method,
                         char const*, char const*, std::size_t*, void**) {
  try {
    Page const page = pageFor(*static_cast<std::string const*>(cookie), method, path,
                              headerOf(connection, MHD_HTTP_HEADER_ACCEPT));
    MHD_Response* const response = MHD_create_response_from_buffer(
        page.text.size(), const_cast<char*>(page.text.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, page.type.c_str());
    MHD_add_response_header(response, MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT);
    if (page.status == MHD_HTTP_METHOD_NOT_ALLOWED)
      MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    MHD_Result const result = MHD_queue_response(connection, page.status, response);
    MHD_destroy_response(response);
    return result;
  } catch (std::exception const&) {
    return MHD_NO;
  }
}

// Until a signal says that it is enough.
void serve(std::string const& address, std::string socketPath) {
  sigset_t enough;
  ::sigemptyset(&enough);
  for (int const signal : {SIGTERM, SIGINT, SIGQUIT, SIGHUP}) ::sigaddset(&enough, signal);
  ::sigprocmask(SIG_BLOCK, &enough, nullptr);  // before there are other threads
  std::signal(SIGPIPE, SIG_IGN);
  Agent::FileDescriptor const listening = Agent::listenAt(address);
  // The library closes the one that it gets.
  int const taken = ::fcntl(listening.get(), F_DUPFD_CLOEXEC, 0);
  if (taken < 0) Agent::throwErrno("fcntl");
  std::unique_ptr<MHD_Daemon, decltype(&MHD_stop_daemon)> const daemon(
      MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD, 0, nullptr, nullptr, &handleRequest, &socketPath,
                       MHD_OPTION_LISTEN_SOCKET, taken, MHD_OPTION_THREAD_POOL_SIZE, threads,
                       MHD_OPTION_CONNECTION_LIMIT, mostConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
                       mostOfAnAddress, MHD_OPTION_CONNECTION_TIMEOUT, connectionSeconds, MHD_OPTION_END),
      &MHD_stop_daemon);
  if (daemon == nullptr) throw std::runtime_error("the HTTP server cannot be started");
  std::fprintf(stderr, "vorn-exporter: serving http://%s/metrics\n", address.c_str());
  int signal = 0;
  ::sigwait(&enough, &signal);
}

}  // namespace

int main(int argc, char** argv) {
  Agent::openClosedStandardStreams();
  std::string address = "127.0.0.1:9753";
  std::string socketPath;
  CLI::App app("Serves what vorn-agent knows of queue congestion as metrics over HTTP, at /metrics.",
               "vorn-exporter");
  app.set_version_flag("--version", "vorn-exporter " VORN_VERSION);
  app.add_option("--listen", address, "Where to serve; [::]:9753 is at all addresses")
      ->type_name("ADDRESS:PORT")
      ->capture_default_str();
  app.add_option(
         "--socket", socketPath,
         "Default: $XDG_RUNTIME_DIR/vorn.sock, else " + std::string(Agent::Protocol::systemSocketPath))
      ->type_name("PATH");
  try {
    app.parse(argc, argv);
    serve(address, socketPath);
    return 0;
  } catch (CLI::ParseError const& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    std::fprintf(stderr, "vorn-exporter: %s; --help tells more\n", error.what());
    return 2;
  } catch (std::exception const& error) {
    std::fprintf(stderr, "vorn-exporter: %s\n", error.what());
    return 1;
  }
}
