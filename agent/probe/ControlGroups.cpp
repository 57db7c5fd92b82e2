// SPDX-License-Identifier: Apache-2.0
#include "agent/probe/ControlGroups.h"

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <system_error>

namespace Agent {

namespace {

namespace files = std::filesystem;

constexpr Kes::U64 costShare = 20;

// More than any machine has.
constexpr std::size_t mostGroups = 100'000;

// The second, where the first hierarchy is one of version 1.
constexpr char const* roots[] = {"/sys/fs/cgroup/unified", "/sys/fs/cgroup"};

Kes::U64 microseconds() {
  auto const now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<Kes::U64>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace

std::string const& ControlGroups::path(Kes::U64 number) {
  static std::string const none;
  if (number == 0) return none;
  auto found = paths_.find(number);
  if (found == paths_.end() && microseconds() >= readAgain_) {
    Kes::U64 const before = microseconds();
    readAll();
    Kes::U64 const now = microseconds();
    readAgain_ = now + costShare * (now - before);
    paths_.try_emplace(number);  // not to be looked for at every turn
    found = paths_.find(number);
  }
  return found == paths_.end() ? none : found->second;
}

// The number of a group is that of its directory's inode.
void ControlGroups::readAll() {
  paths_.clear();
  for (files::path const root : roots) {
    std::error_code failure;
    if (!files::exists(root / "cgroup.controllers", failure)) continue;
    struct stat about {};
    if (::stat(root.c_str(), &about) == 0) paths_.emplace(about.st_ino, "");
    auto const options = files::directory_options::skip_permission_denied;
    for (files::recursive_directory_iterator at(root, options, failure), end; !failure && at != end;
         at.increment(failure)) {
      std::error_code unknown;
      if (!at->is_directory(unknown) || ::stat(at->path().c_str(), &about) != 0) continue;
      paths_.emplace(about.st_ino, '/' + at->path().lexically_relative(root).string());
      if (paths_.size() == mostGroups) return;
    }
    return;
  }
}

}  // namespace Agent
