#include <Foundation/URLSession.hpp>

#include <Foundation/ProcessSession.hpp>
#include <Foundation/SharedService.hpp>

#include <utility>

namespace tavlo::foundation {
namespace {

constinit SharedService<URLSession> sharedSession(makeProcessSession);

}  // namespace

std::shared_ptr<URLSession> URLSession::shared() {
  return sharedSession.get();
}

std::shared_ptr<URLSession> URLSession::install(std::shared_ptr<URLSession> session) {
  return sharedSession.exchange(std::move(session));
}

URLSessionDataTask URLSession::dataTask(URLRequest request, CompletionHandler handler) {
  return {shared_from_this(), std::move(request), std::move(handler)};
}

URLSessionDataTask::URLSessionDataTask(std::shared_ptr<URLSession> session, URLRequest request,
                                       URLSession::CompletionHandler handler)
    : session_(std::move(session)), request_(std::move(request)), handler_(std::move(handler)) {}

void URLSessionDataTask::resume() {
  if (const auto session = std::exchange(session_, nullptr)) session->start(std::move(request_), std::move(handler_));
}

}  // namespace tavlo::foundation
