#pragma once

#include <memory>
#include <mutex>
#include <utility>

namespace tavlo::foundation {

/// The lock of all services' slots. A fork waits until nobody holds it, so that it is free in the child.
[[nodiscard]] std::mutex& servicesMutex();

/// The slot behind a process-wide service: holds the default, made at first use, or what a host app has put in.
///
/// A slot is a constant-initialised object in one source file and lives as long as the process: what it holds is never
/// destroyed at exit, so a service may still be used by a late exit handler. All operations may be called from any
/// thread, and in the child of a fork.
template <class T>
class SharedService {
 public:
  /// Makes the default service; may throw, and then `get` does.
  using Factory = std::shared_ptr<T> (*)();

  /// `makeDefault` is called when there is no service at its first use.
  explicit constexpr SharedService(Factory makeDefault) : makeDefault_(makeDefault) {}
  SharedService(const SharedService&) = delete;
  SharedService& operator=(const SharedService&) = delete;

  /// The service in force. The holder keeps it alive even when another one is put in meanwhile.
  [[nodiscard]] std::shared_ptr<T> get() {
    {
      const std::lock_guard lock(servicesMutex());
      if (current()) return current();
    }
    // Made without the lock, since it may ask for other services; of two that are made at once one goes away again.
    auto made = makeDefault_();
    const std::lock_guard lock(servicesMutex());
    if (!current()) current() = std::move(made);
    return current();
  }

  /// Puts `other` in place; none means that the default is made again at next use. Gives back what was there, if
  /// anything.
  std::shared_ptr<T> exchange(std::shared_ptr<T> other) {
    const std::lock_guard lock(servicesMutex());
    std::swap(current(), other);
    return other;
  }

 private:
  // Kept behind a plain pointer that nothing deletes: a global's destructor must not end a service in use.
  std::shared_ptr<T>& current() {
    if (current_ == nullptr) current_ = new std::shared_ptr<T>;
    return *current_;
  }

  const Factory makeDefault_;
  std::shared_ptr<T>* current_ = nullptr;
};

}  // namespace tavlo::foundation
