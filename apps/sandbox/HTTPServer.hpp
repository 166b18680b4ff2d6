#pragma once

#include <Foundation/Data.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavlo::sandbox {

/// The port cannot be had; says why and what to do.
class PortError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A request that was read whole.
struct HTTPRequest {
  std::uint64_t id = 0;  ///< counts the requests of a server, from 1
  std::string path;      ///< without the query
  std::string query;     ///< what follows the "?"
  foundation::Data body;
  std::chrono::system_clock::time_point received;  ///< when its head was there
  std::chrono::microseconds receiving{0};          ///< from then until its body was there
};

/// How an answer is brought to the client, where that is other than at once and whole.
struct Delivery {
  std::chrono::milliseconds delay{0};    ///< before the first byte
  std::chrono::milliseconds perByte{0};  ///< before each byte, which is then sent by itself; 0 sends all at once
  /// How many bytes are sent of an answer, given the size of its head and of the whole. All when it is empty.
  std::function<std::size_t(std::size_t headSize, std::size_t size)> cut;
  bool drops = false;     ///< ends the connection without a word, in TLS neither
  bool headless = false;  ///< sends the body alone, which then is the whole answer
};

/// A long-lived answer of server-sent events (WHATWG HTML, "text/event-stream") to one client. Any thread.
class EventStream {
 public:
  virtual ~EventStream() = default;
  /// Sends one event; `data` may have several lines. Never waits: a client that leaves more than 1 MiB unread is cut
  /// off. False when the client has gone, and for good then.
  virtual bool send(std::string_view event, std::string_view data) = 0;
};

struct HTTPAnswer {
  int status = 200;
  std::string type{};  ///< the media type of the body
  std::string body{};
  std::vector<std::pair<std::string, std::string>> headers{};  ///< beside those that every answer has
  std::string note{};                                          ///< ends the line of the log, such as "verdict=passed"
  Delivery delivery{};
  /// Where there is one, the answer is a stream of events instead of a body; called when its head is on the way.
  std::function<void(std::shared_ptr<EventStream>)> stream{};
};

/// What a server answers at one path with one method.
struct Route {
  std::string method;  ///< "GET" or "POST"
  std::string path;    ///< one that ends in "/" stands for all below it
  std::size_t maximumBodySize = 0;
  /// Answers only a client on this machine that calls it by a loopback name; anybody else finds nothing there. The name
  /// counts because a page of another site may have its own name lead to this machine.
  bool onlyLoopback = false;
  /// Called on one of few threads for such work; an exception gives status 500.
  std::function<HTTPAnswer(HTTPRequest)> handle;
};

/// An HTTPS server (RFC 9112, HTTP/1.1) for several connections at once on a few threads of its own. It holds no thread
/// for a client that waits, and gives each one a limited time. Prints one line for each request, without anything that
/// the client sent but the method and path of a route.
class HTTPServer {
 public:
  struct Limits {
    std::chrono::milliseconds head{10'000};       ///< for connecting, TLS and the head of a request, or until the next
    std::chrono::milliseconds body{120'000};      ///< for the body
    std::chrono::milliseconds answer{30'000};     ///< for taking the answer, beyond what its delivery asks for
    std::chrono::milliseconds stop{3'000};        ///< for finishing what is under way when the server stops
    std::chrono::milliseconds heartbeat{15'000};  ///< between the signs of life in a stream of events
    std::size_t connections = 64;                 ///< beyond them a few more get status 503, others nothing
    std::size_t streams = 8;                      ///< streams of events; counted among the connections, too
    std::size_t bodyMemory = std::size_t{256} << 20;  ///< bytes of all bodies that are being read or worked on
  };
  struct Settings {
    std::uint16_t port = 0;              ///< 0 takes a free one
    std::vector<std::string> addresses;  ///< IP addresses to listen at
    std::filesystem::path identity;      ///< key and certificate in PEM
    std::vector<Route> routes;
    /// The answer to what no route takes, or when something fails: a status and the reason why.
    std::function<HTTPAnswer(int status, std::string reason)> refuse;
    Limits limits{};
  };

  /// Listens when this returns. Throws PortError, and std::runtime_error when the identity cannot be used.
  explicit HTTPServer(Settings settings);
  /// Stops: takes no new request, lets those under way finish for `Limits::stop`, then ends them.
  ~HTTPServer();
  HTTPServer(const HTTPServer&) = delete;
  HTTPServer& operator=(const HTTPServer&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

/// Whether this machine lets a program listen at the IP address `address`.
[[nodiscard]] bool canListenAt(const std::string& address);

}  // namespace tavlo::sandbox
