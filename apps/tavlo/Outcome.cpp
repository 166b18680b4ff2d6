#include "Outcome.hpp"

#include <Foundation/URLError.hpp>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tavlo::app {

namespace {

using foundation::URLError;

struct Meaning {
  ExitCode code;
  std::string_view advice;
};

Meaning meaningOf(URLError::Code code) {
  using enum URLError::Code;
  switch (code) {
    case cannotConnectToHost:
      return {ExitCode::unreachable,
              "Does the service run? On this machine tavlo-sandbox can play it: start that first."};
    case cannotFindHost:
      return {ExitCode::unreachable, "Check the name in the address."};
    case notConnectedToInternet:
      return {ExitCode::unreachable, "Check this machine's network."};
    case timedOut:
      return {ExitCode::timeout, "The service may have the request all the same. Try again later."};
    case serverCertificateUntrusted:
      return {ExitCode::tls,
              "If the service has a certificate of its own, as tavlo-sandbox has, name it with --trust."};
    case secureConnectionFailed:
      return {ExitCode::tls, "Does the service speak TLS 1.2 or later at that port?"};
    case appTransportSecurityRequiresSecureConnection:
      return {ExitCode::tls, "The service redirects to an address without TLS, which is not followed."};
    case networkConnectionLost:
      return {ExitCode::badAnswer, "The service may have the request: it is not sent again by itself."};
    case badServerResponse:
    case cannotParseResponse:
      return {ExitCode::badAnswer, "Is it an HTTP service that listens at that port?"};
    case dataLengthExceedsMaximum:
      return {ExitCode::badAnswer, "The answer is no plausible one."};
    case badURL:
    case unsupportedURL:
      return {ExitCode::network, "The address, or the one redirected to, must be one of http or https."};
    case httpTooManyRedirects:
    case redirectToNonExistentLocation:
      return {ExitCode::network, "Ask for the service's real address."};
    case cancelled:
    case unknown:
      break;
  }
  return {ExitCode::network, "Try again."};
}

Meaning meaningOf(const CAError& error) {
  if (error.message == CAError("Empty URL").message) {
    return {ExitCode::wrongUse, "Give a whole address, such as https://localhost:8443/verify"};
  }
  if (error.message == CAError("Could not create keypair").message) {
    return {ExitCode::keyStore, "A key pair is kept under the document's number, and there is none without DG1."};
  }
  return {ExitCode::request, "It is built in memory: try a smaller selfie."};
}

void waitWithProgress(const std::future<std::optional<foundation::Data>>& answer) {
  if (::isatty(STDERR_FILENO) == 0) return answer.wait();
  for (int seconds = 1; answer.wait_for(std::chrono::seconds(1)) == std::future_status::timeout; ++seconds) {
    std::fprintf(stderr, "\rWaiting for the answer: %d s", seconds);
  }
  std::fputs("\r\033[K", stderr);
}

}  // namespace

foundation::Data awaitAnswer(const std::function<void(Completion)>& start) {
  // Shared: the thread that calls the completion may still be inside the promise when this one has the answer.
  const auto outcome = std::make_shared<std::promise<std::optional<foundation::Data>>>();
  start([outcome](std::optional<foundation::Data> data, const std::exception_ptr& error) {
    if (error) {
      outcome->set_exception(error);
    } else {
      outcome->set_value(std::move(data));
    }
  });
  auto answer = outcome->get_future();
  waitWithProgress(answer);
  std::optional<foundation::Data> body;
  try {
    body = answer.get();
  } catch (...) {
    throw failureOf(std::current_exception());
  }
  if (!body) throw Failure(ExitCode::noOutcome, "The network layer gave neither an answer nor an error. Try again");
  return *std::move(body);
}

Failure failureOf(const std::exception_ptr& error) {
  const auto failure = [](Meaning meaning, std::string text) {
    return Failure(meaning.code, text.append(" ").append(meaning.advice));
  };
  try {
    std::rethrow_exception(error);
  } catch (const URLError& urlError) {
    return failure(meaningOf(urlError.code()),
                   urlError.localizedDescription() + " (" + std::to_string(static_cast<int>(urlError.code())) + ")");
  } catch (const CAError& caError) {
    return failure(meaningOf(caError), caError.message + ".");
  } catch (const std::exception& other) {  // The key store's own errors say what to do.
    return {ExitCode::keyStore, other.what()};
  }
}

}  // namespace tavlo::app
