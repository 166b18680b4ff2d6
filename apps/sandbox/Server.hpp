#pragma once

#include <TavloReader/PassiveAuthentication.hpp>

#include <cstdint>
#include <memory>
#include <stdexcept>

#include "Authority.hpp"

namespace tavlo::sandbox {

/// The port cannot be had; says why and what to do.
class PortError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The sandbox's HTTPS server on the loopback addresses 127.0.0.1 and, where the machine has it, ::1. Answers
/// `POST /verify` and prints what it found, a few lines for each request, from threads of its own.
class Server {
 public:
  struct Settings {
    std::uint16_t port = 8443;  ///< 0 takes a free one
    reader::TrustAnchors anchors{};
    bool coloured = false;  ///< whether the lines it prints go to a terminal that shows colours
  };

  /// Listens when this returns. Throws PortError, and std::runtime_error when the certificate cannot be used.
  Server(const Authority& authority, Settings settings);
  /// Stops: takes no new request and waits for those under way.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept;
  [[nodiscard]] bool listensOnIPv6() const noexcept;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavlo::sandbox
