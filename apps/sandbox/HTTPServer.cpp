#include "HTTPServer.hpp"

#include <Foundation/NetThread.hpp>
#include <Foundation/Print.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

namespace tavlo::sandbox {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

namespace {

constexpr int threadCount = 2;                     // of each kind: for the network, and for the routes' work
constexpr std::size_t turnedAwayPolitely = 16;     // connections beyond the limit that still get an answer
constexpr std::uint32_t maximumHeadSize = 16'384;  // bytes
constexpr std::size_t maximumBuffer = 131'072;     // bytes between the socket and the parser
constexpr std::size_t maximumUnread = 1'048'576;   // bytes of events
constexpr milliseconds drainTime{5'000};           // for what a client still sends after it was answered
constexpr milliseconds drainTimeWhenStopping{300};
constexpr milliseconds pauseWithoutDescriptors{100};  // before the next attempt to accept a connection

bool isLoopbackName(std::string_view host) {
  const auto end = host.starts_with('[') ? host.find(']') : host.find(':');
  const auto name = host.substr(0, end);
  return name == "localhost" || name == "127.0.0.1" || name == "[::1";
}

std::string timeText(system_clock::time_point time) {
  const std::time_t seconds = system_clock::to_time_t(time);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S.", &parts);
  const auto fraction = std::chrono::floor<milliseconds>(time).time_since_epoch().count() % 1000;
  return text.data() + std::to_string(1000 + fraction).substr(1) + "Z";
}

std::string eventText(std::string_view event, std::string_view data) {
  std::string text = "event: " + std::string(event) + "\n";
  for (bool more = true; more;) {
    const auto end = data.find('\n');
    text.append("data: ").append(data.substr(0, end)).append("\n");
    more = end != data.npos;
    if (more) data.remove_prefix(end + 1);
  }
  return text + "\n";
}

tcp::acceptor listenAt(asio::io_context& io, const std::string& address, std::uint16_t port) {
  const tcp::endpoint endpoint(asio::ip::make_address(address), port);
  tcp::acceptor acceptor(asio::make_strand(io), endpoint.protocol());
  // Only SO_REUSEADDR: with SO_REUSEPORT a second sandbox at the same port would start and share the requests.
  acceptor.set_option(tcp::acceptor::reuse_address(true));
  if (endpoint.protocol() == tcp::v6()) acceptor.set_option(asio::ip::v6_only(true));
  acceptor.bind(endpoint);
  acceptor.listen();
  return acceptor;
}

struct Listener {
  tcp::acceptor acceptor;
  asio::steady_timer pause{acceptor.get_executor()};
};

}  // namespace

struct HTTPServer::Implementation {
  class Connection;

  explicit Implementation(Settings wanted);
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void listen();
  void run();
  void accept(Listener& listener);
  void admit(tcp::socket socket);
  void leave(Connection* connection);
  void tellAll(void (Connection::*operation)());

  Settings settings;
  std::atomic<std::uint64_t> requests = 0;
  std::atomic<std::size_t> bodyBytes = 0;
  std::atomic<std::size_t> streams = 0;
  std::atomic<bool> stopping = false;
  std::mutex mutex;
  std::condition_variable left;
  std::unordered_map<Connection*, std::weak_ptr<Connection>> connections;
  asio::ssl::context tls{asio::ssl::context::tls_server};
  asio::io_context io{threadCount};
  asio::executor_work_guard<asio::io_context::executor_type> untilStopped{io.get_executor()};
  asio::thread_pool workers{threadCount};
  std::vector<Listener> listeners;
  std::vector<std::thread> threads;
};

/// One client. Everything runs on the strand of its socket; what waits for an operation holds it, and it goes with the
/// last of them.
class HTTPServer::Implementation::Connection : public std::enable_shared_from_this<Connection> {
 public:
  /// A crowded one only gets status 503.
  Connection(Implementation& server, tcp::socket socket, bool crowded)
      : server_(server), stream_(std::move(socket), server.tls), crowded_(crowded) {}
  ~Connection() {
    hold(0);
    if (events_) --server_.streams;
    server_.leave(this);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void start() {
    onStrand([](Connection& self) { self.begin(); });
  }
  /// Ends once no request is under way any more.
  void finish() {
    onStrand([](Connection& self) {
      if (self.phase_ != Phase::serving) self.close();
    });
  }
  /// Ends at once.
  void end() {
    onStrand([](Connection& self) { self.close(); });
  }
  void send(std::string text) {
    onStrand([text = std::move(text)](Connection& self) mutable { self.queue(std::move(text)); });
  }
  [[nodiscard]] bool isOpen() const { return isOpen_; }

 private:
  using Parser = http::request_parser<http::vector_body<std::uint8_t>>;
  enum class Phase { waiting, serving, streaming, ending };

  [[nodiscard]] tcp::socket& socket() { return stream_.next_layer(); }
  [[nodiscard]] const Limits& limits() const { return server_.settings.limits; }

  template <class Operation>
  void onStrand(Operation operation) {
    asio::post(stream_.get_executor(),
               [self = shared_from_this(), operation = std::move(operation)]() mutable { operation(*self); });
  }
  /// A handler that goes on with `step` unless the operation failed: then the connection ends here.
  auto then(void (Connection::*step)()) {
    return [self = shared_from_this(), step](error_code error, std::size_t = 0) {
      if (!error) ((*self).*step)();
    };
  }
  void close() {
    isOpen_ = false;
    error_code ignored;
    pause_.cancel(ignored);
    socket().close(ignored);
  }

  /// From now on all operations together may take `time`; then they are cancelled and `late_` is set.
  void limit(milliseconds time) {
    late_ = false;
    watch(time);
  }
  void watch(milliseconds time) {
    deadline_.expires_after(time);
    deadline_.async_wait([weak = weak_from_this()](error_code error) {
      const auto self = weak.lock();
      if (error || !self || self->deadline_.expiry() > steady_clock::now()) return;
      self->late_ = true;
      error_code ignored;
      self->socket().cancel(ignored);
      self->watch(milliseconds(100));  // an operation that was just between two steps is caught then
    });
  }

  /// Counts `size` bytes as this connection's share of the memory for bodies; false when that is more than there is.
  bool hold(std::size_t size) {
    const std::size_t all = server_.bodyBytes += size - held_;
    held_ = size;
    return all <= limits().bodyMemory;
  }

  // ---- The request ----

  void begin() {
    error_code ignored;
    socket().set_option(tcp::no_delay(true), ignored);
    limit(limits().head);
    stream_.async_handshake(asio::ssl::stream_base::server, then(&Connection::readHead));
  }

  void readHead() {
    phase_ = Phase::waiting;
    route_ = nullptr;
    request_ = {};
    received_ = 0;
    parser_.emplace();
    parser_->header_limit(maximumHeadSize);
    std::size_t largest = 0;
    for (const Route& route : server_.settings.routes) largest = std::max(largest, route.maximumBodySize);
    parser_->body_limit(largest);
    http::async_read_header(stream_, buffer_, *parser_,
                            [self = shared_from_this()](error_code error, std::size_t) { self->takeHead(error); });
  }

  void takeHead(error_code error) {
    const bool isAnswerable = !error || error.category() == make_error_code(http::error::bad_method).category();
    if (late_ || !isAnswerable || error == http::error::end_of_stream) return close();
    phase_ = Phase::serving;
    request_.id = ++server_.requests;
    request_.received = system_clock::now();
    begun_ = steady_clock::now();
    if (error == http::error::body_limit) return refuse(413, "the body is too large");
    if (error == http::error::header_limit) return refuse(431, "the head of the request is too large");
    if (error) return refuse(400, "not a request that can be served");
    if (crowded_) return refuse(503, "too many connections at once");

    const auto& head = parser_->get();
    const std::string_view target(head.target().data(), head.target().size());
    const auto question = target.find('?');
    request_.path = target.substr(0, question);
    if (question != target.npos) request_.query = target.substr(question + 1);
    if (!findRoute()) return;
    const auto type = head[http::field::content_type];
    const auto coding = head[http::field::content_encoding];
    if (!coding.empty() || boost::beast::iequals(type.substr(0, 10), "multipart/")) {
      return refuse(415, "the body must be sent as it is, neither compressed nor as a form");
    }
    if (parser_->content_length().value_or(0) > route_->maximumBodySize) return refuse(413, "the body is too large");
    parser_->body_limit(route_->maximumBodySize);
    limit(limits().body);
    if (!parser_->is_done() && boost::beast::iequals(head[http::field::expect], "100-continue")) {
      asio::async_write(stream_, asio::buffer(std::string_view("HTTP/1.1 100 Continue\r\n\r\n")),
                        then(&Connection::readBody));
    } else {
      readBody();
    }
  }

  /// Finds what answers the request, or refuses it.
  bool findRoute() {
    const auto& head = parser_->get();
    const auto host = head[http::field::host];
    error_code error;
    const bool isLocal =
        socket().remote_endpoint(error).address().is_loopback() && !error && isLoopbackName({host.data(), host.size()});
    std::string allowed;
    for (const Route& route : server_.settings.routes) {
      const bool fits = route.path == request_.path ||
                        (route.path.size() > 1 && route.path.ends_with('/') && request_.path.starts_with(route.path));
      if (!fits || (route.onlyLoopback && !isLocal)) continue;
      route_ = &route;
      if (head.method_string() == route.method) return true;
      allowed += (allowed.empty() ? "" : ", ") + route.method;
    }
    HTTPAnswer answer = allowed.empty() ? server_.settings.refuse(404, "there is nothing at this path")
                                        : server_.settings.refuse(405, "only " + allowed + " is served here");
    if (!allowed.empty()) answer.headers.emplace_back("Allow", allowed);
    answerWith(std::move(answer));
    return false;
  }

  void readBody() {
    if (parser_->is_done()) return work();
    http::async_read_some(stream_, buffer_, *parser_,
                          [self = shared_from_this()](error_code error, std::size_t) { self->takeBody(error); });
  }

  void takeBody(error_code error) {
    received_ = parser_->get().body().size();
    if (late_) return refuse(408, "the body took too long");
    if (error == http::error::body_limit) return refuse(413, "the body is too large");
    if (error) return refuse(400, "the body ended early or is broken");
    if (!hold(received_)) return refuse(503, "too many large bodies at once");
    readBody();
  }

  /// Has the route answer, on a thread for such work.
  void work() {
    deadline_.cancel();
    request_.receiving = std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begun_);
    request_.body = std::move(parser_->get().body());
    asio::post(server_.workers, [self = shared_from_this()] {
      HTTPAnswer answer;
      try {
        answer = self->route_->handle(std::move(self->request_));
      } catch (...) {
        answer = self->server_.settings.refuse(500, "a fault of the sandbox itself");
      }
      self->onStrand([answer = std::move(answer)](Connection& same) mutable {
        same.hold(0);
        same.answerWith(std::move(answer));
      });
    });
  }

  void refuse(int status, std::string reason) { answerWith(server_.settings.refuse(status, std::move(reason))); }

  // ---- The answer ----

  void answerWith(HTTPAnswer answer) {
    if (answer.stream && server_.streams.fetch_add(1) >= limits().streams) {
      --server_.streams;
      answer = server_.settings.refuse(503, "too many streams of events at once");
    }
    events_ = std::move(answer.stream);
    delivery_ = std::move(answer.delivery);
    const bool isBare = parser_->get().method() == http::verb::head || answer.status == 204 || answer.status == 304;
    if (isBare) answer.body.clear();
    goesOn_ = parser_->is_done() && parser_->keep_alive() && parser_->get().version() == 11 && !crowded_ &&
              !server_.stopping && !events_ && !delivery_.cut && !delivery_.drops && !delivery_.headless;

    const std::string head = delivery_.headless ? "" : headOf(answer);
    out_ = head + answer.body;
    size_ = delivery_.cut ? std::min(delivery_.cut(head.size(), out_.size()), out_.size()) : out_.size();
    sent_ = 0;
    log(answer);
    limit(limits().answer + delivery_.delay + delivery_.perByte * static_cast<milliseconds::rep>(size_));
    if (delivery_.delay == delivery_.delay.zero()) return sendMore();
    pause_.expires_after(delivery_.delay);
    pause_.async_wait(then(&Connection::sendMore));
  }

  [[nodiscard]] std::string headOf(const HTTPAnswer& answer) const {
    const auto reason = http::obsolete_reason(http::int_to_status(static_cast<unsigned>(answer.status)));
    std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " " + std::string(reason) +
                       "\r\nSandbox: true\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
    if (!answer.type.empty()) head += "Content-Type: " + answer.type + "\r\n";
    for (const auto& [name, value] : answer.headers) head.append(name).append(": ").append(value).append("\r\n");
    if (!events_ && answer.status != 204) head += "Content-Length: " + std::to_string(answer.body.size()) + "\r\n";
    if (!goesOn_) head += "Connection: close\r\n";
    return head + "\r\n";
  }

  void log(const HTTPAnswer& answer) const {
    const auto method = parser_->get().method();
    const auto time = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begun_);
    foundation::print("time=" + timeText(system_clock::now()) + " id=" + std::to_string(request_.id) +
                      " method=" + (method == http::verb::unknown ? "-" : std::string(http::to_string(method))) +
                      " path=" + (route_ == nullptr ? "-" : route_->path) + " status=" + std::to_string(answer.status) +
                      " ms=" + std::to_string(time.count()) + " in=" + std::to_string(received_) +
                      " out=" + std::to_string(size_) + (answer.note.empty() ? "" : " ") + answer.note);
  }

  void sendMore() {
    if (late_) return close();
    if (sent_ == size_) return sentAll();
    const std::size_t count = delivery_.perByte == delivery_.perByte.zero() ? size_ : 1;
    asio::async_write(stream_, asio::buffer(out_.data() + sent_, count), then(&Connection::waitAndSend));
    sent_ += count;
  }
  void waitAndSend() {
    if (sent_ == size_) return sentAll();
    pause_.expires_after(delivery_.perByte);
    pause_.async_wait(then(&Connection::sendMore));
  }

  void sentAll() {
    if (delivery_.drops) return close();
    if (events_) return streamEvents();
    if (goesOn_ && !server_.stopping) {
      limit(limits().head);
      return readHead();
    }
    phase_ = Phase::ending;
    limit(server_.stopping ? drainTimeWhenStopping : drainTime);
    stream_.async_shutdown([self = shared_from_this()](error_code) {
      error_code error;
      self->socket().shutdown(tcp::socket::shutdown_send, error);
      if (!error) self->drain();
    });
  }
  /// Takes what the client still sends: closed with bytes unread, a connection is reset and the answer may be lost.
  void drain() {
    if (late_) return close();
    socket().async_read_some(asio::buffer(scrap_), then(&Connection::drain));
  }

  // ---- Events ----

  class Events final : public EventStream {
   public:
    explicit Events(std::weak_ptr<Connection> connection) : connection_(std::move(connection)) {}
    bool send(std::string_view event, std::string_view data) override {
      const auto connection = connection_.lock();
      if (!connection || !connection->isOpen()) return false;
      connection->send(eventText(event, data));
      return true;
    }

   private:
    std::weak_ptr<Connection> connection_;
  };

  void streamEvents() {
    if (server_.stopping) return close();
    phase_ = Phase::streaming;
    out_.clear();
    deadline_.cancel();
    awaitLeave();
    beat();
    events_(std::make_shared<Events>(weak_from_this()));
  }
  /// Nothing more is expected of the client: it is only noticed when it goes.
  void awaitLeave() {
    stream_.async_read_some(asio::buffer(scrap_), [self = shared_from_this()](error_code error, std::size_t) {
      if (error) return self->close();
      self->awaitLeave();
    });
  }
  void beat() {
    pause_.expires_after(limits().heartbeat);
    pause_.async_wait([self = shared_from_this()](error_code error) {
      if (error || !self->isOpen_) return;
      self->queue(":\n\n");
      self->beat();
    });
  }
  void queue(std::string text) {
    if (!isOpen_) return;
    unread_ += text.size();
    if (unread_ > maximumUnread) return close();
    queue_.push_back(std::move(text));
    if (queue_.size() == 1) sendQueued();
  }
  void sendQueued() {
    limit(limits().answer);
    asio::async_write(stream_, asio::buffer(queue_.front()),
                      [self = shared_from_this()](error_code error, std::size_t) {
                        if (error) return self->close();
                        self->deadline_.cancel();
                        self->unread_ -= self->queue_.front().size();
                        self->queue_.pop_front();
                        if (!self->queue_.empty()) self->sendQueued();
                      });
  }

  Implementation& server_;
  asio::ssl::stream<tcp::socket> stream_;
  asio::steady_timer deadline_{stream_.get_executor()};
  asio::steady_timer pause_{stream_.get_executor()};
  const bool crowded_;
  Phase phase_ = Phase::waiting;
  bool late_ = false;
  std::atomic<bool> isOpen_ = true;

  boost::beast::flat_buffer buffer_{maximumBuffer};
  std::optional<Parser> parser_;
  const Route* route_ = nullptr;
  HTTPRequest request_;
  steady_clock::time_point begun_;
  std::size_t held_ = 0;
  std::size_t received_ = 0;

  Delivery delivery_;
  bool goesOn_ = false;
  std::string out_;
  std::size_t size_ = 0;
  std::size_t sent_ = 0;
  std::array<char, 4096> scrap_{};

  std::function<void(std::shared_ptr<EventStream>)> events_;
  std::deque<std::string> queue_;
  std::size_t unread_ = 0;
};

HTTPServer::Implementation::Implementation(Settings wanted) : settings(std::move(wanted)) {
  const std::string identity = settings.identity.string();
  error_code error;
  SSL_CTX_set_min_proto_version(tls.native_handle(), TLS1_2_VERSION);
  if (tls.use_certificate_chain_file(identity, error) || tls.use_private_key_file(identity, tls.pem, error)) {
    throw std::runtime_error("the server's certificate in " + identity + " cannot be used: remove that file");
  }
  listen();
  for (int i = 0; i < threadCount; ++i) {
    threads.push_back(foundation::startNetThread("http", [this] { run(); }));
  }
  for (Listener& listener : listeners) accept(listener);
}

HTTPServer::Implementation::~Implementation() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  for (Listener& listener : listeners) {
    asio::post(listener.acceptor.get_executor(), [&listener] {
      listener.acceptor.close();
      listener.pause.cancel();
    });
  }
  tellAll(&Connection::finish);
  {
    std::unique_lock lock(mutex);
    left.wait_for(lock, settings.limits.stop, [this] { return connections.empty(); });
  }
  tellAll(&Connection::end);
  workers.stop();
  workers.join();
  untilStopped.reset();
  for (std::thread& thread : threads) thread.join();
}

/// Listens at the port that is asked for, or at one that is free on all addresses.
void HTTPServer::Implementation::listen() {
  for (int attempt = 1; listeners.empty(); ++attempt) {
    std::uint16_t port = settings.port;
    for (const std::string& address : settings.addresses) {
      try {
        listeners.push_back({listenAt(io, address, port)});
        port = listeners.back().acceptor.local_endpoint().port();
      } catch (const boost::system::system_error& error) {
        listeners.clear();
        if (settings.port == 0 && attempt < 10) break;
        throw PortError("cannot listen on " + address + " at port " + std::to_string(port) + ": " +
                        error.code().message() +
                        ". Stop the program that uses the port, or choose another one with --port.");
      }
    }
    if (!listeners.empty()) settings.port = port;
  }
}

/// Without memory for it, say, an operation throws, and its connection goes with it; the others are served on.
void HTTPServer::Implementation::run() {
  for (bool hasFailed = true; hasFailed;) {
    try {
      io.run();
      hasFailed = false;
    } catch (const std::exception&) {
      foundation::print("A connection was given up: not enough memory, or a fault of the sandbox itself.");
    }
  }
}

void HTTPServer::Implementation::accept(Listener& listener) {
  listener.acceptor.async_accept(asio::make_strand(io), [this, &listener](error_code error, tcp::socket socket) {
    if (stopping) return;
    if (!error) {
      admit(std::move(socket));
      return accept(listener);
    }
    listener.pause.expires_after(pauseWithoutDescriptors);
    listener.pause.async_wait([this, &listener](error_code cancelled) {
      if (!cancelled) accept(listener);
    });
  });
}

void HTTPServer::Implementation::admit(tcp::socket socket) {
  std::shared_ptr<Connection> connection;
  {
    const std::lock_guard lock(mutex);
    const std::size_t limit = settings.limits.connections;
    if (stopping || connections.size() >= limit + turnedAwayPolitely) return;
    connection = std::make_shared<Connection>(*this, std::move(socket), connections.size() >= limit);
    connections.emplace(connection.get(), connection);
  }
  connection->start();
}

void HTTPServer::Implementation::leave(Connection* connection) {
  const std::lock_guard lock(mutex);
  connections.erase(connection);
  left.notify_all();
}

void HTTPServer::Implementation::tellAll(void (Connection::*operation)()) {
  std::vector<std::shared_ptr<Connection>> all;
  {
    const std::lock_guard lock(mutex);
    for (const auto& [key, weak] : connections) {
      if (auto connection = weak.lock()) all.push_back(std::move(connection));
    }
  }
  for (const auto& connection : all) ((*connection).*operation)();
}

HTTPServer::HTTPServer(Settings settings) : implementation_(std::make_unique<Implementation>(std::move(settings))) {}

HTTPServer::~HTTPServer() = default;

std::uint16_t HTTPServer::port() const noexcept {
  return implementation_->settings.port;
}

bool canListenAt(const std::string& address) {
  try {
    asio::io_context io;
    (void)listenAt(io, address, 0);
    return true;
  } catch (const boost::system::system_error&) {
    return false;
  }
}

}  // namespace tavlo::sandbox
