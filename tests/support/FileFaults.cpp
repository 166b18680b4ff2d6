// Preloaded into a program with FILE_FAULTS="n error folder log". Writes what it does to the files below the folder
// into the log, and lets the n-th of these calls fail with the error's number; with EROFS, every change after it as
// well.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

namespace {

int calls = 0;

std::string pathOf(int fd) {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored);
}

/// Makes the call, or lets it fail.
template <class Call>
auto tried(std::string name, const std::string& path, bool changes, Call call) -> decltype(call()) {
  const char* const faults = std::getenv("FILE_FAULTS");
  std::istringstream words(faults == nullptr ? "" : faults);
  int at = 0, error = 0;
  std::string folder, log;
  if (!(words >> at >> error >> folder >> log) || !path.starts_with(folder)) return call();
  const bool fails = ++calls == at || (error == EROFS && calls > at && changes);
  const auto result = fails ? -1 : call();
  const int reason = fails ? error : errno;
  if (fails) name = "failed " + name;
  if (result >= 0 || fails) std::ofstream(log, std::ios::app) << name << " " << path << "\n";
  errno = reason;
  return result;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return tried((flags & O_CLOEXEC) != 0 ? "open" : "inheritable", path,
               (flags & O_CREAT) != 0 && access(path, F_OK) != 0, [&] { return NEXT(open)(path, flags, mode); });
}
#define TRIED(result, name, parameters, path, changes, ...)                      \
  result name parameters {                                                       \
    return tried(#name, path, changes, [&] { return NEXT(name)(__VA_ARGS__); }); \
  }
TRIED(ssize_t, write, (int fd, const void* bytes, std::size_t size), pathOf(fd), true, fd, bytes, size)
TRIED(int, fsync, (int fd), pathOf(fd), false, fd)
TRIED(int, flock, (int fd, int operation), pathOf(fd), false, fd, operation)
TRIED(int, mkdir, (const char* path, mode_t mode), path, true, path, mode)
TRIED(int, unlink, (const char* path), path, true, path)
TRIED(int, remove, (const char* path), path, true, path)
TRIED(int, rename, (const char* from, const char* to), to, true, from, to)
TRIED(int, renameat2, (int folder, const char* from, int toFolder, const char* to, unsigned flags), to, true, folder,
      from, toFolder, to, flags)

}  // extern "C"
