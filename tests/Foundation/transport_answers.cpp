#include "TransportTest.hpp"

namespace tavlo::test {
namespace {

using Connection = RawServer::Connection;
const std::string head = "HTTP/1.1 200 OK\r\n";

struct Row {
  std::string answer;
  std::string outcome;
};

void expectOutcomes(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    RawServer server([&](Connection& connection) {
      connection.read();
      connection.send(row.answer);
    });
    const std::string actual = Client().post(server.url());
    EXPECT_TRUE(actual == row.outcome) << row.answer.substr(0, 200) << "\ngives " << actual.substr(0, 200);
  }
}

TEST(TransportAnswers, HandsOverEveryCompleteAnswerAsItCame) {
  const std::string zeros(1'000'000, '\0');
  expectOutcomes({
      {head + "Content-Length: 0\r\n\r\n", "200 "},
      {"HTTP/1.1 204 No Content\r\n\r\n", "204 "},
      {"HTTP/1.1 304 Not Modified\r\nContent-Length: 7\r\n\r\n", "304 "},
      {"HTTP/1.1 500 Oh\r\nContent-Length: 0\r\n\r\n", "500 "},
      {"HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnone", "404 none"},
      {"HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\nContent-Length: 2\r\n\r\nno", "401 no"},
      {"HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"x\"\r\nContent-Length: 2\r\n\r\nno", "407 no"},
      {"HTTP/1.1 999 Odd\r\ncontent-length:3\r\n\r\nodd", "999 odd"},
      {head + "Transfer-Encoding: chunked\r\n\r\n3;a=b\r\nabc\r\n2\r\nde\r\n0\r\nContent-Length: none\r\n\r\n",
       "200 abcde"},
      {head + "\r\nuntil the end", "200 until the end"},
      {"HTTP/1.0 200 OK\r\n\r\nold", "200 old"},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early\r\nContent-Length: 8\r\n\r\n" + answerOK, "200 ok"},
      {"HTTP/1.1 302 Found\r\nContent-Length: 4\r\n\r\nhere", "302 here"},
      {"HTTP/1.1 302 Found\r\nLocation:\r\nContent-Length: 4\r\n\r\nhere", "302 here"},
      {"HTTP/1.1 300 Choose\r\nLocation: /x\r\nContent-Length: 4\r\n\r\nhere", "300 here"},
      {head + "Content-Encoding: gzip\r\nContent-Length: 4\r\n\r\n\x1f\x8b\xff\xfe", "200 \x1f\x8b\xff\xfe"},
      {head + "Content-Length: 1000000\r\n\r\n" + zeros, "200 " + zeros},
      {answerOK + answerOK, "200 ok"},
      {head + "Content-Length: 2\r\nContent-Length: 2\r\n\r\nok", "200 ok"},
  });
}

TEST(TransportAnswers, TakesAnIncompleteAnswerForALostConnection) {
  expectOutcomes({
      {"", "-1005"},
      {"HTTP/1.1 2", "-1005"},
      {"HTTP/1.1 200 OK\r\nContent-Le", "-1005"},
      {head + "Content-Length: 2\r\n", "-1005"},
      {"HTTP/1.1 100 Continue\r\n\r\n", "-1005"},
      {"HTTP/1.1 101 Switching Protocols\r\n\r\nraw", "-1005"},
      {head + "Content-Length: 3\r\n\r\nok", "-1005"},
      {head + "Transfer-Encoding: chunked\r\n\r\n5\r\nabc", "-1005"},
      {head + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", "-1005"},
      {head + "Transfer-Encoding: chunked\r\n\r\nxyz\r\nabc\r\n0\r\n\r\n", "-1005"},
  });
}

TEST(TransportAnswers, RefusesWhatIsNoHTTP) {
  expectOutcomes({
      {"SSH-2.0-OpenSSH_9.2\r\n", "-1017"},
      {"HTTP/1.1\r\n\r\n", "-1017"},
      {"HTTP/1.1 20 OK\r\n\r\n", "-1017"},
      {"HTTP/1.1 2000 OK\r\n\r\n", "-1017"},
      {head + std::string("a: \0b\r\n\r\n", 9), "-1017"},
      {head + "Content-Length: -1\r\n\r\n", "-1017"},
      {head + "Content-Length: 2, 2\r\n\r\nok", "-1017"},
      {head + "Content-Length: 1180591620717411303424\r\n\r\nok", "-1017"},
      {head + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nok!", "-1017"},
      {head + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", "-1017"},
      {head + "a: " + std::string(200'000, 'a') + "\r\n\r\n", "-1017"},
  });
}

TEST(TransportAnswers, BoundsWhatItKeeps) {
  const auto endless = [](const std::string& start, const std::string& part) {
    return [=](Connection& connection) {
      connection.read();
      connection.send(start);
      while (connection.send(part)) continue;
    };
  };
  const CurlSession::Options options{.maximumAnswerSize = 10'000};
  RawServer headers(endless(head, "a: " + std::string(1000, 'a') + "\r\n"));
  EXPECT_EQ(Client(options).post(headers.url()), "-1005");
  RawServer interim(endless("", "HTTP/1.1 100 Continue\r\n\r\n"));
  EXPECT_EQ(Client(options).post(interim.url()), "-1005");
  RawServer body(endless(head + "\r\n", std::string(1000, 'a')));
  EXPECT_EQ(Client(options).post(body.url()), "-1103");
  RawServer fitting(answering(head + "Content-Length: 10000\r\n\r\n" + std::string(10'000, 'a')));
  EXPECT_EQ(Client(options).post(fitting.url()), "200 " + std::string(10'000, 'a'));
}

TEST(TransportAnswers, TakesAResetForALostConnection) {
  const std::string largeBody(20'000'000, 'x');
  const auto resetAfter = [](std::size_t received, const std::string& answer) {
    return [=](Connection& connection) {
      connection.receive(received);
      connection.send(answer);
      connection.reset();
    };
  };
  RawServer early(resetAfter(20, "")), midway(resetAfter(20, head + "Content-Length: 9\r\n\r\nhalf")),
      upload(resetAfter(1'000'000, ""));
  EXPECT_EQ(Client().post(early.url()), "-1005");
  EXPECT_EQ(Client().post(midway.url()), "-1005");
  EXPECT_EQ(Client().post(upload.url(), largeBody), "-1005");
}

TEST(TransportAnswers, TakesAnAnswerThatComesBeforeTheBodyIsSent) {
  RawServer server([](Connection& connection) {
    connection.receive(1'000'000);
    connection.send("HTTP/1.1 413 Too Large\r\nConnection: close\r\nContent-Length: 5\r\n\r\nlarge");
  });
  EXPECT_EQ(Client().post(server.url(), std::string(20'000'000, 'x')), "413 large");
}

}  // namespace
}  // namespace tavlo::test
