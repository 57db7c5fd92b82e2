#include "agent/kernel/LeafQueues.h"

#include <linux/pkt_sched.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace Agent {

namespace {

using Group = std::span<QdiscSample const>;  // one interface's disciplines

std::string_view kindOf(QdiscId const& id) { return id.kind.data(); }

// Disciplines that hold exactly one inner queue and count it as their own.
bool isWrapper(QdiscId const& id) {
  constexpr std::array<std::string_view, 4> wrappers = {"tbf", "red", "sfb", "cbs"};
  return std::find(wrappers.begin(), wrappers.end(), kindOf(id)) != wrappers.end();
}

// A default leaf has handle 0 and no children; of those with handle 0 only a root (the default mq) has.
bool isChild(QdiscId const& child, QdiscId const& of) {
  if (of.handle == 0 && of.parent != TC_H_ROOT) return false;
  return child.parent != TC_H_ROOT && TC_H_MAJ(child.parent) == TC_H_MAJ(of.handle);
}

// Whether packets wait in this discipline as in one queue. The depth bounds the walk through wrappers,
// whatever loops a torn dump may seem to have.
bool isOneQueue(Group group, QdiscId const& id, int depth) {
  auto const child =
      std::find_if(group.begin(), group.end(), [&](auto const& s) { return isChild(s.id, id); });
  if (child == group.end()) return true;
  return depth > 0 && isWrapper(id) && isOneQueue(group, child->id, depth - 1);
}

bool isReported(Group group, std::size_t position) {
  constexpr int deepest = 8;
  QdiscId const& id = group[position].id;
  if (kindOf(id) == "noqueue" || id.parent == TC_H_INGRESS) return false;
  if (!isOneQueue(group, id, deepest)) return false;
  for (std::size_t i = 0; i < group.size(); ++i) {
    if (i < position && group[i].id.parent == id.parent) return false;
    if (isChild(id, group[i].id) && isOneQueue(group, group[i].id, deepest)) return false;
  }
  return true;
}

}  // namespace

std::vector<std::size_t> leafQueues(std::span<QdiscSample const> samples) {
  std::vector<std::size_t> leaves;
  for (std::size_t begin = 0; begin < samples.size();) {
    std::size_t end = begin + 1;
    while (end < samples.size() && samples[end].id.ifindex == samples[begin].id.ifindex) ++end;
    Group const group = samples.subspan(begin, end - begin);
    for (std::size_t i = 0; i < group.size(); ++i)
      if (isReported(group, i)) leaves.push_back(begin + i);
    begin = end;
  }
  return leaves;
}

}  // namespace Agent
