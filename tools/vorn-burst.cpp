// SPDX-License-Identifier: Apache-2.0
// vorn-burst: puts bursts of known length onto a link.
//
// A burst is as much UDP as the link takes the given time to send, handed to the kernel at once, so that it
// stands in the egress queue and drains at the link's rate. Nobody needs to listen at the other end. Of a
// fast link much is gone before the last datagram is handed over, unless all go in one piece (--whole).
//
// For each burst one line goes to standard output: when it was sent and when its last packet should have
// left, in microseconds since 1970, then datagrams and bytes on the wire.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// Ethernet, IPv4 and UDP headers in front of the payload, as the queue counts them.
constexpr unsigned headerBytes = 14 + 20 + 8;

// What one socket may have under way: few enough to fit the send buffer that any process gets. A longer burst
// is spread over several sockets; a single one would block until the queue has drained by half.
constexpr unsigned datagramsPerSocket = 64;

// What the kernel takes in one piece, as one packet that it cuts up itself.
constexpr std::size_t pieceBytes = 65'507;

constexpr std::uint16_t discardPort = 9;

struct Options {
  std::string address;
  double rateMbit = 100;
  double durationMs = 5;
  unsigned count = 1;
  double gapMs = 50;
  unsigned payloadBytes = 1472;
  std::string trafficClass;
  bool whole = false;
};

[[noreturn]] void fail(char const* what) { throw std::system_error(errno, std::generic_category(), what); }

// "1:10" as the kernel numbers it; both halves are hexadecimal.
int priorityOf(std::string const& trafficClass) {
  unsigned major = 0;
  unsigned minor = 0;
  char rest = 0;
  if (std::sscanf(trafficClass.c_str(), "%4x:%4x%c", &major, &minor, &rest) != 2)
    throw CLI::ValidationError("--class", "\"" + trafficClass + "\" is not of the form MAJOR:MINOR");
  return static_cast<int>(major << 16 | minor);
}

class Socket {
 public:
  explicit Socket(Options const& options) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (fd_ < 0) fail("socket");
    if (!options.trafficClass.empty()) {
      int const priority = priorityOf(options.trafficClass);
      if (setsockopt(fd_, SOL_SOCKET, SO_PRIORITY, &priority, sizeof priority) < 0) fail("SO_PRIORITY");
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(discardPort);
    if (inet_pton(AF_INET, options.address.c_str(), &to.sin_addr) != 1)
      throw CLI::ValidationError("--to", "\"" + options.address + "\" is no IPv4 address");
    int const size = static_cast<int>(options.payloadBytes);
    if (options.whole && setsockopt(fd_, SOL_UDP, UDP_SEGMENT, &size, sizeof size) < 0) fail("UDP_SEGMENT");
    if (connect(fd_, reinterpret_cast<sockaddr const*>(&to), sizeof to) < 0) fail("connect");
  }
  Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Socket(Socket const&) = delete;
  Socket& operator=(Socket const&) = delete;
  Socket& operator=(Socket&&) = delete;
  ~Socket() {
    if (fd_ >= 0) close(fd_);
  }

  void sendWhole(std::vector<char> const& payload) {
    if (::send(fd_, payload.data(), payload.size(), 0) < 0) fail("send");
  }

  void send(std::vector<char>& payload, unsigned datagrams) {
    iovec data{payload.data(), payload.size()};
    std::array<mmsghdr, datagramsPerSocket> messages{};
    for (mmsghdr& message : messages) {
      message.msg_hdr.msg_iov = &data;
      message.msg_hdr.msg_iovlen = 1;
    }
    for (unsigned sent = 0; sent < datagrams;) {
      int const n = sendmmsg(fd_, messages.data() + sent, datagrams - sent, 0);
      if (n < 0 && errno != EINTR) fail("sendmmsg");
      if (n > 0) sent += static_cast<unsigned>(n);
    }
  }

 private:
  int fd_;
};

std::int64_t microseconds(std::chrono::system_clock::time_point when) {
  return std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
}

void sendBursts(Options const& options) {
  double const frameBytes = options.payloadBytes + headerBytes;
  double const burstBytes = options.durationMs * options.rateMbit * 1e6 / 8 / 1e3;
  auto const datagrams = std::max(1U, static_cast<unsigned>(std::lround(burstBytes / frameBytes)));
  std::chrono::duration<double, std::milli> const duration(options.durationMs);
  std::chrono::duration<double, std::milli> const gap(options.gapMs);

  std::vector<char> payload(options.payloadBytes * (options.whole ? datagrams : 1));
  if (options.whole && (payload.size() > pieceBytes || datagrams > datagramsPerSocket))
    throw CLI::ValidationError("--whole", std::to_string(datagrams) + " datagrams are too many");
  std::vector<Socket> sockets;
  for (unsigned n = 0; n < datagrams; n += datagramsPerSocket) sockets.emplace_back(options);

  for (unsigned burst = 0; burst < options.count; ++burst) {
    auto const start = std::chrono::system_clock::now();
    unsigned left = datagrams;
    for (Socket& socket : sockets) {
      unsigned const n = std::min(left, datagramsPerSocket);
      if (options.whole)
        socket.sendWhole(payload);
      else
        socket.send(payload, n);
      left -= n;
    }
    auto const end = start + std::chrono::duration_cast<std::chrono::microseconds>(duration);
    std::printf("%jd %jd %u %.0f\n", static_cast<std::intmax_t>(microseconds(start)),
                static_cast<std::intmax_t>(microseconds(end)), datagrams, datagrams * frameBytes);
    std::fflush(stdout);
    std::this_thread::sleep_for(duration + gap);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Puts bursts of known length onto a link, as UDP to the discard port.", "vorn-burst");
  app.add_option("--to", options.address, "IPv4 address beyond the link")->required();
  app.add_option("--rate-mbit", options.rateMbit, "What the link sends, in Mbit/s")
      ->check(CLI::Range(0.01, 1e6))
      ->capture_default_str();
  app.add_option("--duration-ms", options.durationMs, "Time the link takes for one burst")
      ->check(CLI::Range(0.01, 1e4))
      ->capture_default_str();
  app.add_option("--count", options.count, "Number of bursts")->capture_default_str();
  app.add_option("--gap-ms", options.gapMs, "Silence behind each burst")
      ->check(CLI::Range(0.0, 1e5))
      ->capture_default_str();
  app.add_option("--payload", options.payloadBytes, "Bytes of payload in a datagram")
      ->check(CLI::Range(1, 1472))
      ->capture_default_str();
  app.add_option("--class", options.trafficClass, "Traffic class to send in, such as 1:10");
  app.add_flag("--whole", options.whole,
               "Hand over a burst as one packet, which the kernel cuts up: up to 64 kB");
  CLI11_PARSE(app, argc, argv);
  try {
    sendBursts(options);
  } catch (CLI::Error const& error) {
    return app.exit(error);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "vorn-burst: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
