#pragma once

#include <Foundation/Data.hpp>
#include <Foundation/URLRequest.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tavlo::foundation {

class URLSessionDataTask;

/// What is known of an answer beside its body.
struct URLResponse {
  int statusCode = 0;  ///< the HTTP status (RFC 9110)
  /// The URL that answered, after redirects.
  std::string url;
};

/// Sends HTTP requests. A host app with a network stack of its own derives from it and installs its session.
class URLSession : public std::enable_shared_from_this<URLSession> {
 public:
  /// Gets the body and the response, or the error. An empty body is an empty Data, not an absent one.
  using CompletionHandler =
      std::function<void(std::optional<Data> body, std::optional<URLResponse> response, std::exception_ptr error)>;

  virtual ~URLSession() = default;

  /// The session in force: the process's own unless a host app has installed one. Any thread.
  [[nodiscard]] static std::shared_ptr<URLSession> shared();
  /// Puts `session` in for `shared`; none brings the process's own back. Gives back the previous one, if any was used.
  static std::shared_ptr<URLSession> install(std::shared_ptr<URLSession> session);

  /// A task that sends `request` when it is resumed. The session must be held by a shared_ptr.
  [[nodiscard]] URLSessionDataTask dataTask(URLRequest request, CompletionHandler handler);

  /// Sends `request` and returns without waiting; any thread, also from within a handler.
  ///
  /// `handler` is called exactly once, whatever happens, never from within this call and never on the calling thread
  /// unless that is the session's own; one handler at a time. A request that cannot be sent at all is reported the same
  /// way; only when there is no memory, no thread or no descriptor for it does this throw, and the handler is not
  /// called. An exception from a handler is a programming error and may end the process.
  virtual void start(URLRequest request, CompletionHandler handler) = 0;
};

/// One request that waits to be sent. Not to be used by two threads at once.
class URLSessionDataTask {
 public:
  /// What was moved from cannot be sent any more.
  URLSessionDataTask(URLSessionDataTask&&) = default;
  /// What was moved from cannot be sent any more; the request that was here is dropped unsent.
  URLSessionDataTask& operator=(URLSessionDataTask&&) = default;

  /// Sends the request. Only the first call does; the task may go away right after it.
  void resume();

 private:
  friend URLSession;
  URLSessionDataTask(std::shared_ptr<URLSession> session, URLRequest request, URLSession::CompletionHandler handler);

  std::shared_ptr<URLSession> session_;
  URLRequest request_;
  URLSession::CompletionHandler handler_;
};

}  // namespace tavlo::foundation
