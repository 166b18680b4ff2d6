#pragma once

#include <Foundation/URLError.hpp>
#include <Foundation/URLSession.hpp>

#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

#pragma GCC visibility push(hidden)

namespace tavlo::foundation {

/// An ended request on its way to its handler.
struct Completion {
  URLSession::CompletionHandler handler;
  std::optional<Data> body;
  std::optional<URLResponse> response;
  std::optional<URLError> error;
};

using Completions = std::list<Completion>;

/// The thread "net.cb": calls handlers one at a time, in the order they came, so that a slow one delays no transfer.
class CompletionThread {
 public:
  CompletionThread() = default;
  /// Calls the handlers that are left, then ends the thread. Not from within a handler.
  ~CompletionThread();
  CompletionThread(const CompletionThread&) = delete;
  CompletionThread& operator=(const CompletionThread&) = delete;

  /// Starts the thread, unless it runs. Not to be called twice at once. Throws std::system_error when there can be no
  /// more threads.
  void start();
  /// Returns without waiting; any thread, once started. Several at once save wake-ups.
  void enqueue(Completions completions);

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  Completions queue_;
  bool closing_ = false;
  std::thread thread_;
};

}  // namespace tavlo::foundation

#pragma GCC visibility pop
