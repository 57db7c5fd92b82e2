// SPDX-License-Identifier: Apache-2.0
#include "agent/show/Terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <string_view>

namespace Agent {

namespace {

std::string_view variable(char const* name) {
  char const* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

Terminal Terminal::ofStandardOutput() {
  Terminal terminal;
  winsize size{};
  terminal.isTerminal = ::isatty(STDOUT_FILENO) != 0;
  if (terminal.isTerminal && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) {
    terminal.columns = size.ws_col;
    terminal.lines = size.ws_row;
  }
  unsigned long const asked = std::strtoul(variable("COLUMNS").data(), nullptr, 10);
  if (constexpr unsigned long widest = 10'000; asked != 0 && asked <= widest)
    terminal.columns = static_cast<std::uint32_t>(asked);
  terminal.colour = terminal.isTerminal && variable("NO_COLOR").empty() && variable("TERM") != "dumb";
  std::setlocale(LC_CTYPE, "");
  terminal.ascii = std::string_view(::nl_langinfo(CODESET)) != "UTF-8";
  return terminal;
}

}  // namespace Agent
