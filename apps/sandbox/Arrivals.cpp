#include "Arrivals.hpp"

#include <algorithm>
#include <utility>

namespace tavlo::sandbox {

void Arrivals::add(Arrival arrival) {
  if (arrival.body.size() > maximumKeptBody) {
    arrival.body.resize(maximumKeptBody);
    arrival.body.shrink_to_fit();
  }
  const auto added = std::make_shared<const Arrival>(std::move(arrival));
  const std::lock_guard lock(mutex_);
  arrivals_.push_back(added);
  bytes_ += added->bodySize;
  while (arrivals_.size() > maximumCount || (bytes_ > maximumBytes && arrivals_.size() > 1)) {
    bytes_ -= arrivals_.front()->bodySize;
    arrivals_.pop_front();
  }
  std::erase_if(listeners_, [&](const Listener& listener) { return !listener(added); });
}

std::vector<Arrivals::Pointer> Arrivals::all() const {
  const std::lock_guard lock(mutex_);
  return {arrivals_.begin(), arrivals_.end()};
}

Arrivals::Pointer Arrivals::find(std::uint64_t id) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::ranges::find(arrivals_, id, [](const Pointer& arrival) { return arrival->id; });
  return found == arrivals_.end() ? nullptr : *found;
}

std::vector<Arrivals::Pointer> Arrivals::subscribe(Listener listener) {
  const std::lock_guard lock(mutex_);
  listeners_.push_back(std::move(listener));
  return {arrivals_.begin(), arrivals_.end()};
}

}  // namespace tavlo::sandbox
