#include "TransportTest.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::test {
namespace {

std::future<std::string> startShared(const Then& then = {}) {
  return start(foundation::URLSession::shared(), std::getenv("TAVLO_TEST_URL"), "", 20, then);
}

// Registered before anything else, so it runs after every other exit handler, OpenSSL's too.
bool checksLastMoments = false;
const int lastMoments = std::atexit([] {
  if (!checksLastMoments) return;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  if (startShared().get() != "-999") std::_Exit(99);
});

// The shared session lasts as long as its process, so its end is tried in processes of their own: EXPECT_EXIT runs this
// program again down to its statement, and there the environment names the first one's server.
struct TransportTLS : testing::Test {
  TransportTLS() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    if (std::getenv("TAVLO_TEST_URL") != nullptr) return;
    const std::string trusted = folder.emplace() / "trusted.pem";
    authority.writePEM(trusted);
    setenv("SSL_CERT_FILE", trusted.c_str(), 1);
    unsetenv("SSL_CERT_DIR");
    setenv("TAVLO_TEST_URL", server.url("/", "localhost").c_str(), 1);
  }
  ~TransportTLS() override {
    unsetenv("TAVLO_TEST_URL");
    unsetenv("SSL_CERT_FILE");
  }

  // The outcome of a post to a server with `certificate`, where nothing must arrive unless it is to be trusted.
  static std::string postTo(const TestCertificate& certificate, const std::function<void(Connection&)>& handler,
                            int newestVersion = TLS1_3_VERSION) {
    const auto tls = certificate.serverContext(newestVersion);
    RawServer secure(handler, tls.get());
    const std::string outcome = post(secure.url("/", "localhost"), "body");
    EXPECT_EQ(secure.requests().empty(), outcome == "-1202" || outcome == "-1200") << outcome;
    return outcome;
  }

  std::optional<TemporaryFolder> folder;
  const TestCertificate authority{"DNS:authority.example"}, good{"DNS:localhost", &authority};
  const std::shared_ptr<SSL_CTX> context = good.serverContext();
  RawServer server{answering(answerOK), context.get()};
};

TEST_F(TransportTLS, SendsNothingToAServerThatItDoesNotTrust) {
  const TestCertificate stranger("DNS:stranger.example"), unknown("DNS:localhost", &stranger), own("DNS:localhost"),
      wrongName("DNS:other.example", &authority), expired("DNS:localhost", &authority, -60);
  for (const auto* certificate : {&unknown, &own, &wrongName, &expired}) {
    EXPECT_EQ(postTo(*certificate, answering(answerOK)), "-1202");
  }
  for (const std::string status : {"302", "307"}) {
    const std::string toPlain = "HTTP/1.1 " + status + " So\r\nLocation: http://localhost:1/\r\n\r\n";
    EXPECT_EQ(postTo(good, [&](Connection& connection) { connection.read() && connection.send(toPlain); }), "-1022");
  }
  EXPECT_EQ(postTo(good, answering(answerOK), TLS1_1_VERSION), "-1200");
  RawServer mute([](Connection& connection) { connection.receive(1); });
  RawServer plain([](Connection& connection) { connection.receive(1) && connection.send(answerOK); });
  for (const auto* other : {&mute, &plain}) EXPECT_EQ(post("https://localhost:" + other->port, "body"), "-1200");
  EXPECT_EQ(postTo(good, answering(answerOK), TLS1_2_VERSION), "200 ok");
  EXPECT_EQ(postTo(good, answering(answerOK)), "200 ok");
}

TEST_F(TransportTLS, BelievesInTheEndOfAnAnswerOnlyWhenItIsAnnounced) {
  const auto cutAfter = [&](const std::string& answer) {
    return postTo(good, [&](Connection& connection) {
      connection.read() && connection.send(answer);
      connection.close();
    });
  };
  EXPECT_EQ(cutAfter(head + "\r\nok"), "-1005");
  EXPECT_EQ(cutAfter(answerOK), "200 ok");
  EXPECT_EQ(cutAfter("HTTP/1.1 204 No Content\r\n\r\n"), "204 ");
  EXPECT_EQ(postTo(good, [](Connection& connection) { connection.read() && connection.send(head + "\r\nok"); }),
            "200 ok");
}

TEST_F(TransportTLS, LetsAProcessEndWithTransfersUnderWay) {
  const auto endEarly = [] {
    checksLastMoments = true;
    std::atomic<int> left = 100;
    std::promise<void> busy;
    const Then again = [&](const std::string& outcome) {
      if (outcome == "200 ok") startShared(again);
      if (--left == 0) busy.set_value();
    };
    for (int i = 0; i < 64; ++i) startShared(again);
    busy.get_future().wait();
    std::exit(0);
  };
  for (int i = 0; i < 20; ++i) EXPECT_EXIT(endEarly(), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(startShared([](auto&) { std::exit(3); }).wait(), testing::ExitedWithCode(3), "");
  EXPECT_EXIT(startShared([](auto&) { throw 1; }).wait(), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace tavlo::test
