// SPDX-License-Identifier: Apache-2.0
#include "agent/history/HistoryFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "agent/base/FileDescriptor.h"

namespace Agent {

namespace {

struct CloseStream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

[[noreturn]] void fail(int reason, std::string const& what) {
  errno = reason;
  throwErrno(what);
}

void syncDirectoryOf(std::string const& path) {
  std::string const parent = std::filesystem::path(path).parent_path().string();
  std::string const name = parent.empty() ? "." : parent;
  FileDescriptor const directory(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory || ::fsync(directory.get()) != 0) throwErrno(name);
}

// Leaves the file synced and closed, or throws.
void writeNew(std::string const& path, mode_t mode, std::function<void(std::FILE*)> const& write) {
  FileDescriptor fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
  if (!fd) throwErrno(path);
  constexpr std::size_t bufferBytes = 64 * 1024;
  auto const buffer = std::make_unique<char[]>(bufferBytes);
  Stream stream(::fdopen(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 0), "w"));
  if (!stream) throwErrno(path);
  std::setvbuf(stream.get(), buffer.get(), _IOFBF, bufferBytes);
  errno = 0;
  write(stream.get());
  if (std::ferror(stream.get()) != 0) fail(errno != 0 ? errno : EIO, path);
  if (std::fclose(stream.release()) != 0 || ::fsync(fd.get()) != 0) throwErrno(path);
}

}  // namespace

std::string readFile(std::string const& path, std::string_view magic) {
  // A pipe without a writer would be waited for.
  FileDescriptor const fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat file {};
  if (!fd || ::fstat(fd.get(), &file) != 0) throwErrno(path);
  if (!S_ISREG(file.st_mode)) fail(S_ISDIR(file.st_mode) ? EISDIR : EINVAL, path);
  std::string content(magic.size(), '\0');
  std::size_t got = 0;
  while (got < content.size()) {
    ssize_t const more = ::read(fd.get(), content.data() + got, content.size() - got);
    if (more < 0 && errno != EINTR) throwErrno(path);
    if (more == 0) break;  // it has become shorter meanwhile
    if (more > 0) got += static_cast<std::size_t>(more);
    if (got == magic.size() && content == magic) content.resize(static_cast<std::size_t>(file.st_size));
  }
  content.resize(got);
  return content;
}

void replaceFile(std::string const& path, std::string const& beside, mode_t mode,
                 std::function<void(std::FILE*)> const& write) {
  if (::unlink(beside.c_str()) != 0 && errno != ENOENT) throwErrno(beside);
  try {
    writeNew(beside, mode, write);
    if (::rename(beside.c_str(), path.c_str()) != 0) throwErrno(path);
  } catch (...) {
    ::unlink(beside.c_str());
    throw;
  }
  syncDirectoryOf(path);
}

std::string putAside(std::string const& path) {
  for (char number = '1'; number <= '9'; ++number) {
    std::string const aside = path + ".damaged-" + number;
    if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) return aside;
    if (errno != EEXIST) throwErrno(path);
  }
  fail(EEXIST, path + ".damaged-1 to -9");
}

}  // namespace Agent
