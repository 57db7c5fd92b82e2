#include "agent/ShowClient.h"

#include <sys/socket.h>

#include <cerrno>
#include <string_view>
#include <vector>

#include "agent/FileDescriptor.h"
#include "agent/Protocol.h"

namespace Agent {

namespace {

constexpr std::size_t blockBytes = 65536;

void sendRequest(int socket, std::string const& request) {
  std::string const line = std::string(Protocol::checkedWord) + ' ' + request + '\n';
  for (std::string_view rest = line; !rest.empty();) {
    ssize_t const sent = ::send(socket, rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno != EINTR) throwErrno("sending the request");
    if (sent > 0) rest.remove_prefix(static_cast<std::size_t>(sent));
  }
}

// 0 at the end of the answer, however the connection ended.
std::size_t receive(int socket, std::vector<char>& block, bool begun) {
  for (;;) {
    ssize_t const got = ::recv(socket, block.data(), block.size(), 0);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno == EINTR) continue;
    if (begun || errno == ECONNRESET) return 0;
    throwErrno("waiting for the report");
  }
}

}  // namespace

std::optional<std::string> fetchReport(int socket, ShowCommand const& command, ReportFilter::Output output) {
  ReportFilter filter(command.form, std::move(output));
  sendRequest(socket, command.request);
  std::vector<char> block(blockBytes);
  bool begun = false;
  bool inVerdict = false;
  std::string verdict;
  while (std::size_t const got = receive(socket, block, begun)) {
    begun = true;
    std::string_view news(block.data(), got);
    if (!inVerdict) {
      std::size_t const mark = news.find(Protocol::verdictMark);
      filter.take(news.substr(0, mark));
      inVerdict = mark != std::string_view::npos;
      news.remove_prefix(inVerdict ? mark + 1 : news.size());
    }
    verdict.append(news);
  }
  filter.finish();
  if (!verdict.ends_with('\n')) return std::nullopt;
  verdict.pop_back();
  return verdict == Protocol::wholeVerdict ? std::string() : verdict;
}

}  // namespace Agent
