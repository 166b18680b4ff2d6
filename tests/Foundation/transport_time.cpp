#include <dlfcn.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include "TransportTest.hpp"
#include "support/TestCertificate.hpp"

// Stands before the C library's: the name "hanging.test" takes its time.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
  if (name != nullptr && std::strcmp(name, "hanging.test") == 0) std::this_thread::sleep_for(std::chrono::seconds(1));
  static const auto next = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return next(name, service, hints, result);
}

namespace tavlo::test {
namespace {

using std::chrono::milliseconds;
using Connection = RawServer::Connection;
constexpr double limit = 0.2;

// Posts `body` and expects the time limit to strike when it should.
void expectTimeout(const std::string& url, std::size_t bodySize = 0) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Client().post(url, std::string(bodySize, 'x'), limit), "-1001") << url;
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  EXPECT_GE(time.count(), limit);
  EXPECT_LE(time.count(), limit + 0.3);
}

TEST(TransportTime, RunsOutWhereverTheServerFallsSilent) {
  for (const char* const answer :
       {"", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"}) {
    RawServer server([&](Connection& connection) {
      connection.read();
      connection.send(answer);
      connection.read();
    });
    expectTimeout(server.url());
  }
  std::promise<void> ended;
  RawServer neverReads([done = ended.get_future().share()](Connection&) { done.wait(); });
  expectTimeout(neverReads.url(), 3'000'000);
  expectTimeout("https://127.0.0.1:" + neverReads.port());
  ended.set_value();
}

TEST(TransportTime, RunsOutWhileConnecting) {
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  std::array<int, 4> sockets;
  for (int& socket : sockets) socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  ASSERT_EQ(bind(sockets[0], generic, size) + listen(sockets[0], 0) + getsockname(sockets[0], generic, &size), 0);
  for (std::size_t i = 1; i < sockets.size(); ++i) connect(sockets[i], generic, size);  // Fills the queue.
  expectTimeout("http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)));
  for (const int socket : sockets) close(socket);
}

TEST(TransportTime, CountsWaitingForAFreePlace) {
  RawServer server([](Connection& connection) { connection.receive(std::size_t{1} << 30); });
  Client client({.maximumActive = 1});
  auto active = client.start(server.url(), "", 5), waiting = client.start(server.url(), "", limit);
  EXPECT_EQ(waiting.get(), "-1001");
  EXPECT_EQ(server.connections(), 1U);
}

TEST(TransportTime, DoesNotRunOutWhileSomethingMoves) {
  const auto drip = [](const std::string& start, const std::string& part, const std::string& end) {
    return [=](Connection& connection) {
      connection.read();
      connection.send(start);
      for (int i = 0; i < 8; ++i) {
        std::this_thread::sleep_for(milliseconds(70));
        connection.send(part);
      }
      connection.send(end);
    };
  };
  RawServer body(drip("HTTP/1.1 200 OK\r\n\r\n", "x", "")), head(drip("HTTP/1.1 200 OK\r\n", "a: b\r\n", "\r\nok"));
  RawServer slowReader([](Connection& connection) {
    for (std::size_t size = 0; size < 3'000'000; size += 150'000) {
      connection.receive(size);
      std::this_thread::sleep_for(milliseconds(20));
    }
    connection.read();
    connection.send(answerOK);
  });
  Client client;
  auto first = client.start(body.url(), "", limit), second = client.start(head.url(), "", limit),
       third = client.start(slowReader.url(), std::string(3'000'000, 'x'), limit);
  EXPECT_EQ(first.get(), "200 xxxxxxxx");
  EXPECT_EQ(second.get(), "200 ok");
  EXPECT_EQ(third.get(), "200 ok");
}

TEST(TransportTime, IsNotHeldUpByAHangingNameLookup) {
  RawServer server(answering(answerOK));
  Client client;
  auto hanging = client.start("http://hanging.test/", "", limit);
  EXPECT_EQ(client.post(server.url("/", "localhost"), "", limit), "200 ok");
  EXPECT_EQ(hanging.get(), "-1001");
  expectTimeout("http://hanging.test/");
}

TEST(TransportTime, ReportsWhatCannotBeReached) {
  std::string gone;
  {
    const RawServer server(answering(answerOK));
    gone = server.url();
  }
  RawServer closing([](Connection& connection) { connection.close(); });
  EXPECT_EQ(Client().post(gone), "-1004");
  EXPECT_EQ(Client().post(closing.url()), "-1005");
  EXPECT_EQ(Client().post("http://name.invalid/"), "-1003");
}

}  // namespace
}  // namespace tavlo::test
