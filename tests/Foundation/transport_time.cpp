#include <dlfcn.h>
#include <netdb.h>
#include <sys/resource.h>

#include <cstring>
#include <sstream>

#include "TransportTest.hpp"

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

// Stands before the C library's: the name "hanging.test" takes its time.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
  if (name != nullptr && std::strcmp(name, "hanging.test") == 0) std::this_thread::sleep_for(std::chrono::seconds(20));
  return NEXT(getaddrinfo)(name, service, hints, result);
}

// Stands before libcurl's: while it is `refusing`, it holds a lock for a while, as libcurl and OpenSSL do, and fails.
static std::atomic<bool> refusing = false;
static std::mutex taken;
extern "C" CURLMcode curl_multi_add_handle(CURLM* multi, CURL* transfer) {
  if (!refusing) return NEXT(curl_multi_add_handle)(multi, transfer);
  const std::lock_guard lock(taken);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  return CURLM_OUT_OF_MEMORY;
}

namespace tavlo::test {
namespace {

constexpr double limit = 0.2;
#ifdef TAVLO_SANITIZED
constexpr std::chrono::seconds latest(1);  // to hand the system a large body takes its time then
#else
constexpr std::chrono::milliseconds latest(100);
#endif

// Whether a post that gets no answer ends when it should, and before the hanging name does.
void expectTimeout(const std::string& url, const std::string& body = {}) {
  auto late = std::chrono::duration<double>::max();
  for (int i = 0; i < 9 && late > latest; ++i) {  // once more if others kept this machine busy
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    EXPECT_EQ(post(url, body, limit), "-1001") << url;
    late = std::chrono::steady_clock::now() - end;
  }
  EXPECT_TRUE(late >= late.zero() && late <= latest) << late.count() << " s late: " << url;
}

TEST(TransportTime, RunsOutWhereverNothingMoves) {
  for (const std::string sent :
       {"", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"}) {
    RawServer server([&](Connection& connection) { connection.read() && connection.send(sent) && connection.read(); });
    expectTimeout(server.url());
  }
  expectTimeout("http://hanging.test/");
  BIO* const mute = BIO_new_accept("127.0.0.1:0");  // Accepts nothing, and its queue takes two.
  BIO_do_accept(mute);
  listen(static_cast<int>(BIO_get_fd(mute, nullptr)), 1);
  const std::string address = std::string("127.0.0.1:") + BIO_get_accept_port(mute);
  expectTimeout("http://" + address, std::string(3'000'000, 'x'));
  for (int i = 0; i < 2; ++i) expectTimeout("https://" + address);
  BIO_free_all(mute);
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
  RawServer server([](Connection& connection) {
    for (std::size_t size = 0; size < 6'000'000 && connection.receive(size); size += 300'000) {
      std::this_thread::sleep_for(std::chrono::milliseconds(60));
    }
    connection.read() && connection.send(head);
    for (const char c : "a: b\r\na: b\r\na: b\r\na: b\r\n\r\n" + std::string(25, 'o')) {
      std::this_thread::sleep_for(std::chrono::milliseconds(40));
      connection.send(std::string(1, c));
    }
  });
  EXPECT_EQ(post(server.url(), std::string(6'000'000, 'x'), 4 * limit), "200 " + std::string(25, 'o'));
}

TEST(TransportTime, IsNotSpentOnWhatCannotBeReached) {
  std::istringstream rows(
      "http://name.invalid/ -1003 ftp://127.0.0.1/ -1002 file:///etc/passwd -1002 /verify -1002 localhost:80/x -1002 "
      "http:///x -1000 http://127.0.0.1:99999/ -1000 " +
      RawServer(answering("")).url() + " -1004");
  for (std::string url, outcome; rows >> url >> outcome;) EXPECT_EQ(post(url), outcome) << url;
  rlimit descriptors;
  getrlimit(RLIMIT_NOFILE, &descriptors);
  const rlimit none{3, descriptors.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_THROW(CurlSession(), foundation::URLError);
  setrlimit(RLIMIT_NOFILE, &descriptors);
}

TEST(TransportFork, LeavesNoLockTakenInTheChild) {
  refusing = true;
  auto outcome = start(foundation::URLSession::shared(), "http://127.0.0.1:1/");
  while (taken.try_lock()) taken.unlock();
  EXPECT_EXIT(_exit(taken.try_lock() ? 0 : 1), testing::ExitedWithCode(0), "");
  EXPECT_EQ(outcome.get(), "-1");
  refusing = false;
  const std::jthread host([](const std::stop_token& end) {
    while (!end.stop_requested()) foundation::URLSession::install(nullptr);
  });
  for (int i = 0; i < 50 && !HasFailure(); ++i) {
    EXPECT_EXIT((alarm(9), (void)foundation::URLSession::shared(), _exit(0)), testing::ExitedWithCode(0), "");
  }
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
  std::future<std::string> outcomes[1000];
  const auto postEighth = [&](int first) {
    for (int i = first; i < 1000; i += 8) outcomes[i] = start(session, server.url(), std::to_string(i));
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(postEighth, i);
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(outcomes[i].get(), i % 10 == 7 ? "-1005" : "200 " + std::to_string(i));
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
