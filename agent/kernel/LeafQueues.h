#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "agent/kernel/QdiscDump.h"

namespace Agent {

// Which of the dumped disciplines are queues in which packets wait: the positions in `samples`, ascending.
//
// Only leaves of the tree are: the default or explicit queue of each htb class or mq slot, and a classless
// root. A parent that spreads packets over classes is left out, since its backlog is that of its leaves. A
// shaper around a single inner queue (tbf and its fifo) is one queue, seen from outside: the outer counters
// contain the inner ones and those drops that never reach the inner queue. What queues nothing (noqueue) or
// guards the way in (ingress, clsact) is left out, and so is what an interrupted dump shows a second time.
std::vector<std::size_t> leafQueues(std::span<QdiscSample const> samples);

}  // namespace Agent
