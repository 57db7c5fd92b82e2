// SPDX-License-Identifier: Apache-2.0
// vorn-traffic: sends packets by a plan, and tells when each of them entered and left the queue.
//
// The plan is read from standard input, a line a group of equal packets: when to send it, in microseconds
// from the first one on, how many packets, of how many bytes of payload, and by which flow. Each flow has a
// source port of its own. With --stamps the kernel is asked when it gave each packet to the queueing
// discipline and when it gave it to the device: the two moments between which the packet was in the queue,
// whatever anybody else has seen of it. For each packet one line goes to standard output: the number of its
// group, then both moments in nanoseconds since 1970. The second is 0 where the packet never left: it was
// dropped. With --flood there is no plan.

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <linux/net_tstamp.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

constexpr unsigned atOnce = 64;
constexpr std::uint16_t discardPort = 9;
constexpr unsigned firstPort = 20000;

// Silence that is long enough to read stamps in, for all that was sent before it to have left, and for the
// reading to be over in time.
constexpr auto longSilence = 4ms;
constexpr auto readBefore = 1500us;

// What a socket may have under way, and what of stamps may wait to be read.
constexpr int socketBytes = 400'000'000;

[[noreturn]] void fail(char const* what) { throw std::system_error(errno, std::generic_category(), what); }

struct Group {
  std::int64_t offset = 0;
  unsigned packets = 0;
  unsigned payload = 0;
  unsigned flow = 0;
};

struct Packet {
  std::size_t group = 0;
  std::int64_t enter = 0;
  std::int64_t inside = 0;
  std::int64_t leave = 0;
};

std::int64_t wallTime() {
  return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

class Flow {
 public:
  Flow(in_addr to, unsigned number, bool stamped) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (fd_ < 0) fail("socket");
    // No stamp may be lost for want of room, and sending never waits for the queue.
    set(SO_SNDBUFFORCE, socketBytes);
    set(SO_RCVBUFFORCE, socketBytes);
    if (stamped)
      set(SO_TIMESTAMPING, SOF_TIMESTAMPING_TX_SCHED | SOF_TIMESTAMPING_TX_SOFTWARE |
                               SOF_TIMESTAMPING_SOFTWARE | SOF_TIMESTAMPING_OPT_ID |
                               SOF_TIMESTAMPING_OPT_TSONLY);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(firstPort + number));
    if (bind(fd_, reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0) fail("bind");
    address.sin_port = htons(discardPort);
    address.sin_addr = to;
    if (connect(fd_, reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0) fail("connect");
  }
  Flow(Flow&& other) noexcept : packets_(std::move(other.packets_)), fd_(std::exchange(other.fd_, -1)) {}
  Flow(Flow const&) = delete;
  Flow& operator=(Flow const&) = delete;
  Flow& operator=(Flow&&) = delete;
  ~Flow() {
    if (fd_ >= 0) close(fd_);
  }

  // The packets become number `first` and those behind it.
  void send(std::vector<char>& payload, unsigned bytes, unsigned packets, std::size_t first) {
    for (unsigned n = 0; n < packets; ++n) packets_.push_back(first + n);
    send(payload, bytes, packets);
  }

  void send(std::vector<char>& payload, unsigned bytes, unsigned packets) {
    iovec data{payload.data(), bytes};
    std::array<mmsghdr, atOnce> messages{};
    for (mmsghdr& message : messages) {
      message.msg_hdr.msg_iov = &data;
      message.msg_hdr.msg_iovlen = 1;
    }
    for (unsigned sent = 0; sent < packets;) {
      int const n = sendmmsg(fd_, messages.data(), std::min(packets - sent, atOnce), 0);
      if (n < 0 && errno != EINTR) fail("sendmmsg");
      if (n > 0) sent += static_cast<unsigned>(n);
    }
  }

  // Reads the stamps that are there. Returns how many.
  std::size_t readStamps(std::vector<Packet>& packets) {
    std::array<mmsghdr, atOnce> messages{};
    alignas(cmsghdr) std::array<std::array<char, 256>, atOnce> control{};
    std::size_t read = 0;
    for (;;) {
      for (unsigned i = 0; i < atOnce; ++i) {
        messages[i].msg_hdr.msg_control = control[i].data();
        messages[i].msg_hdr.msg_controllen = control[i].size();
      }
      int const n = recvmmsg(fd_, messages.data(), atOnce, MSG_ERRQUEUE | MSG_DONTWAIT, nullptr);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno != EAGAIN) fail("recvmmsg");
      if (n <= 0) return read;
      for (int i = 0; i < n; ++i) note(messages[static_cast<unsigned>(i)].msg_hdr, packets);
      read += static_cast<std::size_t>(n);
    }
  }

 private:
  void set(int option, int value) const {
    if (setsockopt(fd_, SOL_SOCKET, option, &value, sizeof value) < 0) fail("setsockopt");
  }

  void note(msghdr& message, std::vector<Packet>& packets) const {
    scm_timestamping stamps{};
    sock_extended_err what{};
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
      if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPING)
        std::memcpy(&stamps, CMSG_DATA(part), sizeof stamps);
      else if (part->cmsg_level == SOL_IP && part->cmsg_type == IP_RECVERR)
        std::memcpy(&what, CMSG_DATA(part), sizeof what);
    }
    if (what.ee_origin != SO_EE_ORIGIN_TIMESTAMPING || what.ee_data >= packets_.size()) return;
    Packet& packet = packets[packets_[what.ee_data]];
    std::int64_t const nanoseconds = stamps.ts[0].tv_sec * 1'000'000'000 + stamps.ts[0].tv_nsec;
    (what.ee_info == SCM_TSTAMP_SCHED ? packet.enter : packet.leave) = nanoseconds;
  }

  std::vector<std::size_t> packets_{};  // by the number that the kernel gave them in this socket
  int fd_;
};

std::vector<Group> readPlan() {
  std::vector<Group> plan;
  for (Group group; std::cin >> group.offset >> group.packets >> group.payload >> group.flow;)
    plan.push_back(group);
  if (!std::cin.eof())
    throw std::runtime_error("group " + std::to_string(plan.size()) + " of the plan is unreadable");
  return plan;
}

// A plan under way. Its flows are dealt out to threads: one processor alone may be no faster than the link.
class Sending {
 public:
  Sending(std::vector<Group> plan, in_addr to, bool stamped) : plan_(std::move(plan)), stamped_(stamped) {
    unsigned flows = 0;
    for (std::size_t i = 0; i < plan_.size(); ++i) {
      flows = std::max(flows, plan_[i].flow + 1);
      longest_ = std::max(longest_, plan_[i].payload);
      firsts_.push_back(packets_.size());
      packets_.resize(packets_.size() + plan_[i].packets, Packet{i, 0, 0, 0});
    }
    for (unsigned i = 0; i < flows; ++i) flows_.emplace_back(to, i, stamped);
  }

  void run(unsigned threads) {
    auto const begin = Steady::now() + 10ms;
    std::vector<std::thread> running;
    for (unsigned i = 0; i < threads; ++i)
      running.emplace_back([this, i, threads, begin] { runShare(i, threads, begin); });
    for (std::thread& thread : running) thread.join();
    if (!stamped_) return;
    // Until nothing more comes.
    do std::this_thread::sleep_for(300ms);
    while (readStamps(0, 1) > 0);
  }

  void print() const {
    for (std::size_t i = 0; i < packets_.size(); ++i) {
      Packet const& packet = packets_[i];
      // And before the next one of its group is sent.
      std::printf("%zu %jd %jd %jd\n", packet.group, static_cast<std::intmax_t>(packet.enter),
                  static_cast<std::intmax_t>(packet.inside != 0 ? packet.inside : packets_[i + 1].enter),
                  static_cast<std::intmax_t>(packet.leave));
    }
  }

 private:
  void runShare(unsigned share, unsigned threads, Steady::time_point begin) {
    std::vector<char> payload(longest_);
    for (std::size_t i = 0; i < plan_.size(); ++i) {
      Group const& group = plan_[i];
      if (group.flow % threads != share) continue;
      auto const due = begin + std::chrono::microseconds(group.offset);
      if (stamped_ && due - Steady::now() > longSilence) {
        std::this_thread::sleep_until(due - readBefore);
        readStamps(share, threads);
      }
      std::this_thread::sleep_until(due);
      flows_[group.flow].send(payload, group.payload, group.packets, firsts_[i]);
      // The last one has entered before the call returns.
      if (group.packets > 0) packets_[firsts_[i] + group.packets - 1].inside = wallTime();
    }
  }

  std::size_t readStamps(unsigned share, unsigned threads) {
    std::size_t read = 0;
    for (std::size_t i = share; i < flows_.size(); i += threads) read += flows_[i].readStamps(packets_);
    return read;
  }

  std::vector<Group> const plan_;
  bool const stamped_;
  unsigned longest_ = 0;
  std::vector<std::size_t> firsts_{};  // packets of the groups
  std::vector<Packet> packets_{};
  std::vector<Flow> flows_{};
};

// As many packets as one processor can send. Prints how many a second, and the nanoseconds of processor time
// that each took this process.
void flood(double seconds, unsigned payloadBytes, in_addr to) {
  Flow flow(to, 0, false);
  std::vector<char> payload(payloadBytes);
  auto const begin = Steady::now();
  auto const end =
      begin + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(seconds));
  std::uint64_t packets = 0;
  for (; Steady::now() < end; packets += atOnce) flow.send(payload, payloadBytes, atOnce);
  rusage use{};
  getrusage(RUSAGE_SELF, &use);
  double const own = static_cast<double>(use.ru_utime.tv_sec + use.ru_stime.tv_sec) * 1e9 +
                     static_cast<double>(use.ru_utime.tv_usec + use.ru_stime.tv_usec) * 1e3;
  std::chrono::duration<double> const took = Steady::now() - begin;
  std::printf("%.0f %.1f\n", static_cast<double>(packets) / took.count(), own / static_cast<double>(packets));
}

}  // namespace

int main(int argc, char** argv) {
  std::string address;
  bool stamped = false;
  unsigned threads = 1;
  double floodSeconds = 0;
  unsigned floodPayload = 64;
  CLI::App app(
      "Sends UDP by a plan on standard input, and tells when each packet entered and left the queue.",
      "vorn-traffic");
  app.add_option("--to", address, "IPv4 address beyond the link")->required();
  app.add_flag("--stamps", stamped, "Print when each packet entered and left the queue (root)");
  app.add_option("--threads", threads, "That send at a time; each has its share of the flows")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--flood", floodSeconds, "Send for so many seconds what one processor can, without a plan")
      ->check(CLI::Range(0.01, 1e4));
  app.add_option("--payload", floodPayload, "Bytes of payload in a packet of the flood")
      ->check(CLI::Range(1, 1472))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    in_addr to{};
    if (inet_pton(AF_INET, address.c_str(), &to) != 1)
      throw std::runtime_error("\"" + address + "\" is no IPv4 address");
    if (floodSeconds > 0) {
      flood(floodSeconds, floodPayload, to);
    } else {
      Sending sending(readPlan(), to, stamped);
      sending.run(threads);
      if (stamped) sending.print();
    }
  } catch (std::exception const& error) {
    std::fprintf(stderr, "vorn-traffic: %s\n", error.what());
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
