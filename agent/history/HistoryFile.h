// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

namespace Agent {

// The content of a regular file; of one that does not begin with `magic` only as many bytes. Throws
// std::system_error, also for what is no regular file, and std::bad_alloc.
std::string readFile(std::string const& path, std::string_view magic);

// Gives `path` a new content: what `write` writes goes to the file `beside`, in the same directory, which is
// then synced and renamed, and its directory synced. At no moment, whatever ends the process or the machine,
// stands half a file at `path`. A file that has been left at `beside` is removed first. `mode` is that of a
// new file, less the process's mask. Throws std::system_error, with `path` left as it is unless all that
// failed was to sync its directory.
void replaceFile(std::string const& path, std::string const& beside, mode_t mode,
                 std::function<void(std::FILE*)> const& write);

// Renames a file to PATH.damaged-1, or -2 up to -9: whichever there is not yet. Nothing is overwritten.
// Returns the new name; throws std::system_error, with the file left where it is.
std::string putAside(std::string const& path);

}  // namespace Agent
