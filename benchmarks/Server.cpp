#include "Server.hpp"

#include <arpa/inet.h>
#include <libdeflate.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace tavlo::bench {
namespace {

std::string answer(std::size_t length, std::uint32_t sum) {
  char text[40];
  std::snprintf(text, sizeof text, "%zu %08x", length, sum);
  return text;
}

}  // namespace

std::string Server::answerTo(std::string_view body) {
  return answer(body.size(), libdeflate_adler32(1, body.data(), body.size()));
}

Server::Server(const test::TestCertificate* certificate)
    : tls_(certificate == nullptr ? nullptr : certificate->serverContext()),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener_, 1024) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("cannot serve on this machine");
  }
  url_ = (tls_ ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(ntohs(address.sin_port)) + "/";
  acceptor_ = std::jthread([this] { accept(); });
}

Server::~Server() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  {
    const std::lock_guard lock(mutex_);
    for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
  }
  threads_.clear();
  close(listener_);
}

void Server::accept() {
  for (int socket; (socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    const std::lock_guard lock(mutex_);
    sockets_.push_back(socket);
    threads_.emplace_back([this, socket] { serve(socket); });
  }
}

void Server::serve(int socket) {
  BIO* stream = BIO_new_socket(socket, BIO_NOCLOSE);
  if (tls_) stream = BIO_push(BIO_new_ssl(tls_.get(), 0), stream);
  stream = BIO_push(BIO_new(BIO_f_buffer()), stream);
  char part[65536];
  for (int size = 1; size > 0;) {
    std::size_t length = 0;
    while ((size = BIO_gets(stream, part, sizeof part)) > 2) {
      if (std::string_view(part).starts_with("Content-Length: ")) length = std::strtoul(part + 16, nullptr, 10);
    }
    std::uint32_t sum = 1;
    for (std::size_t left = length; left > 0 && size > 0; left -= static_cast<std::size_t>(size)) {
      size = BIO_read(stream, part, static_cast<int>(std::min(left, sizeof part)));
      if (size > 0) sum = libdeflate_adler32(sum, part, static_cast<std::size_t>(size));
    }
    if (size <= 0) break;
    const std::string body = answer(length, sum);
    BIO_printf(stream, "HTTP/1.1 200 OK\r\nContent-Length: %zu\r\n\r\n%s", body.size(), body.c_str());
    size = BIO_flush(stream);
  }
  BIO_free_all(stream);
  const std::lock_guard lock(mutex_);
  std::erase(sockets_, socket);
  close(socket);
}

Servers::Servers() {
  certificate.writePEM(trustFile);
  setenv("SSL_CERT_FILE", trustFile.c_str(), 1);
}

}  // namespace tavlo::bench
