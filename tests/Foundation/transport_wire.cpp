#include <map>
#include <tuple>
#include <vector>

#include "TransportTest.hpp"

namespace tavlo::test {
namespace {

TEST(TransportWire, SendsHostAndLengthOnlyAndChangesNoByte) {
  RawServer server([](Connection& connection) {
    while (const auto request = connection.read()) {
      const std::string length = "Content-Length: " + std::to_string(request->body.size()) + "\r\n";
      connection.send(head + "Content-Encoding: gzip\r\nSet-Cookie: a=b\r\n" + length + "\r\n" + request->body);
    }
  });
  const auto session = std::make_shared<CurlSession>();
  for (const std::size_t size : {1024U, 0U, 1024U * 1024 + 1, 20'000'000U}) {
    std::string body(size, '\0');
    for (std::size_t i = 0; i < size; i += 3) body[i] = static_cast<char>(i >> 7);
    EXPECT_TRUE(start(session, "http://u:p@127.0.0.1:" + server.port + "?a=/b#c", body).get() == "200 " + body) << size;
    EXPECT_EQ(server.requests().back().head, "POST /?a=/b HTTP/1.1\r\nHost: 127.0.0.1:" + server.port +
                                                 "\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
  }
  EXPECT_EQ(server.connections, 1U);
}

TEST(TransportWire, NeverSendsARequestTwice) {
  for (const std::size_t size : {0U, 100U, 3'000'000U}) {
    RawServer server([](Connection& connection) {
      connection.read();
      connection.send(answerOK);
      connection.read();
      connection.close();
    });
    const auto session = std::make_shared<CurlSession>();
    EXPECT_EQ(start(session, server.url()).get(), "200 ok");
    EXPECT_EQ(start(session, server.url(), std::string(size, 'x')).get(), "-1005");
    EXPECT_EQ(server.requests().size(), 2U);
  }
}

TEST(TransportWire, UsesAProxyExceptForThisMachine) {
  RawServer proxy(answering(head + "\r\nproxy")), server(answering(answerOK));
  setenv("http_proxy", proxy.url().c_str(), 1);
  setenv("no_proxy", "direct.invalid", 1);
  EXPECT_EQ(post("http://direct.invalid/") + post(server.url()), "-1003200 ok");
  EXPECT_EQ(proxy.connections, 0U);
  unsetenv("http_proxy");
}

TEST(TransportWire, HandsOverWholeAnswersOnly) {
  const std::string chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
  std::map<std::string, std::vector<std::string>> answers = {
      {"200 ok",
       {chunked + "1;a=b\r\no\r\n1\r\nk\r\n0\r\nContent-Length: none\r\n\r\n", head + "\r\nok",
        "HTTP/1.0 200 OK\r\n\r\nok",
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early\r\nContent-Length: 8\r\n\r\n" + answerOK, answerOK + answerOK,
        head + "content-length:2\r\nContent-Length: 2\r\n\r\nok"}},
      {"200 ", {head + "Content-Length: 0\r\n\r\n"}},
      {"204 ", {"HTTP/1.1 204 No Content\r\n\r\n"}},
      {"304 ", {"HTTP/1.1 304 Not Modified\r\nContent-Length: 7\r\n\r\n"}},
      {"-1005",
       {"", "HTTP/1.1 2", head + "Content-Le", head + "Content-Length: 2\r\n", head + "Content-Length: 3\r\n\r\nok",
        "HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 101 Switching Protocols\r\n\r\nok", chunked + "5\r\nabc",
        chunked + "3\r\nabc\r\n", chunked + "xyz\r\nabc\r\n0\r\n\r\n"}},
      {"-1017",
       {"SSH-2.0-OpenSSH_9.2\r\n", "HTTP/1.1\r\n\r\n", "HTTP/1.1 20 OK\r\n\r\n", "HTTP/1.1 2000 OK\r\n\r\n",
        head + std::string("a: \0b\r\n\r\n", 9), head + "Content-Length: -1\r\n\r\n",
        head + "Content-Length: 2, 2\r\n\r\nok", head + "Content-Length: 1180591620717411303424\r\n\r\nok",
        head + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nok!",
        head + "a: " + std::string(200'000, 'a') + "\r\n\r\n",
        head + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n"}}};
  for (const std::string status : {"302", "401", "404", "407", "500", "999"}) {
    answers[status + " ok"] = {"HTTP/1.1 " + status +
                               " So\r\nWWW-Authenticate: Basic realm=x\r\nContent-Length: 2\r\n\r\nok"};
  }
  for (const auto& [outcome, texts] : answers) {
    for (const auto& text : texts) {
      RawServer server([&sent = text](Connection& connection) { connection.read() && connection.send(sent); });
      EXPECT_EQ(post(server.url()), outcome) << text.substr(0, 100);
    }
  }
}

TEST(TransportWire, BoundsAnAnswer) {
  const auto outcome = [](const std::string& begin, const std::string& part, int parts) {
    RawServer server([&](Connection& connection) {
      connection.read() && connection.send(begin);
      for (int i = 0; i < parts && connection.send(part); ++i) continue;
    });
    return post(server.url(), "", 20, {.maximumAnswerSize = 10'000});
  };
  EXPECT_EQ(outcome(head + "\r\n", std::string(100, 'a'), 100), "200 " + std::string(10'000, 'a'));
  EXPECT_EQ(outcome(head + "\r\n", std::string(100, 'a'), 101), "-1103");
  EXPECT_EQ(outcome(head, "a: " + std::string(1000, 'a') + "\r\n", 1'000'000), "-1005");
  EXPECT_EQ(outcome("", "HTTP/1.1 100 Continue\r\n\r\n", 1'000'000), "-1005");
}

TEST(TransportWire, TakesAnAnswerOrAResetBeforeTheBodyIsSent) {
  const std::string answer = "HTTP/1.1 413 Large\r\nContent-Length: 5\r\n\r\nlarge";
  const std::tuple<std::size_t, std::string, std::string> rows[] = {
      {1'000'000, answer, "413 large"}, {1'000'000, "", "-1005"}, {1, answer.substr(0, 43), "-1005"}};
  for (const auto& [received, sent, outcome] : rows) {
    RawServer server([size = received, &text = sent](Connection& connection) {
      connection.receive(size) && connection.send(text);
      if (!text.ends_with("large")) connection.close(true);
    });
    EXPECT_EQ(post(server.url(), std::string(20'000'000, 'x')), outcome);
  }
}

TEST(TransportWire, FollowsRedirects) {
  RawServer other(answering(answerOK));
  const std::tuple<int, std::string, std::string, std::string> rows[] = {
      {301, "end?x#y", "200 ", "GET /a/end?x"},
      {302, "/end", "200 ", "GET /end"},
      {303, "../../end", "200 ", "GET /end"},
      {307, "/end", "200 body", "POST /end"},
      {308, "//u@LOCALHOST:", "200 body", "POST /end"},
      {307, other.url("/end"), "-1010", ""},
      {308, other.url("/end"), "-1010", ""},
      {302, "/again", "-1007", "GET /again"},
      {302, "file:///etc/passwd", "-1002", ""},
      {302, "http:///end", "-1000", ""},
      {302, "/a b", "-1000", ""},
      {302, "", "302 body", ""},
      {300, "/end", "300 body", ""}};
  for (const auto& [status, location, outcome, request] : rows) {
    RawServer server([&, code = std::to_string(status), target = location](Connection& connection) {
      while (const auto got = connection.read()) {
        connection.send("HTTP/1.1 " + (got->head.find("/end") != std::string::npos ? "200" : code) +
                        " So\r\nLocation: " + target + (target.ends_with(":") ? server.port + "/end" : "") +
                        "\r\nContent-Length: " + std::to_string(got->body.size()) + "\r\n\r\n" + got->body);
      }
    });
    EXPECT_EQ(post(server.url("/a/b", "localhost"), "body"), outcome) << location;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), request.empty() ? 1U : outcome == "-1007" ? 21U : 2U) << location;
    const std::string last = requests.back().head;
    EXPECT_EQ(last.substr(0, request.size()), request);
    EXPECT_EQ(last.find("Content-") == last.npos, last.starts_with("GET")) << last;
    EXPECT_EQ(server.connections, 1U);
  }
  EXPECT_EQ(other.connections, 0U);
}

}  // namespace
}  // namespace tavlo::test
