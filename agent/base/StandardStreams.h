// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace Agent {

// Gives descriptors 0 to 2 to /dev/null where they are closed, so that no socket or file that is opened later
// gets their numbers. Writing to such a one fails, as it would have.
void openClosedStandardStreams();

// Whoever reads standard error (a pager, a stopped terminal) must not stop the recording. From here on
// writing to it does not wait, in this process and in those it forks, while the terminal or pipe stays as it
// is for others that write to it.
void standardErrorNeverWaits();

// Writes a line, with or without its end, whole or not at all; as much of it as a pipe takes at once. False:
// there was no room.
bool writeToStandardError(std::string line);

}  // namespace Agent
