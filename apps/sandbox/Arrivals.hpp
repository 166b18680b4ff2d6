#pragma once

#include <Foundation/Data.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Answer.hpp"
#include "Request.hpp"

namespace tavlo::sandbox {

/// A request to verify and what became of it. Holds personal data and never leaves the memory of this machine.
struct Arrival {
  std::uint64_t id = 0;  ///< as in the log
  std::chrono::system_clock::time_point received;
  std::optional<Request> request;  ///< absent when the body was refused
  Answer answer;
  std::string scenario;      ///< the one in force, such as "status=503"; empty when there is none
  int status = 200;          ///< of HTTP
  foundation::Data body;     ///< as it came, its beginning when it is long
  std::size_t bodySize = 0;  ///< of the whole, in bytes
  std::chrono::duration<double, std::milli> receiving{0}, decoding{0}, checking{0};
};

/// The latest requests, in memory only. Any thread.
class Arrivals {
 public:
  using Pointer = std::shared_ptr<const Arrival>;
  /// Is given each arrival, one after the other, on the thread that adds it; must be quick and call nothing here. When
  /// it returns false it is forgotten.
  using Listener = std::function<bool(const Pointer&)>;

  static constexpr std::size_t maximumCount = 20;
  static constexpr std::size_t maximumBytes = std::size_t{64} << 20;  ///< of all bodies; the last arrival always stays
  static constexpr std::size_t maximumKeptBody = std::size_t{1} << 20;  ///< how much is kept of each body, in bytes

  void add(Arrival arrival);
  /// Those that are there, the oldest first.
  [[nodiscard]] std::vector<Pointer> all() const;
  /// The one of that id; none when it is there no longer.
  [[nodiscard]] Pointer find(std::uint64_t id) const;
  /// Calls `listener` for each arrival from now on, and gives those that were there before.
  std::vector<Pointer> subscribe(Listener listener);

 private:
  mutable std::mutex mutex_;
  std::deque<Pointer> arrivals_;
  std::size_t bytes_ = 0;
  std::vector<Listener> listeners_;
};

}  // namespace tavlo::sandbox
