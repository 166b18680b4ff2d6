#include <Foundation/Data.hpp>
#include <Foundation/Environment.hpp>
#include <Foundation/Hex.hpp>
#include <Foundation/Uninterrupted.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tavlo::foundation {

namespace {

[[noreturn]] void throwSystemError(int code, const std::string& what) {
  throw std::system_error(code, std::generic_category(), what);
}

int openFile(const std::filesystem::path& path, int flags) {
  return uninterrupted([&] { return ::open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR); });
}

/// A descriptor that is closed when it goes out of scope.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

constexpr std::size_t temporaryNameSize = 8;  // in bytes

/// A file that is removed when it goes out of scope, unless it was kept.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::filesystem::path path) : path_(std::move(path)) {}
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  void keep() { path_.clear(); }

 private:
  std::filesystem::path path_;
};

/// The name of a TemporaryFile, and of nothing else.
bool isTemporaryName(const std::string& name) {
  constexpr std::size_t end = 1 + 2 * temporaryNameSize;
  return name.size() == end + 4 && name.front() == '.' && name.ends_with(".tmp") &&
         name.find_first_not_of("0123456789abcdef", 1) == end;
}

/// As ::rename, but fails with EEXIST where there is a file of that name.
int renameNew(const char* from, const char* to) {
#ifdef __APPLE__
  return ::renamex_np(from, to, RENAME_EXCL);
#else
  return ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
#endif
}

void writeAll(int fd, DataView bytes, const std::string& name) {
  while (!bytes.empty()) {
    const ssize_t written = uninterrupted([&] { return ::write(fd, bytes.data(), bytes.size()); });
    if (written < 0) throwSystemError(errno, "cannot write " + name);
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

}  // namespace

Data dataOf(std::string_view text) {
  return {text.begin(), text.end()};
}

std::string_view textOf(DataView bytes) noexcept {
  return {reinterpret_cast<const char*>(bytes.data()),
          bytes.size()};  // NOLINT(*-reinterpret-cast): bytes as characters
}

void wipe(Data& bytes) noexcept {
  std::ranges::fill(bytes, std::uint8_t{0});
  // Something that the compiler cannot see may look at the bytes now: so it must not leave the zeros out.
  __asm__ __volatile__("" : : "r"(bytes.data()) : "memory");
  bytes = {};
}

Data contentsOf(const std::filesystem::path& path, std::size_t limit) {
  // A path with a NUL byte would be cut short by the system and name another file.
  if (path.native().find('\0') != std::string::npos) throwSystemError(EINVAL, "cannot open a name with a NUL byte");
  // Without O_NONBLOCK, opening a pipe that nobody writes to would wait for ever.
  const FileDescriptor fd(openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
  if (fd.get() < 0) throwSystemError(errno, "cannot open " + path.string());
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0) throwSystemError(errno, "cannot read " + path.string());
  if (S_ISDIR(status.st_mode)) throwSystemError(EISDIR, "cannot read " + path.string());
  if (!S_ISREG(status.st_mode)) throwSystemError(EINVAL, "no regular file: " + path.string());
  if (static_cast<std::uintmax_t>(status.st_size) > limit) throwSystemError(EFBIG, "cannot read " + path.string());

  Data bytes(static_cast<std::size_t>(status.st_size));
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t count = uninterrupted([&] { return ::read(fd.get(), bytes.data() + filled, bytes.size() - filled); });
    if (count < 0) throwSystemError(errno, "cannot read " + path.string());
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return bytes;
}

bool writePrivately(const std::filesystem::path& path, DataView bytes, IfExists ifExists) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  const std::filesystem::path temporary = folder / ("." + randomName(temporaryNameSize) + ".tmp");
  const FileDescriptor fd(openFile(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW));
  if (fd.get() < 0) throwSystemError(errno, "cannot create a file in " + folder.string());
  TemporaryFile file(temporary);
  // Locked until it has its name. Somebody who sweeps just before takes it for one that was left: then once more.
  struct stat status {};
  const bool isSwept = ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (isSwept || (::fstat(fd.get(), &status) == 0 && status.st_nlink == 0))
    return writePrivately(path, bytes, ifExists);
  writeAll(fd.get(), bytes, path.string());
  if (uninterrupted([&] { return ::fsync(fd.get()); }) != 0) throwSystemError(errno, "cannot write " + path.string());

  if (ifExists == IfExists::replace) {
    if (::rename(temporary.c_str(), path.c_str()) != 0) throwSystemError(errno, "cannot write " + path.string());
    file.keep();
  } else if (renameNew(temporary.c_str(), path.c_str()) == 0) {
    file.keep();
  } else if (errno == EEXIST) {
    return false;
  } else if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) {
    throwSystemError(errno, "cannot write " + path.string());
  } else if (::link(temporary.c_str(), path.c_str()) != 0) {  // some file systems have only this
    if (errno == EEXIST) return false;
    throwSystemError(errno, "cannot write " + path.string());
  }
  flushFolder(folder);
  return true;
}

void sweepTemporaryFiles(const std::filesystem::path& folder) {
  std::error_code ignored;
  for (std::filesystem::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored)) {
    if (!isTemporaryName(entry->path().filename())) continue;
    const FileDescriptor fd(openFile(entry->path(), O_RDWR | O_NONBLOCK | O_NOFOLLOW));
    if (fd.get() >= 0 && ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(entry->path().c_str());
  }
}

std::string randomName(std::size_t size) {
  Data bytes(size);
#ifdef __APPLE__
  ::arc4random_buf(bytes.data(), bytes.size());
#else
  if (::getentropy(bytes.data(), bytes.size()) != 0) throwSystemError(errno, "cannot get random bytes");
#endif
  return toHexString(bytes);
}

void flushFolder(const std::filesystem::path& folder) {
  const FileDescriptor fd(openFile(folder, O_RDONLY | O_DIRECTORY));
  if (fd.get() < 0 || uninterrupted([&] { return ::fsync(fd.get()); }) != 0)
    throwSystemError(errno, "cannot flush the folder " + folder.string());
}

void createPrivateFolder(const std::filesystem::path& folder) {
  // Whoever made a folder that is there may have been killed before it was on disk. To see to that takes milliseconds,
  // so this process does it once: here are the hashes of what it has seen to. No lock, for the child of a fork.
  static constinit std::array<std::atomic<std::size_t>, 64> settled{};
  const std::size_t hash = hash_value(std::filesystem::absolute(folder));
  std::atomic<std::size_t>& place = settled[hash % settled.size()];
  const bool isSettled = place == hash;
  std::filesystem::path made;
  for (const std::filesystem::path& part : folder) {
    made /= part;
    const bool isNew = ::mkdir(made.c_str(), S_IRWXU) == 0;
    const int reason = errno;  // some systems answer EROFS or EACCES for a folder that exists
    if (!isNew && reason != EEXIST && !std::filesystem::is_directory(made)) {
      throwSystemError(reason, "cannot make the folder " + made.string());
    }
    if (!isNew && isSettled) continue;
    // What cannot be read cannot be flushed, and where nothing can be made there is nothing to flush.
    const std::filesystem::path above = made.has_parent_path() ? made.parent_path() : ".";
    if (::access(above.c_str(), isNew ? R_OK : R_OK | W_OK) != 0) continue;
    try {
      flushFolder(above);
    } catch (const std::system_error& error) {
      // Of a folder that was there only a disk that fails counts: not all that may stand above can be flushed.
      if (isNew || error.code() == std::errc::io_error || error.code() == std::errc::no_space_on_device) throw;
    }
  }
  place = hash;
  struct stat status {};
  if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    throwSystemError(ENOTDIR, "no folder: " + folder.string());
  }
  const bool isOpenToOthers = (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
  if (isOpenToOthers && status.st_uid == ::geteuid() && ::chmod(folder.c_str(), S_IRWXU) != 0) {
    throwSystemError(errno, "cannot close the folder to others: " + folder.string());
  }
}

std::filesystem::path applicationSupportFolder() {
  const auto absolute = [](const char* variable) {
    const std::filesystem::path path = environmentValue(variable).value_or("");
    return path.is_absolute() ? path : std::filesystem::path();
  };
  if (const auto data = absolute("XDG_DATA_HOME"); !data.empty()) return data / "tavlo";
  if (const auto home = absolute("HOME"); !home.empty()) return home / ".local" / "share" / "tavlo";
  throw std::runtime_error("set XDG_DATA_HOME or HOME to an absolute path: it is where keys and pictures are kept");
}

}  // namespace tavlo::foundation
