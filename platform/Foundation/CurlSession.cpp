#include <Foundation/CurlSession.hpp>

#include <Foundation/NetThread.hpp>

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

namespace tavlo::foundation {
namespace {

using Clock = CurlTransfer::Clock;

Owned<CURLM, curl_multi_cleanup> makeMulti() {
  static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
  Owned<CURLM, curl_multi_cleanup> multi(ready == CURLE_OK ? curl_multi_init() : nullptr);
  if (!multi) throw std::bad_alloc();
  // Without descriptors for it, libcurl makes one that cannot be woken: its requests would wait for each other.
  if (curl_multi_wakeup(multi.get()) != CURLM_OK) throw URLError(URLError::Code::cannotConnectToHost);
  return multi;
}

// Of the exception that is being handled.
URLError currentError() {
  try {
    throw;
  } catch (const URLError& error) {
    return error;
  } catch (const std::bad_alloc&) {
    return URLError(URLError::Code::dataLengthExceedsMaximum);
  }
}

}  // namespace

CurlSession::CurlSession(Options options) : options_(options), multi_(makeMulti()) {}

CurlSession::~CurlSession() {
  stop();
  waiting_.splice(waiting_.end(), new_);
  for (auto& transfer : waiting_) ended_.push_back(transfer.complete(URLError(URLError::Code::cancelled)));
  for (auto& transfer : active_) {
    curl_multi_remove_handle(multi_.get(), transfer.handle());
    ended_.push_back(transfer.complete(URLError(URLError::Code::cancelled)));
  }
  completions_.enqueue(std::move(ended_));
}

void CurlSession::start(URLRequest request, CompletionHandler handler) {
  Transfers transfer;
  transfer.emplace_back(std::move(request), std::move(handler), options_.maximumAnswerSize);

  std::unique_lock lock(mutex_);
  completions_.start();
  if (stopping_) return completions_.enqueue({transfer.front().complete(URLError(URLError::Code::cancelled))});
  if (!thread_.joinable()) thread_ = startNetThread("net.io", [this] { run(); });
  const bool isFirst = new_.empty();
  new_.splice(new_.end(), transfer);
  lock.unlock();
  if (isFirst) curl_multi_wakeup(multi_.get());
}

void CurlSession::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  if (!thread_.joinable()) return;
  curl_multi_wakeup(multi_.get());
  thread_.join();
}

void CurlSession::run() {
  std::unique_lock lock(running_);
  while (takeNewOnes()) {
    // Before the wait, so that it never sleeps on free places: libcurl wakes at once for what has been admitted.
    admit();
    completions_.enqueue(std::exchange(ended_, {}));
    lock.unlock();
    wait();
    lock.lock();
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    concludeFinished();
    // After the bytes that have come in, which may have moved a deadline.
    expire();
  }
}

bool CurlSession::takeNewOnes() {
  const std::lock_guard lock(mutex_);
  for (const auto& transfer : new_) nextDeadline_ = std::min(nextDeadline_, transfer.deadline());
  waiting_.splice(waiting_.end(), new_);
  return !stopping_;
}

void CurlSession::admit() {
  while (!waiting_.empty() && active_.size() < options_.maximumActive) {
    active_.splice(active_.end(), waiting_, waiting_.begin());
    try {
      send(active_.back());
    } catch (...) {
      ended_.push_back(active_.back().complete(currentError()));
      active_.pop_back();
    }
  }
}

void CurlSession::wait() {
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(nextDeadline_ - Clock::now());
  const auto time = std::clamp(left, milliseconds{0}, milliseconds{std::chrono::hours{1}});
  curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(time.count()), nullptr);
}

void CurlSession::concludeFinished() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    const CURLcode result = message->data.result;
    const auto transfer = std::ranges::find(active_, message->easy_handle, &CurlTransfer::handle);
    curl_multi_remove_handle(multi_.get(), transfer->handle());
    try {
      if (!transfer->conclude(result)) {
        send(*transfer);
        continue;
      }
      ended_.push_back(transfer->complete());
    } catch (...) {
      ended_.push_back(transfer->complete(currentError()));
    }
    active_.erase(transfer);
  }
}

void CurlSession::expire() {
  const auto now = Clock::now();
  if (now < nextDeadline_) return;
  nextDeadline_ = Clock::time_point::max();
  for (Transfers* const transfers : {&active_, &waiting_}) {
    for (auto transfer = transfers->begin(); transfer != transfers->end();) {
      if (now < transfer->deadline()) {
        nextDeadline_ = std::min(nextDeadline_, transfer->deadline());
        ++transfer;
      } else {
        if (transfer->handle() != nullptr) curl_multi_remove_handle(multi_.get(), transfer->handle());
        ended_.push_back(transfer->complete(URLError(URLError::Code::timedOut)));
        transfer = transfers->erase(transfer);
      }
    }
  }
}

void CurlSession::send(CurlTransfer& transfer) {
  if (curl_multi_add_handle(multi_.get(), transfer.prepare(environment_)) != CURLM_OK) {
    throw URLError(URLError::Code::unknown);
  }
}

}  // namespace tavlo::foundation
