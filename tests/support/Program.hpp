#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/TemporaryFolder.hpp"

namespace tavlo::test {

/// A program that runs beside the test, without standard input; what it writes is kept apart.
class Program {
 public:
  /// Starts `command`. Each of `environment` is one "NAME=value", which is added to the test's own.
  explicit Program(std::vector<std::string> command, std::vector<std::string> environment = {}) {
    environment.insert(environment.begin(), "env");
    command.insert(command.begin(), environment.begin(), environment.end());
    std::vector<char*> arguments;
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    const auto writeTo = [&](int fd, const std::string& file) {
      posix_spawn_file_actions_addopen(&actions, fd, (folder_ / file).c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR);
    };
    writeTo(STDOUT_FILENO, "out");
    writeTo(STDERR_FILENO, "err");
    const int failure = ::posix_spawnp(&process_, "env", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error("cannot start " + command.back());
  }
  ~Program() { stop(); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Waits for the end and gives the exit status; -1 when a signal ended it.
  int wait() {
    int status = 0;
    if (process_ != 0 && ::waitpid(std::exchange(process_, 0), &status, 0) > 0 && WIFEXITED(status)) {
      status_ = WEXITSTATUS(status);
    }
    return status_;
  }
  /// Waits until it has written `text` to standard output; false when that takes too long.
  bool waitForOut(const std::string& text) {
    for (int i = 0; i < 2000 && out().find(text) == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return out().find(text) != std::string::npos;
  }
  /// Asks it to end, as Ctrl-C does, and waits for that.
  int stop() {
    if (process_ != 0) ::kill(process_, SIGINT);
    return wait();
  }

  /// What it has written until now.
  [[nodiscard]] std::string out() const { return text("out"); }
  [[nodiscard]] std::string err() const { return text("err"); }

 private:
  [[nodiscard]] std::string text(const std::string& file) const {
    std::ifstream stream(folder_ / file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  TemporaryFolder folder_;
  pid_t process_ = 0;
  int status_ = -1;
};

}  // namespace tavlo::test
