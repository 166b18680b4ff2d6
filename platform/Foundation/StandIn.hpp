#pragma once

#include <memory>
#include <utility>

namespace tavlo::foundation {

/// Swaps the shared service `T` for the life of this object; for tests. Not installed.
template <class T>
class StandIn {
 public:
  explicit StandIn(std::shared_ptr<T> other) : previous_(T::install(std::move(other))) {}
  ~StandIn() { T::install(std::move(previous_)); }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

 private:
  std::shared_ptr<T> previous_;
};

}  // namespace tavlo::foundation
