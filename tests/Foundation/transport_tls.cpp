#include <cstdlib>

#include "TransportTest.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestCertificate.hpp"

namespace tavlo::test {
namespace {

using Connection = RawServer::Connection;

struct TransportTLS : testing::Test {
  TransportTLS() {
    authority.writePEM(folder / "trusted.pem");
    setenv("SSL_CERT_FILE", (folder / "trusted.pem").c_str(), 1);
  }
  ~TransportTLS() override { unsetenv("SSL_CERT_FILE"); }

  const TestCertificate authority{"DNS:authority.example"};
  const TestCertificate good{"DNS:localhost", &authority};
  TemporaryFolder folder;
};

TEST_F(TransportTLS, TrustsWhatTheEnvironmentNames) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    const auto context = good.serverContext(version);
    RawServer server(answering(answerOK), context.get());
    Client client;
    EXPECT_EQ(client.post(server.url("/", "localhost"), "body"), "200 ok");
    EXPECT_EQ(client.post(server.url("/", "localhost"), "body"), "200 ok");
    EXPECT_EQ(server.connections(), 1U);
  }
}

TEST_F(TransportTLS, SendsNothingToAServerThatItDoesNotTrust) {
  const TestCertificate stranger("DNS:stranger.example");
  const TestCertificate unknown("DNS:localhost", &stranger), selfSigned("DNS:localhost"),
      wrongName("DNS:other.example", &authority), expired("DNS:localhost", &authority, -60);
  for (const auto* certificate : {&unknown, &selfSigned, &wrongName, &expired}) {
    const auto context = certificate->serverContext();
    RawServer server(answering(answerOK), context.get());
    EXPECT_EQ(Client().post(server.url("/", "localhost"), "body"), "-1202");
    EXPECT_TRUE(server.requests().empty());
  }
}

TEST_F(TransportTLS, TakesAFailedHandshakeForASecurityError) {
  const auto old = good.serverContext(TLS1_1_VERSION);
  RawServer oldServer(answering(answerOK), old.get());
  RawServer closing([](Connection& connection) {
    connection.receive(1);
    connection.close();
  });
  EXPECT_EQ(Client().post(oldServer.url("/", "localhost")), "-1200");
  EXPECT_EQ(Client().post("https://localhost:" + closing.port()), "-1200");
}

TEST_F(TransportTLS, BelievesInTheEndOfAnAnswerOnlyWhenItIsAnnounced) {
  const auto context = good.serverContext();
  const auto answer = [&](const std::string& text, bool announced) {
    RawServer server(
        [&](Connection& connection) {
          connection.read();
          connection.send(text);
          if (!announced) connection.close();
        },
        context.get());
    return Client().post(server.url("/", "localhost"));
  };
  const std::string head = "HTTP/1.1 200 OK\r\n";
  EXPECT_EQ(answer(head + "\r\nbody", true), "200 body");
  EXPECT_EQ(answer(head + "\r\nbody", false), "-1005");
  EXPECT_EQ(answer(head + "Content-Length: 4\r\n\r\nbody", false), "200 body");
  EXPECT_EQ(answer("HTTP/1.1 204 No Content\r\n\r\n", false), "204 ");
}

TEST_F(TransportTLS, IsNotLeftForPlainHTTP) {
  RawServer plain(answering(answerOK));
  const auto context = good.serverContext();
  for (const std::string status : {"302", "307"}) {
    RawServer server(
        answering("HTTP/1.1 " + status + " So\r\nLocation: " + plain.url() + "\r\nContent-Length: 0\r\n\r\n"),
        context.get());
    EXPECT_EQ(Client().post(server.url("/", "localhost"), "body"), "-1022");
  }
  EXPECT_EQ(plain.connections(), 0U);
}

}  // namespace
}  // namespace tavlo::test
