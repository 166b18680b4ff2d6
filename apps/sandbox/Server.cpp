#include "Server.hpp"

#include <Foundation/JSONEncoder.hpp>
#include <Foundation/Print.hpp>

#include <httplib.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Checks.hpp"

namespace tavlo::sandbox {

using foundation::Data;
using foundation::DataView;
using std::chrono::steady_clock;

namespace {

constexpr auto ipv4 = "127.0.0.1";
constexpr auto ipv6 = "::1";
constexpr std::size_t threadsPerAddress = 4;
constexpr std::chrono::seconds inactivityLimit{10};
constexpr std::chrono::seconds bodyLimit{120};

/// Only SO_REUSEADDR: with SO_REUSEPORT a second sandbox at the same port would start and share the requests.
void setSocketOptions(int socket) {
  const int yes = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

/// Whether `port` can be listened at: the reason why not, or no error and the port that was free.
struct Probe {
  std::error_code error;
  std::uint16_t port = 0;
};

Probe probe(const char* address, std::uint16_t port) {
  const auto failed = [] { return Probe{std::error_code(errno, std::generic_category())}; };
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(address, std::to_string(port).c_str(), &hints, &found) != 0) {
    return {std::make_error_code(std::errc::address_not_available)};
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> list(found, ::freeaddrinfo);
  const int socket = ::socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, 0);
  if (socket < 0) return failed();
  setSocketOptions(socket);
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  auto* const name = reinterpret_cast<sockaddr*>(&bound);
  Probe result;
  if (::bind(socket, found->ai_addr, found->ai_addrlen) != 0 || ::getsockname(socket, name, &size) != 0) {
    result = failed();
  } else {
    // Both families keep the port at the same place.
    result.port = ntohs(reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
  }
  ::close(socket);
  return result;
}

[[noreturn]] void throwPortError(const char* address, std::uint16_t port, const std::string& reason) {
  throw PortError("cannot listen on " + std::string(address) + " at port " + std::to_string(port) + ": " + reason +
                  ". Stop the program that uses the port, or choose another one with --port.");
}

/// A port that is free on each of `addresses`: the one that is asked for, or any.
std::uint16_t freePort(const std::vector<const char*>& addresses, std::uint16_t wanted) {
  for (int attempt = 1;; ++attempt) {
    std::uint16_t port = wanted;
    const char* refusing = nullptr;
    std::error_code error;
    for (const char* address : addresses) {
      const Probe probed = probe(address, port);
      if (probed.error && refusing == nullptr) {
        refusing = address;
        error = probed.error;
      }
      if (port == 0) port = probed.port;
    }
    if (refusing == nullptr) return port;
    if (wanted != 0 || attempt == 10) throwPortError(refusing, port, error.message());
  }
}

void setAnswer(httplib::Response& response, int status, const Answer& answer) {
  const Data json = foundation::JSONEncoder().encode(answer);
  response.status = status;
  response.set_content(std::string(foundation::textOf(json)), "application/json");
}

std::chrono::year_month_day today() {
  return std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
}

/// Reads the body piece by piece, so that limits hold for chunked and compressed ones too, which name no length.
struct BodyReader {
  Data body;
  bool tooLarge = false;
  bool tooSlow = false;
  steady_clock::time_point end = steady_clock::now() + bodyLimit;

  bool take(const char* bytes, std::size_t size) {
    tooLarge = size > maximumBodySize - body.size();
    tooSlow = steady_clock::now() > end;
    if (tooLarge || tooSlow) return false;
    body.insert(body.end(), bytes, bytes + size);
    return true;
  }
};

}  // namespace

struct Server::Implementation {
  Settings settings;
  std::vector<std::unique_ptr<httplib::SSLServer>> servers;
  std::vector<std::thread> threads;

  void verify(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& read) const {
    if (request.is_multipart_form_data()) return refuse(response, 415, "the body must be the JSON text itself");
    BodyReader reader;
    const bool complete = read([&](const char* bytes, std::size_t size) { return reader.take(bytes, size); });
    if (reader.tooLarge || response.status == 413) return refuse(response, 413, "the body: larger than 64 MiB");
    if (reader.tooSlow) return refuse(response, 408, "the body took longer than two minutes");
    if (!complete) return refuse(response, 400, "the body ended early");
    try {
      const Answer answer = check(sandbox::Request::decode(reader.body), settings.anchors, today());
      foundation::print(consoleText(answer, settings.coloured));
      setAnswer(response, 200, answer);
    } catch (const RefusedBody& refused) {
      refuse(response, 400, refused.what());
    }
  }

  void refuse(httplib::Response& response, int status, std::string error) const {
    const Answer answer = refusal(std::move(error));
    foundation::print(consoleText(answer, settings.coloured));
    setAnswer(response, status, answer);
  }

  std::unique_ptr<httplib::SSLServer> makeServer(const Authority& authority) const {
    const std::string identity = authority.serverIdentity.string();
    auto server = std::make_unique<httplib::SSLServer>([&identity](SSL_CTX& context) {
      return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1 &&
             SSL_CTX_use_certificate_chain_file(&context, identity.c_str()) == 1 &&
             SSL_CTX_use_PrivateKey_file(&context, identity.c_str(), SSL_FILETYPE_PEM) == 1;
    });
    if (!server->is_valid()) {
      ERR_clear_error();
      throw std::runtime_error("the server's certificate in " + identity + " cannot be used: remove that file");
    }
    server->set_socket_options(setSocketOptions);
    server->new_task_queue = [] { return new httplib::ThreadPool(threadsPerAddress); };
    server->set_read_timeout(inactivityLimit);
    server->set_write_timeout(inactivityLimit);
    // A connection serves one request: what a refused one left unread is never taken for the next.
    server->set_keep_alive_max_count(1);
    server->set_payload_max_length(maximumBodySize);
    server->set_default_headers({{"Sandbox", "true"}, {"Cache-Control", "no-store"}});

    // Before routing, so that no other request has its body read.
    server->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
      using enum httplib::Server::HandlerResponse;
      if (request.path == "/verify" && request.method == "POST") return Unhandled;
      if (request.path != "/verify") {
        refuse(response, 404, "there is only /verify here");
      } else {
        response.set_header("Allow", "POST");
        refuse(response, 405, "only POST is served");
      }
      return Handled;
    });
    server->Post("/verify", [this](const auto& request, auto& response, const httplib::ContentReader& read) {
      verify(request, response, read);
    });
    server->set_exception_handler([this](const auto&, httplib::Response& response, const std::exception_ptr&) {
      refuse(response, 500, "a fault of the sandbox itself");
    });
    // What the HTTP layer refuses by itself has no body yet.
    server->set_error_handler([](const auto&, httplib::Response& response) {
      if (response.body.empty()) setAnswer(response, response.status, refusal("not a request that can be served"));
    });
    return server;
  }

  void start(const char* address, std::uint16_t port, std::unique_ptr<httplib::SSLServer> server) {
    if (!server->bind_to_port(address, port)) throwPortError(address, port, "it was taken just now");
    httplib::SSLServer* const listening = servers.emplace_back(std::move(server)).get();
    threads.emplace_back([listening] { listening->listen_after_bind(); });
    // It can be stopped only once it runs.
    while (!listening->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  ~Implementation() {
    for (const auto& server : servers) server->stop();
    for (std::thread& thread : threads) thread.join();
  }
};

Server::Server(const Authority& authority, Settings settings) : implementation_(std::make_unique<Implementation>()) {
  const bool hasIPv6 = !probe(ipv6, 0).error;
  const auto addresses = hasIPv6 ? std::vector{ipv4, ipv6} : std::vector{ipv4};
  settings.port = freePort(addresses, settings.port);
  implementation_->settings = std::move(settings);
  for (const char* address : addresses) {
    implementation_->start(address, port(), implementation_->makeServer(authority));
  }
}

Server::~Server() = default;

std::uint16_t Server::port() const noexcept {
  return implementation_->settings.port;
}

bool Server::listensOnIPv6() const noexcept {
  return implementation_->servers.size() == 2;
}

}  // namespace tavlo::sandbox
