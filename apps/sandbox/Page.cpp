#include "Page.hpp"

#include <Foundation/Coding.hpp>
#include <Foundation/JSONEncoder.hpp>

#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace tavlo::sandbox {

namespace {

constexpr auto page = R"(<!doctype html>
<meta charset="utf-8">
<title>tavlo-sandbox</title>
<h1>What arrived</h1>
<ol id="arrivals"></ol>
<script src="/assets/page.js"></script>
)";

constexpr auto script = R"(
new EventSource("/events").addEventListener("arrival", event => {
  const {id, status, outcome} = JSON.parse(event.data);
  const item = document.createElement("li");
  item.textContent = `request ${id}: HTTP status ${status}, ${outcome}`;
  document.getElementById("arrivals").append(item);
});
)";

/// What the page is told of an arrival.
struct Summary {
  std::uint64_t id = 0;
  int status = 0;
  std::string outcome;

  static constexpr auto members() {
    using foundation::member;
    return std::tuple{member("id", &Summary::id), member("status", &Summary::status),
                      member("outcome", &Summary::outcome)};
  }
};

bool send(EventStream& stream, const Arrival& arrival) {
  const Answer& answer = arrival.answer;
  const Summary summary{arrival.id, arrival.status, answer.error.value_or(std::string(name(answer.status)))};
  return stream.send("arrival", foundation::textOf(foundation::JSONEncoder().encode(summary)));
}

Route fixed(std::string path, std::string type, std::string body) {
  const auto handle = [type = std::move(type), body = std::move(body)](const HTTPRequest&) {
    HTTPAnswer answer{.type = type, .body = body};
    answer.headers.emplace_back("Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'");
    return answer;
  };
  return {.method = "GET", .path = std::move(path), .onlyLoopback = true, .handle = handle};
}

}  // namespace

std::vector<Route> pageRoutes(Arrivals& arrivals) {
  const auto events = [&arrivals](const HTTPRequest&) {
    HTTPAnswer answer{.type = "text/event-stream"};
    answer.stream = [&arrivals](const std::shared_ptr<EventStream>& stream) {
      for (const auto& arrival : arrivals.subscribe([stream](const auto& added) { return send(*stream, *added); })) {
        send(*stream, *arrival);
      }
    };
    return answer;
  };
  return {fixed("/", "text/html; charset=utf-8", page),
          fixed("/assets/page.js", "text/javascript", script),
          {.method = "GET", .path = "/events", .onlyLoopback = true, .handle = events}};
}

}  // namespace tavlo::sandbox
