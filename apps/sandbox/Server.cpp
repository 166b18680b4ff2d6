#include "Server.hpp"

#include <Foundation/JSONEncoder.hpp>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "Checks.hpp"
#include "History.hpp"
#include "Issuer.hpp"
#include "Page.hpp"
#include "Request.hpp"

namespace tavlo::sandbox {

using std::chrono::steady_clock;

namespace {

constexpr auto ipv6 = "::1";

std::chrono::year_month_day today() {
  return std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
}

HTTPAnswer httpAnswer(int status, const Answer& answer) {
  return {.status = status,
          .type = "application/json",
          .body = std::string(foundation::textOf(foundation::JSONEncoder().encode(answer))),
          .note = noteOf(answer)};
}

}  // namespace

struct Server::Implementation {
  Implementation(const Authority& authority, Settings wanted)
      : settings(std::move(wanted)), history(settings.state), issuer(settings.state) {
    std::vector<std::string> addresses = {"127.0.0.1"};
    if (hasIPv6) addresses.emplace_back(ipv6);
    for (const std::string& address : settings.addresses) {
      if (std::ranges::find(addresses, address) == addresses.end()) addresses.push_back(address);
    }
    std::vector<Route> routes = pageRoutes(arrivals);
    routes.push_back({.method = "POST",
                      .path = "/verify",
                      .maximumBodySize = maximumBodySize,
                      .handle = [this](HTTPRequest request) { return verify(std::move(request)); }});
    http.emplace(HTTPServer::Settings{
        .port = settings.port,
        .addresses = std::move(addresses),
        .identity = authority.serverIdentity,
        .routes = std::move(routes),
        .refuse = [](int status, std::string why) { return httpAnswer(status, refusal(std::move(why))); },
        .limits = settings.limits});
  }

  HTTPAnswer verify(HTTPRequest sent) {
    Arrival arrival;
    arrival.id = sent.id;
    arrival.received = sent.received;
    arrival.receiving = sent.receiving;
    arrival.bodySize = sent.body.size();
    Scenario scenario = settings.scenario;
    const auto begun = steady_clock::now();
    try {
      arrival.request = Request::decode(sent.body);
      const auto decoded = steady_clock::now();
      arrival.decoding = decoded - begun;
      if (scenario.name.empty()) scenario = Scenario::forDocument(arrival.request->model.documentNumber());
      arrival.answer = check(*arrival.request, settings.anchors, today(), &history);
      scenario.apply(arrival.answer);
      const auto& key = arrival.request->publicKey;
      if (arrival.answer.status == Result::passed && key) arrival.answer.signing = Signature{issuer.issue(*key)};
      arrival.checking = steady_clock::now() - decoded;
    } catch (const RefusedBody& refused) {
      arrival.decoding = steady_clock::now() - begun;
      arrival.answer = refusal(refused.what());
      arrival.status = 400;
    }
    const bool hasBeenRedirected = !scenario.location.empty() && sent.query == redirectedQuery;
    if (scenario.status && !hasBeenRedirected) arrival.status = *scenario.status;
    HTTPAnswer answer = httpAnswer(arrival.status, arrival.answer);
    if (!scenario.name.empty()) answer.note += " scenario=" + scenario.name;
    if (!scenario.location.empty() && !hasBeenRedirected) answer.headers.emplace_back("Location", scenario.location);
    if (scenario.isBare) answer.body.clear();
    answer.delivery = scenario.delivery;

    arrival.scenario = scenario.name;
    arrival.body = std::move(sent.body);
    arrivals.add(std::move(arrival));
    return answer;
  }

  const Settings settings;
  const bool hasIPv6 = canListenAt(ipv6);
  History history;
  const Issuer issuer;
  Arrivals arrivals;
  std::optional<HTTPServer> http;  // the first to go: its threads use the others
};

Server::Server(const Authority& authority, Settings settings)
    : implementation_(std::make_unique<Implementation>(authority, std::move(settings))) {}

Server::~Server() = default;

std::uint16_t Server::port() const noexcept {
  return implementation_->http->port();
}

bool Server::listensOnIPv6() const noexcept {
  return implementation_->hasIPv6;
}

Arrivals& Server::arrivals() noexcept {
  return implementation_->arrivals;
}

}  // namespace tavlo::sandbox
