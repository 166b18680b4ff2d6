#pragma once

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tavlo::test {

/// A server on this machine whose handler decides byte by byte what a client gets, right or wrong.
class RawServer {
 public:
  struct Request {
    /// With its line ends and the blank line.
    std::string head;
    std::string body;
  };

  /// One client; a handler runs on a thread of its own. When it returns, what the client still sends is drained and the
  /// connection closed properly, unless `close` or `reset` has been called.
  class Connection {
   public:
    /// The next request with its body; absent when the client has gone.
    std::optional<Request> read() {
      if (!fill([this] { return received_.find("\r\n\r\n") != received_.npos; })) return std::nullopt;
      const auto headSize = received_.find("\r\n\r\n") + 4;
      const auto field = received_.find("Content-Length: ");
      const auto bodySize = field < headSize ? std::strtoul(&received_[field + 16], nullptr, 10) : 0;
      if (!fill([&] { return received_.size() >= headSize + bodySize; })) return std::nullopt;
      Request request{received_.substr(0, headSize), received_.substr(headSize, bodySize)};
      received_.erase(0, headSize + bodySize);
      const std::lock_guard lock(server_.mutex_);
      return server_.requests_.emplace_back(std::move(request));
    }
    /// Waits until `size` bytes have come, whatever they are; false when the client has gone before.
    bool receive(std::size_t size) {
      return fill([&] { return received_.size() >= size; });
    }
    /// False when the client has gone.
    bool send(std::string_view bytes) {
      while (!bytes.empty()) {
        const auto sent = ssl_ ? SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size()))
                               : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      }
      return true;
    }
    /// Closes at once, without a word in TLS.
    void close() {
      const std::lock_guard lock(server_.mutex_);
      if (server_.open_.erase(socket_) != 0) ::close(std::exchange(socket_, -1));
    }
    /// Closes at once so that the client sees a reset.
    void reset() {
      const linger now{1, 0};
      setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
      close();
    }

   private:
    friend RawServer;
    Connection(RawServer& server, int socket) : server_(server), socket_(socket) {}

    bool begin() {
      if (server_.tls_ == nullptr) return true;
      ssl_.reset(SSL_new(server_.tls_));
      SSL_set_fd(ssl_.get(), socket_);
      return SSL_accept(ssl_.get()) == 1;
    }
    void end() {
      if (socket_ < 0) return;
      if (ssl_) SSL_shutdown(ssl_.get());
      shutdown(socket_, SHUT_WR);
      char rest[65536];
      while (recv(socket_, rest, sizeof rest, 0) > 0) continue;
      close();
    }
    template <class Condition>
    bool fill(Condition isEnough) {
      while (!isEnough()) {
        char part[65536];
        const auto size = ssl_ ? SSL_read(ssl_.get(), part, sizeof part) : recv(socket_, part, sizeof part, 0);
        if (size <= 0) return false;
        received_.append(part, static_cast<std::size_t>(size));
      }
      return true;
    }

    RawServer& server_;
    int socket_;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, SSL_free};
    std::string received_;
  };
  using Handler = std::function<void(Connection&)>;

  /// `tls` makes it a TLS server and must outlive it.
  explicit RawServer(Handler handler, SSL_CTX* tls = nullptr) : handler_(std::move(handler)), tls_(tls) {
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener_, 1024) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::system_error(errno, std::generic_category(), "RawServer");
    }
    port_ = std::to_string(ntohs(address.sin_port));
    acceptor_ = std::thread([this] { acceptAll(); });
  }
  ~RawServer() {
    shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    {
      const std::lock_guard lock(mutex_);
      for (const int socket : open_) shutdown(socket, SHUT_RDWR);
    }
    for (auto& thread : threads_) thread.join();
    ::close(listener_);
  }
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;

  [[nodiscard]] const std::string& port() const { return port_; }
  [[nodiscard]] std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const {
    return (tls_ ? "https://" : "http://") + host + ":" + port_ + path;
  }
  /// Those that have been read whole, in their order.
  [[nodiscard]] std::vector<Request> requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  /// How many have been accepted, TLS or not.
  [[nodiscard]] std::size_t connections() {
    const std::lock_guard lock(mutex_);
    return accepted_;
  }

 private:
  void acceptAll() {
    for (int socket; (socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
      const std::lock_guard lock(mutex_);
      open_.insert(socket);
      ++accepted_;
      threads_.emplace_back([this, socket] {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        Connection connection(*this, socket);
        if (connection.begin()) handler_(connection);
        connection.end();
      });
    }
  }

  const Handler handler_;
  SSL_CTX* const tls_;
  const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::string port_;
  std::mutex mutex_;
  std::set<int> open_;
  std::size_t accepted_ = 0;
  std::vector<Request> requests_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace tavlo::test
