// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// What vorn-agent and its clients agree on.
//
// A client connects to the agent's Unix stream socket and sends one request, a line of at most 4 KiB. The
// agent answers and closes the connection. The request is the recorder's option vocabulary ("-iEt1,Et2 -t30
// csv"; an empty line asks for the whole history), or one of the agent's own:
//
//   status [--json]             what the agent itself is doing
//   metrics [--classic]         what bursts add up to, and the agent's health, as OpenMetrics; the older text
//   query REPORT NAME=VALUE...  a report of the history (agent/query/Query.h)
//   follow                      records as they close, until the client goes away (see below)
//   save                        the whole history, as docs/history-format.md has it
//   config                      the configuration in force, and where each value came from
//   types [--json]              every registered type
//   type NAME [--json]          one type's attributes
//   get [--json] [--depth=N | --all] [PATH]    a value, an object or a collection by name
//   set PATH VALUE              (root and the agent's own user)
//   call PATH(NAME=VALUE, ...)  (the same)
//
// So a bare client is enough:
//
//   echo -s5 | socat - UNIX-CONNECT:/run/vorn/agent.sock
//
// What follows is sent as comma-separated lines: the names of the fields first, then a line for each burst
// that has closed, as in that form of a report, and "skipped,N" where a client has read so slowly that it
// missed N of them. Its answer ends with the client, or with the agent.
//
// With the word "checked" in front of the request, a verdict follows the report: a NUL byte, then one line,
// "ok" for a whole report or else the reason in plain words. No report holds a NUL byte; in a saved history
// there are many, so the last one of the answer is the mark. A connection that
// ends without a verdict broke. A client that did not ask for the verdict gets the reason of a failure as a
// last line of its own.
namespace Agent::Protocol {

// Of a request, without its newline.
inline constexpr std::size_t maxRequestBytes = 4096;

// No option text of the vocabulary occurs in it; the agent takes it off before the recorder sees the command.
inline constexpr std::string_view checkedWord = "checked";
inline constexpr std::string_view statusRequest = "status";
inline constexpr std::string_view jsonStatusRequest = "status --json";
inline constexpr std::string_view metricsRequest = "metrics";
inline constexpr std::string_view classicMetricsRequest = "metrics --classic";
inline constexpr std::string_view followRequest = "follow";
// In the place of records that a follower missed; their number follows.
inline constexpr std::string_view skippedWord = "skipped";
inline constexpr std::string_view saveRequest = "save";
inline constexpr std::string_view configRequest = "config";

inline constexpr char verdictMark = '\0';
inline constexpr std::string_view wholeVerdict = "ok";

// A line as it was sent, without the blanks around it.
std::string_view requestIn(std::string_view line);

// Where an agent of the system, and one of the current user, listens: /run/vorn/agent.sock, and vorn.sock in
// the directory that $XDG_RUNTIME_DIR names (empty if it names none).
inline constexpr char const* systemSocketPath = "/run/vorn/agent.sock";
std::string userSocketPath();

// The agent's default: the system's path for root, the user's own path for others.
std::string defaultSocketPath();

}  // namespace Agent::Protocol
