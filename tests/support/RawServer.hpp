#pragma once

#include <Foundation/NetThread.hpp>

#include <openssl/ssl.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
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

  /// One client, on a thread of its own. When the handler returns, the connection is closed properly: what the client
  /// still sends is drained, so that it sees no reset.
  class Connection {
   public:
    /// Waits for `size` bytes in all, whatever they are; false when the client has gone before.
    bool receive(std::size_t size) {
      for (char part[65536]; received_.size() < size;) {
        const int count = BIO_read(stream_, part, sizeof part);
        if (count <= 0) return false;
        received_.append(part, static_cast<std::size_t>(count));
      }
      return true;
    }
    /// The next request with its body; absent when the client has gone.
    std::optional<Request> read() {
      while (received_.find("\r\n\r\n") == received_.npos) {
        if (!receive(received_.size() + 1)) return std::nullopt;
      }
      const auto headSize = received_.find("\r\n\r\n") + 4, length = received_.find("Content-Length: ");
      const auto size = headSize + (length < headSize ? std::stoul(received_.substr(length + 16)) : 0);
      if (!receive(size)) return std::nullopt;
      const Request request{received_.substr(0, headSize), received_.substr(headSize, size - headSize)};
      received_.erase(0, size);
      const std::lock_guard lock(server_.mutex_);
      if (server_.requests_.size() < 5000) server_.requests_.push_back(request);
      return request;
    }
    /// False when the client has gone.
    bool send(const std::string& bytes) {
      const int size = static_cast<int>(bytes.size());
      return BIO_write(stream_, bytes.data(), size) == size;
    }
    /// Closes at once, without a word in TLS or, with `reset`, in TCP.
    void close(bool reset = false) {
      const linger none{1, 0};
      if (reset) setsockopt(socketOf(stream_), SOL_SOCKET, SO_LINGER, &none, sizeof none);
      if (!reset) shutdown(socketOf(stream_), SHUT_RDWR);
      BIO_free_all(stream_);
      stream_ = nullptr;
    }

   private:
    friend RawServer;
    Connection(RawServer& server, BIO* stream) : server_(server), stream_(stream) {}
    ~Connection() {
      if (stream_ == nullptr) return;
      if (server_.tls_ != nullptr) BIO_ssl_shutdown(stream_);
      shutdown(socketOf(stream_), SHUT_WR);
      for (char rest[65536]; recv(socketOf(stream_), rest, sizeof rest, 0) > 0;) continue;
      close();
    }

    RawServer& server_;
    BIO* stream_;
    std::string received_;
  };

  /// `tls` makes it a TLS server and must outlive it.
  explicit RawServer(std::function<void(Connection&)> handler, SSL_CTX* tls = nullptr)
      : handler_(std::move(handler)), tls_(tls) {
    if (tls != nullptr) BIO_set_accept_bios(listener_, BIO_new_ssl(tls, 0));
    BIO_do_accept(listener_);
    listen(socketOf(listener_), 1024);
    port = BIO_get_accept_port(listener_);
    acceptor_ = std::thread([this] { acceptAll(); });
  }
  /// Waits for the handlers: clients go first.
  ~RawServer() {
    shutdown(socketOf(listener_), SHUT_RDWR);
    acceptor_.join();
    std::unique_lock lock(mutex_);
    ended_.wait(lock, [this] { return handling_ == 0; });
    BIO_free_all(listener_);
  }

  [[nodiscard]] std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const {
    return (tls_ != nullptr ? "https://" : "http://") + host + ":" + port + path;
  }
  /// The first 5000 that have been read whole, in their order.
  [[nodiscard]] std::vector<Request> requests() {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

  std::string port;
  /// How many have been accepted.
  std::atomic<unsigned> connections = 0;

 private:
  static int socketOf(BIO* stream) { return static_cast<int>(BIO_get_fd(stream, nullptr)); }

  void acceptAll() {
    while (BIO_do_accept(listener_) > 0) {
      ++connections;
      ++handling_;
      // Without signals: writing to a client that has gone raises one.
      foundation::startNetThread("server", [this, stream = BIO_pop(listener_)] {
        {
          Connection connection(*this, stream);
          handler_(connection);
        }
        const std::lock_guard lock(mutex_);
        if (--handling_ == 0) ended_.notify_one();
      }).detach();
    }
  }

  const std::function<void(Connection&)> handler_;
  SSL_CTX* const tls_;
  BIO* const listener_ = BIO_new_accept("127.0.0.1:0");
  std::mutex mutex_;
  std::vector<Request> requests_;
  std::atomic<int> handling_ = 0;
  std::condition_variable ended_;
  std::thread acceptor_;
};

}  // namespace tavlo::test
