#pragma once

#include <Foundation/Data.hpp>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <fstream>
#include <functional>
#include <iomanip>
#include <regex>
#include <thread>

#include "support/TemporaryFolder.hpp"

namespace tavlo::test {

/// Runs a program in a shell's hands, without standard input, and keeps what it writes apart.
class Program {
 public:
  ~Program() {
    if (process_ != 0) ::kill(process_, SIGTERM);
    while (process_ != 0 && ::kill(process_, 0) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }

  /// Runs `command` to its end and gives the exit status; a "NAME=value" before it adds to the environment. The shell
  /// goes on with `rest`.
  int run(const std::vector<std::string>& command, const std::string& rest = "") {
    std::string line = "exec env ";
    for (const std::string& word : command) line += "'" + word + "' ";
    line += "</dev/null >'" + (folder_ / "out").string() + "' 2>'" + (folder_ / "err").string() + "'" + rest;
    // NOLINTNEXTLINE(cert-env33-c): the shell's redirections are what is wanted; the words come from the test
    const int status = std::system(line.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  /// Starts `command` beside the test; it ends with this object.
  void start(const std::vector<std::string>& command) {
    if (run(command, "& echo $! >'" + (folder_ / "id").string() + "'") == 0) process_ = std::stoi(text("id"));
  }

  /// Waits until it has written `part` to standard output; false when that takes too long.
  [[nodiscard]] bool waitForOut(const std::string& part) const {
    for (int i = 0; i < 2000 && out().find(part) == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return out().find(part) != std::string::npos;
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
};

/// A part that is expected in a text, and no text at all where none is.
inline void expectPart(const std::string& text, const std::string& part) {
  EXPECT_NE(text.find(part), text.npos) << part << " is not in:\n" << text;
  EXPECT_EQ(text.empty(), part.empty()) << text;
}

/// Runs programs one by one, with files and personal data in a folder of their own.
class ProgramTest : public testing::Test {
 protected:
  /// Runs `command` to its end; each "@name" becomes the path of that file, and each "%name" that of a sample.
  int run(std::vector<std::string> command) {
    for (std::string& word : command) {
      if (word.starts_with('@')) word = folder_ / word.substr(1);
      if (word.starts_with('%')) word.replace(0, 1, TAVLO_SAMPLES_DIR "/");
    }
    command.insert(command.begin(), environment_.begin(), environment_.end());
    Program program;
    const int status = program.run(command);
    out_ = program.out();
    err_ = program.err();
    return status;
  }

  /// Gives `program` the words of each row of the file `table`, which lies beside the tests of the programs, and checks
  /// what comes of it: words | exit status | part of standard output | part of standard error.
  void expectOutcomes(const std::string& table, const std::function<int(std::vector<std::string>)>& program) {
    std::ifstream rows(TAVLO_SAMPLES_DIR "/../tests/apps/" + table);
    std::string line;
    ASSERT_TRUE(std::getline(rows, line)) << "no title in " << table;
    for (std::smatch row; std::getline(rows, line);) {
      ASSERT_TRUE(std::regex_match(line, row, std::regex(R"((.*?) *\| (\d+) \| *(.*?) *\| *(.*))"))) << line;
      std::istringstream words(row[1]);
      std::vector<std::string> arguments;
      for (std::string word; words >> std::quoted(word);) arguments.push_back(word);
      SCOPED_TRACE(line);
      EXPECT_EQ(program(arguments), std::stoi(row[2]));
      expectPart(out_, row[3]);
      expectPart(err_, row[4]);
    }
  }
  void write(const std::string& name, const auto& bytes) const {
    std::filesystem::create_directories((folder_ / name).parent_path());
    foundation::writePrivately(folder_ / name, foundation::Data(bytes.begin(), bytes.end()));
  }

  TemporaryFolder folder_;
  std::vector<std::string> environment_ = {"XDG_DATA_HOME=" + (folder_ / "home").string(), "http_proxy="};
  std::string out_, err_;
};

}  // namespace tavlo::test
