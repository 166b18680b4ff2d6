#pragma once

#include <Foundation/CurlSession.hpp>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <future>

#include "support/RawServer.hpp"

namespace tavlo::test {

using foundation::CurlSession;
using Connection = RawServer::Connection;

inline const std::string head = "HTTP/1.1 200 OK\r\n";
inline const std::string answerOK = head + "Content-Length: 2\r\n\r\nok";
inline const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n";

/// A proxy that this machine may need is none of the tests' business.
inline const int withoutProxy = unsetenv("http_proxy");

/// Sends every request of a connection the same answer.
inline auto answering(const std::string& answer) {
  return [=](Connection& connection) {
    while (connection.read()) connection.send(answer);
  };
}

/// What people are told of each error.
inline const std::string descriptions =
    "-1 unknown error\n-999 cancelled\n-1000 bad URL\n-1001 The request timed out.\n-1002 unsupported URL\n-1003 A "
    "server with the specified hostname could not be found.\n-1004 Could not connect to the server.\n-1005 The "
    "network connection was lost.\n-1007 too many HTTP redirects\n-1010 The server asked to send the request to "
    "another server.\n-1017 cannot parse response\n-1022 The resource could not be loaded because the App Transport "
    "Security policy requires the use of a secure connection.\n-1103 resource exceeds maximum size\n-1200 An SSL "
    "error has occurred and a secure connection to the server cannot be made.\n-1202 The certificate for this server "
    "is invalid. You might be connecting to a server that is pretending to be \"localhost\" which could put your "
    "confidential information at risk.\n";

using Then = std::function<void(const std::string& outcome)>;

/// Posts through `session`, which must not call back on the main thread; the outcome is "<status> <body>" or the code
/// of the error, and `then` gets it first.
inline std::future<std::string> start(const std::shared_ptr<foundation::URLSession>& session, const std::string& url,
                                      const std::string& body = {}, double timeout = 20, const Then& then = {}) {
  foundation::URLRequest request{foundation::URL::parse(url).value()};
  request.httpMethod = "POST";
  request.httpBody = foundation::dataOf(body);
  request.timeoutInterval = std::chrono::duration<double>(timeout);
  auto promise = std::make_shared<std::promise<std::string>>();
  auto task = session->dataTask(std::move(request), [=](const auto& data, const auto& response, const auto& error) {
    EXPECT_NE(gettid(), getpid());
    std::string outcome;
    try {
      if (error) std::rethrow_exception(error);
      outcome = std::to_string(response.value().statusCode) + " " + std::string(foundation::textOf(data.value()));
    } catch (const foundation::URLError& urlError) {
      outcome = std::to_string(static_cast<int>(urlError.code()));
      EXPECT_NE(descriptions.find(outcome + " " + urlError.what() + "\n"), descriptions.npos) << urlError.what();
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
