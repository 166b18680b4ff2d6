#pragma once

#include <Foundation/CurlSession.hpp>
#include <Foundation/Data.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "support/RawServer.hpp"

namespace tavlo::test {

using foundation::CurlSession;

inline const std::string answerOK = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

/// A proxy that this machine may need is none of the tests' business.
inline const bool withoutProxy = unsetenv("http_proxy") + unsetenv("all_proxy") + unsetenv("ALL_PROXY") == 0;

/// "<status> <body>" of an answer, "<code>" of a URLError.
inline std::string outcome(const std::optional<foundation::Data>& body,
                           const std::optional<foundation::URLResponse>& response, const std::exception_ptr& error) {
  try {
    if (error) std::rethrow_exception(error);
    return std::to_string(response.value().statusCode) + " " + std::string(foundation::textOf(body.value()));
  } catch (const foundation::URLError& urlError) {
    return std::to_string(static_cast<int>(urlError.code()));
  }
}

/// A session that checks what holds for each request: one completion, never from within the call, one at a time.
class Client {
 public:
  explicit Client(CurlSession::Options options = {}) : session_(std::make_unique<CurlSession>(options)) {}
  ~Client() {
    session_.reset();
    EXPECT_EQ(completed_, started_);
  }

  /// Posts, and gives the outcome when it is there.
  std::future<std::string> start(
      const std::string& url, const std::string& body = {}, double timeout = 5,
      std::function<void()> onCompletion = [] {}) {
    foundation::URLRequest request{foundation::URL::parse(url).value()};
    request.httpMethod = "POST";
    request.httpBody = foundation::dataOf(body);
    request.timeoutInterval = std::chrono::duration<double>(timeout);
    auto promise = std::make_shared<std::promise<std::string>>();
    auto future = promise->get_future();
    ++started_;
    static thread_local bool isStarting = false;
    isStarting = true;
    session_->start(std::move(request), [=, this](const auto& data, const auto& response, const auto& error) {
      EXPECT_FALSE(isStarting);
      EXPECT_FALSE(busy_.exchange(true));
      onCompletion();
      ++completed_;
      busy_ = false;
      promise->set_value(outcome(data, response, error));
    });
    isStarting = false;
    return future;
  }
  std::string post(const std::string& url, const std::string& body = {}, double timeout = 5) {
    return start(url, body, timeout).get();
  }

 private:
  std::atomic<int> started_ = 0, completed_ = 0;
  std::atomic<bool> busy_ = false;
  std::unique_ptr<CurlSession> session_;
};

/// Answers every request of a connection with `answer`.
inline RawServer::Handler answering(std::string answer) {
  return [answer = std::move(answer)](RawServer::Connection& connection) {
    while (connection.read()) connection.send(answer);
  };
}

}  // namespace tavlo::test
