#pragma once

#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

#include <openssl/bio.h>

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tavlo::bench {

/// A fast HTTP server on this machine, one thread a connection, connections kept. It answers each request with the
/// length of its body and its Adler-32, as in "1000 1a2b3c4d".
class Server {
 public:
  /// With a certificate that serves HTTPS; it must outlive the server.
  explicit Server(const test::TestCertificate* certificate = nullptr);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] const std::string& url() const { return url_; }
  /// What it answers to `body`.
  [[nodiscard]] static std::string answerTo(std::string_view body);

 private:
  void accept();
  void serve(int socket);

  std::shared_ptr<SSL_CTX> tls_;
  int listener_;
  std::string url_;
  std::mutex mutex_;
  std::vector<int> sockets_;
  std::vector<std::jthread> threads_;
  std::jthread acceptor_;
};

/// A plain and a TLS server. SSL_CERT_FILE is set, for the whole process, to a file that makes the library trust it.
struct Servers {
  Servers();

  test::TemporaryFolder folder;
  const std::string trustFile = folder / "ca.pem";
  const test::TestCertificate certificate{"IP:127.0.0.1"};
  Server plain, tls{&certificate};
};

}  // namespace tavlo::bench
