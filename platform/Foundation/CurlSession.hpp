#pragma once

#include <Foundation/CompletionThread.hpp>
#include <Foundation/CurlTransfer.hpp>
#include <Foundation/Owned.hpp>
#include <Foundation/URLSession.hpp>

#include <curl/curl.h>

#include <cstddef>
#include <list>
#include <mutex>
#include <thread>

#pragma GCC visibility push(hidden)

namespace tavlo::foundation {

/// A session on libcurl: the thread "net.io" moves all bytes, the thread "net.cb" calls the handlers. Both start with
/// the first request. Connections are kept for the next request; nothing else is: no cookies, credentials or answers.
class CurlSession final : public URLSession {
 public:
  struct Options {
    /// Requests that are under way at once; the others wait, first come, first served.
    std::size_t maximumActive = 64;
    /// In bytes; a longer answer is an error.
    std::size_t maximumAnswerSize = std::size_t{256} << 20;
  };

  CurlSession() : CurlSession(Options{}) {}
  /// Reads the environment (see NetEnvironment). Throws std::bad_alloc, and URLError when the process can have no more
  /// descriptors.
  explicit CurlSession(Options options);
  /// Cancels what has not ended, calls the handlers that are left and ends both threads. Not from within a handler.
  ~CurlSession() override;

  /// Throws std::system_error, and does not call `handler`, when the process can have no more threads.
  void start(URLRequest request, CompletionHandler handler) override;

  /// Ends the network thread and leaves its requests as they are; every later one is cancelled at once.
  void stop();

  /// Between these two calls the network thread does nothing: a process that forks meanwhile leaves no lock of libcurl
  /// or OpenSSL taken for ever in its child.
  void pause() { running_.lock(); }
  void resume() { running_.unlock(); }

 private:
  using Transfers = std::list<CurlTransfer>;

  void run();
  bool takeNewOnes();
  void admit();
  void wait();
  void concludeFinished();
  void expire();
  void send(CurlTransfer& transfer);

  const Options options_;
  const NetEnvironment environment_;
  const Owned<CURLM, curl_multi_cleanup> multi_;

  std::mutex mutex_;
  Transfers new_;
  bool stopping_ = false;

  // Held by the network thread unless it waits.
  std::mutex running_;

  // Of the network thread only.
  Transfers waiting_;
  Transfers active_;
  Completions ended_;  // handed on once in each turn
  CurlTransfer::Clock::time_point nextDeadline_ = CurlTransfer::Clock::time_point::max();

  std::thread thread_;
  // Last, so that a handler that runs while this object goes away may still call `start`.
  CompletionThread completions_;
};

}  // namespace tavlo::foundation

#pragma GCC visibility pop
