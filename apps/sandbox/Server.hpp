#pragma once

#include <TavloReader/PassiveAuthentication.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Arrivals.hpp"
#include "Authority.hpp"
#include "HTTPServer.hpp"
#include "Scenario.hpp"

namespace tavlo::sandbox {

/// The sandbox itself: answers `POST /verify` on the loopback addresses 127.0.0.1 and, where the machine has it, ::1,
/// and shows what arrived on a page. Prints one line for each request.
class Server {
 public:
  struct Settings {
    std::uint16_t port = 8443;             ///< 0 takes a free one
    std::vector<std::string> addresses{};  ///< IP addresses to listen at beside the loopback ones
    std::filesystem::path state{};         ///< the folder of the history and the issuer's authority
    reader::TrustAnchors anchors{};
    Scenario scenario{};  ///< for every request; the empty one leaves it to the documents' numbers
    HTTPServer::Limits limits{};
  };

  /// Listens when this returns. Throws PortError, std::system_error, and std::runtime_error when the certificate or a
  /// file of the state cannot be used.
  Server(const Authority& authority, Settings settings);
  /// Stops as HTTPServer does.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] std::uint16_t port() const noexcept;
  [[nodiscard]] bool listensOnIPv6() const noexcept;
  /// What has arrived at /verify.
  [[nodiscard]] Arrivals& arrivals() noexcept;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavlo::sandbox
