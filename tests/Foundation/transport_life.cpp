#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

#include "TransportTest.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::test {
namespace {

void post(const std::string& url, const std::function<void(const std::string&)>& onCompletion) {
  foundation::URLRequest request{foundation::URL::parse(url).value()};
  request.httpMethod = "POST";
  auto task = foundation::URLSession::shared()->dataTask(
      std::move(request),
      [=](const auto& body, const auto& response, const auto& error) { onCompletion(outcome(body, response, error)); });
  task.resume();
  task.resume();
}

std::string postAndWait(const std::string& url) {
  std::promise<std::string> result;
  post(url, [&](const std::string& text) { result.set_value(text); });
  return result.get_future().get();
}

// Registered before anything else, so it runs after every other exit handler, OpenSSL's too.
bool checksLastMoments = false;
const int lastMoments = std::atexit([] {
  if (!checksLastMoments) return;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (postAndWait("http://127.0.0.1/") != "-999") std::_Exit(99);
});

// The shared session lasts as long as its process, so the end is tried in processes of their own: EXPECT_EXIT runs this
// program again down to its statement, and there the environment names the first one's server.
struct TransportLife : testing::Test {
  TransportLife() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    certificate.writePEM(folder / "trusted.pem");
    if (std::getenv("TAVLO_TEST_URL") != nullptr) return;
    setenv("TAVLO_TEST_URL", server.url().c_str(), 1);
    unsetenv("SSL_CERT_DIR");
    setenv("SSL_CERT_FILE", (folder / "trusted.pem").c_str(), 1);
  }
  ~TransportLife() override { unsetenv("TAVLO_TEST_URL"); }

  TemporaryFolder folder;
  const TestCertificate certificate{"IP:127.0.0.1"};
  const std::shared_ptr<SSL_CTX> context = certificate.serverContext();
  RawServer server{answering(answerOK), context.get()};
};

TEST_F(TransportLife, EndsCleanlyWithTransfersUnderWay) {
  const auto endEarly = [] {
    checksLastMoments = true;
    const std::string url = std::getenv("TAVLO_TEST_URL");
    std::promise<void> busy;
    std::atomic<int> answers = 0;
    const std::function<void(const std::string&)> again = [&](const std::string& outcome) {
      if (outcome == "200 ok") post(url, again);
      if (++answers == 100) busy.set_value();
    };
    for (int i = 0; i < 64; ++i) post(url, again);
    busy.get_future().wait();
    std::exit(0);
  };
  for (int i = 0; i < 8; ++i) EXPECT_EXIT(endEarly(), testing::ExitedWithCode(0), "");
}

TEST_F(TransportLife, LetsACompletionEndTheProcess) {
  const auto postFirst = [](const std::function<void(const std::string&)>& onCompletion) {
    post(std::getenv("TAVLO_TEST_URL"), onCompletion);
    std::this_thread::sleep_for(std::chrono::seconds(10));
  };
  EXPECT_EXIT(postFirst([](auto&) { std::exit(3); }), testing::ExitedWithCode(3), "");
  EXPECT_EXIT(postFirst([](auto&) { throw std::runtime_error("thrown"); }), testing::KilledBySignal(SIGABRT), "thrown");
}

TEST_F(TransportLife, StartsAfreshInAForkedChild) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "The sanitizers' own locks do not outlive a fork among threads.";
#endif
  const auto fork = [] {
    const std::string url = std::getenv("TAVLO_TEST_URL");
    std::atomic<int> left = 20;
    std::promise<void> all;
    for (int i = left; i > 0; --i) {
      post(url, [&](const std::string& outcome) {
        if (outcome == "200 ok" && --left == 0) all.set_value();
      });
    }
    const pid_t child = ::fork();
    if (child == 0) std::_Exit(postAndWait(url) == "200 ok" ? 0 : 1);
    int status = -1;
    ::waitpid(child, &status, 0);
    all.get_future().wait();
    std::_Exit(status == 0 && left == 0 ? 0 : 1);
  };
  for (int i = 0; i < 5; ++i) EXPECT_EXIT(fork(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(server.requests().size(), 5U * 21U);
}

}  // namespace
}  // namespace tavlo::test
