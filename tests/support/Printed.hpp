#pragma once

#include <Foundation/Print.hpp>

#include <mutex>
#include <vector>

namespace tavlo::test {

/// Lines that threads write at once.
class Lines {
 public:
  void add(std::string line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
  }
  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// Catches the console lines of its scope.
class Printed : public Lines {
 public:
  ~Printed() { foundation::setPrintHandler(std::move(previous_)); }

 private:
  foundation::PrintHandler previous_ = foundation::setPrintHandler([this](auto line) { add(std::string(line)); });
};

}  // namespace tavlo::test
