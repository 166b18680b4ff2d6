#include <Foundation/CompletionThread.hpp>

#include <Foundation/NetThread.hpp>

#include <exception>
#include <utility>

namespace tavlo::foundation {

CompletionThread::~CompletionThread() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void CompletionThread::start() {
  if (!thread_.joinable()) thread_ = startNetThread("net.cb", [this] { run(); });
}

void CompletionThread::enqueue(Completions completions) {
  if (completions.empty()) return;
  {
    const std::lock_guard lock(mutex_);
    queue_.splice(queue_.end(), completions);
  }
  changed_.notify_one();
}

void CompletionThread::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return closing_ || !queue_.empty(); });
    if (queue_.empty()) return;
    {
      auto [handler, body, response, error] = std::exchange(queue_.front(), {});
      queue_.pop_front();
      lock.unlock();
      handler(std::move(body), std::move(response), error ? std::make_exception_ptr(*error) : nullptr);
    }  // What the handler holds goes away here, on this thread and outside the lock.
    lock.lock();
  }
}

}  // namespace tavlo::foundation
