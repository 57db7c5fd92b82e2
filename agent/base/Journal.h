#pragma once

#include <string>

namespace Agent {

// Where the agent's messages go: the system log, and a copy to standard error for an agent that runs in the
// foreground. The copy is left out while standard error takes nothing (a pager that is not read, a stopped
// terminal): it must not stop the recording. The recorder's threshold messages take the same way.
void openJournal(bool copyToStandardError);

// One message, at a priority of syslog(3).
void note(int priority, std::string const& text);

}  // namespace Agent
