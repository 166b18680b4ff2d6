#pragma once

#include <Foundation/Print.hpp>

#include <mutex>
#include <vector>

namespace tavlo::test {

/// Catches the console lines of its scope.
class Printed {
 public:
  Printed() {
    previous_ = foundation::setPrintHandler([this](std::string_view line) {
      const std::lock_guard lock(mutex_);
      lines_.emplace_back(line);
    });
  }
  ~Printed() { foundation::setPrintHandler(std::move(previous_)); }
  Printed(const Printed&) = delete;
  Printed& operator=(const Printed&) = delete;

  [[nodiscard]] std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  foundation::PrintHandler previous_;
};

}  // namespace tavlo::test
