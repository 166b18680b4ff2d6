#pragma once

#include <Foundation/CurlSession.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

#include "support/RawServer.hpp"

namespace tavlo::test {

using foundation::CurlSession;
using Connection = RawServer::Connection;

inline const std::string head = "HTTP/1.1 200 OK\r\n";
inline const std::string answerOK = head + "Content-Length: 2\r\n\r\nok";

/// A proxy that this machine may need is none of the tests' business.
inline const int withoutProxy = unsetenv("http_proxy");

/// Sends every request of a connection the same answer.
inline auto answering(const std::string& answer) {
  return [=](Connection& connection) {
    while (connection.read()) connection.send(answer);
  };
}

using Then = std::function<void(const std::string& outcome)>;

/// Posts through `session`, which must not call back on the thread of the first post; the outcome is "<status> <body>"
/// or the code of the error, and `then` gets it first.
inline std::future<std::string> start(const std::shared_ptr<foundation::URLSession>& session, const std::string& url,
                                      const std::string& body = {}, double timeout = 20, const Then& then = {}) {
  foundation::URLRequest request{foundation::URL::parse(url).value()};
  request.httpMethod = "POST";
  request.httpBody = foundation::dataOf(body);
  request.timeoutInterval = std::chrono::duration<double>(timeout);
  static const auto user = std::this_thread::get_id();
  auto promise = std::make_shared<std::promise<std::string>>();
  auto task = session->dataTask(std::move(request), [=](const auto& data, const auto& response, const auto& error) {
    EXPECT_NE(std::this_thread::get_id(), user);
    std::string outcome;
    try {
      if (error) std::rethrow_exception(error);
      outcome = std::to_string(response->statusCode) + " " + std::string(foundation::textOf(*data));
    } catch (const foundation::URLError& urlError) {
      outcome = std::to_string(static_cast<int>(urlError.code()));
    }
    if (then) then(outcome);
    promise->set_value(outcome);
  });
  for (int i = 0; i < 2; ++i) task.resume();
  return promise->get_future();
}

/// The outcome of one post through a session that has gone then: a second completion would have thrown.
inline std::string post(const std::string& url, const std::string& body = {}, double timeout = 20,
                        CurlSession::Options options = {}) {
  const auto session = std::make_shared<CurlSession>(options);
  return start(session, url, body, timeout).get();
}

}  // namespace tavlo::test
