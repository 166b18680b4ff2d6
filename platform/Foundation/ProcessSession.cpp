#include <Foundation/ProcessSession.hpp>

#include <Foundation/CurlSession.hpp>

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <utility>

namespace tavlo::foundation {
namespace {

/// The process's own session: one CurlSession that is made at first use and never destroyed.
class ProcessSession final : public URLSession {
 public:
  void start(URLRequest request, CompletionHandler handler) override {
    session().start(std::move(request), std::move(handler));
  }

 private:
  // Without a lock: one that another thread held while forking would stay locked in the child.
  static CurlSession& session() {
    CurlSession* session = current_.load();
    if (session != nullptr) return *session;
    auto made = std::make_unique<CurlSession>();
    // After CurlSession has set libcurl up: exit handlers run in reverse order, and OpenSSL's must come last.
    static const bool watching = watchProcess();
    static_cast<void>(watching);
    return current_.compare_exchange_strong(session, made.get()) ? *made.release() : *session;
  }

  static bool watchProcess() {
    std::atexit([] {
      if (CurlSession* session = current_.load()) session->stop();
    });
    pthread_atfork(
        [] {
          CurlSession* const session = current_.load();
          if (session != nullptr) session->pause();
          paused_ = session;
        },
        [] {
          if (CurlSession* const session = std::exchange(paused_, nullptr)) session->resume();
        },
        // The threads of the parent's session do not exist in a child, and its sockets are the parent's.
        [] { current_.store(paused_ = nullptr); });
    return true;
  }

  static inline std::atomic<CurlSession*> current_ = nullptr;
  // What the thread that forks has paused.
  static inline thread_local CurlSession* paused_ = nullptr;
};

}  // namespace

std::shared_ptr<URLSession> makeProcessSession() {
  return std::make_shared<ProcessSession>();
}

}  // namespace tavlo::foundation
