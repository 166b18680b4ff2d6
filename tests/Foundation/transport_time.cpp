#include <dlfcn.h>
#include <netdb.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "TransportTest.hpp"

// Stands before the C library's: the name "hanging.test" takes its time.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
  if (name != nullptr && std::strcmp(name, "hanging.test") == 0) std::this_thread::sleep_for(std::chrono::seconds(1));
  static const auto next = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return next(name, service, hints, result);
}

namespace tavlo::test {
namespace {

constexpr double limit = 0.2;

// Whether a post that gets no answer ends when it should.
void expectTimeout(const std::string& url, const std::string& body = {}) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(post(url, body, limit), "-1001") << url;
  EXPECT_LE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500)) << url;
}

TEST(TransportTime, RunsOutWhereverNothingMoves) {
  for (const std::string sent :
       {"", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"}) {
    RawServer server([&](Connection& connection) { connection.read() && connection.send(sent) && connection.read(); });
    expectTimeout(server.url());
  }
  std::promise<void> ended;
  RawServer neverReads([end = ended.get_future().share()](Connection&) { end.wait(); });
  expectTimeout(neverReads.url(), std::string(3'000'000, 'x'));
  expectTimeout("https://127.0.0.1:" + neverReads.port);
  expectTimeout("http://hanging.test/");
  ended.set_value();

  BIO* const full = BIO_new_accept("127.0.0.1:0");  // Accepts nothing, and its queue takes one.
  BIO_do_accept(full);
  listen(static_cast<int>(BIO_get_fd(full, nullptr)), 0);
  const std::string address = std::string("127.0.0.1:") + BIO_get_accept_port(full);
  BIO* const first = BIO_new_connect(address.c_str());
  BIO_do_connect(first);
  expectTimeout("http://" + address);
  BIO_free_all(first);
  BIO_free_all(full);
}

TEST(TransportTime, RunsOutForOneAndNotForTheOthers) {
  RawServer silent([](Connection&connection) { connection.receive(1U << 30); }), server(answering(answerOK));
  auto session = std::make_shared<CurlSession>();
  auto hanging = start(session, "http://hanging.test/", "", limit);
  EXPECT_EQ(start(session, server.url("/", "localhost"), "", limit).get(), "200 ok");
  EXPECT_EQ(hanging.get(), "-1001");
  session = std::make_shared<CurlSession>(CurlSession::Options{.maximumActive = 1});
  auto active = start(session, silent.url()), late = start(session, server.url(), "", limit);
  EXPECT_EQ(late.get(), "-1001");
  auto waiting = start(session, server.url());
  session.reset();
  EXPECT_EQ(active.get() + waiting.get(), "-999-999");
}

TEST(TransportTime, DoesNotRunOutWhileSomethingMoves) {
  const auto slowly = [](const std::string& begin, const std::string& part, const std::string& end) {
    return [=](Connection& connection) {
      for (std::size_t size = 0; size < 3'000'000 && connection.receive(size); size += 150'000) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
      }
      connection.read() && connection.send(begin);
      for (int i = 0; i < 6 && connection.send(part); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(70));
      connection.send(end);
    };
  };
  RawServer body(slowly(head + "\r\n", "o", "k")), fields(slowly(head, "a: b\r\n", "\r\nok"));
  EXPECT_EQ(post(body.url(), std::string(3'000'000, 'x'), limit), "200 ooooook");
  EXPECT_EQ(post(fields.url(), std::string(3'000'000, 'x'), limit), "200 ok");
}

TEST(TransportTime, IsNotSpentOnWhatCannotBeReached) {
  const std::string gone = RawServer(answering(answerOK)).url();
  RawServer closing([](Connection& connection) { connection.close(); });
  const std::pair<std::string, std::string> rows[] = {{gone, "-1004"},
                                                      {closing.url(), "-1005"},
                                                      {"http://name.invalid/", "-1003"},
                                                      {"ftp://127.0.0.1/", "-1002"},
                                                      {"file:///etc/passwd", "-1002"},
                                                      {"/verify", "-1002"},
                                                      {"localhost:80/x", "-1002"},
                                                      {"http:///x", "-1000"},
                                                      {"http://127.0.0.1:99999/", "-1000"}};
  for (const auto& [url, outcome] : rows) EXPECT_EQ(post(url), outcome) << url;
}

// More posts than places: each ends once, in time and with its own answer.
TEST(TransportLoad, GivesEachOfAThousandPostsItsOwnAnswer) {
  RawServer server([](Connection& connection) {
    while (const auto request = connection.read()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (request->body.ends_with("7")) return connection.close();
      connection.send(head + "Content-Length: " + std::to_string(request->body.size()) + "\r\n\r\n" + request->body);
    }
  });
  const auto session = std::make_shared<CurlSession>();
  std::vector<std::future<std::string>> outcomes(1000);
  for (std::size_t i = 0; i < 1000; ++i) outcomes[i] = start(session, server.url(), std::to_string(i));
  for (std::size_t i = 0; i < 1000; ++i)
    EXPECT_EQ(outcomes[i].get(), i % 10 == 7 ? "-1005" : "200 " + std::to_string(i));
  EXPECT_EQ(server.requests().size(), 1000U);
  EXPECT_LE(server.connections, 300U);  // libcurl connects once more before it learns that it must not send again.
}

TEST(TransportLoad, CallsOneHandlerAtATimeAndGoesOnMeanwhile) {
  std::promise<void> arrived, done;
  RawServer server(answering(answerOK));
  RawServer other([&](Connection& connection) { connection.read() ? arrived.set_value() : void(); });
  std::atomic<int> handlers = 0, left = 200;
  const auto session = std::make_shared<CurlSession>();
  const Then again = [&](const std::string&) {
    EXPECT_EQ(++handlers, 1);
    const int now = --left;
    if (now > 0) start(session, now == 100 ? other.url() : server.url(), "", 20, again);
    if (now == 100) arrived.get_future().wait();
    if (now == 0) done.set_value();
    --handlers;
  };
  for (int i = 0; i < 4; ++i) start(session, server.url(), "", 20, again);
  done.get_future().wait();
}

}  // namespace
}  // namespace tavlo::test
