#include <malloc.h>

#include <cstring>
#include <map>
#include <sstream>

#include "TransportTest.hpp"

// Stand before the C++ library's, and count the large blocks that the network thread frees, and those still full.
static std::atomic<int> wiped = 0, unwiped = 0;
[[gnu::noinline]] void* operator new(std::size_t size) {
  return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* bytes) noexcept {
  char thread[16] = "";
  if (malloc_usable_size(bytes) > 500'000) pthread_getname_np(pthread_self(), thread, sizeof thread);
  if (std::strcmp(thread, "net.io") == 0) ++(static_cast<char*>(bytes)[1000] == 'x' ? unwiped : wiped);
  std::free(bytes);
}
void operator delete(void* bytes, std::size_t /*size*/) noexcept {
  operator delete(bytes);
}

namespace tavlo::test {

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

TEST(TransportWire, WipesBodiesAndWhatNobodyGets) {
  const std::string text(1'000'000, 'x');
  RawServer server([&](Connection& connection) {
    connection.read() && connection.send("HTTP/1.1 303 So\r\nLocation: /\r\nContent-Length: 1000000\r\n\r\n" + text);
    connection.read() && connection.send(head + "Content-Length: 2000000\r\n\r\n" + text);
  });
  wiped = unwiped = 0;
  EXPECT_EQ(post(server.url(), text) + post("http://localhost:1/", text), "-1005-1004");
  EXPECT_TRUE(wiped == 6 && unwiped == 0) << "two bodies, two answers and what these have outgrown";
}

TEST(TransportWire, NeverSendsARequestTwice) {
  for (const std::size_t size : {0U, 100U, 3'000'000U}) {
    RawServer server([](Connection& connection) {
      connection.read() && connection.send(answerOK) && connection.read();
      connection.close();
    });
    const auto session = std::make_shared<CurlSession>();
    EXPECT_EQ(start(session, server.url()).get(), "200 ok");
    EXPECT_EQ(start(session, server.url(), std::string(size, 'x')).get(), "-1005");
    EXPECT_EQ(server.requests().size(), 2U);
  }
}

TEST(TransportWire, ConnectsAgainWhenAConnectionHasBeenIdle) {
  // Many servers close after five seconds: just then a post must not be on its way.
  for (const auto& [keeps, time] : {std::pair{false, 1000}, {true, 4200}}) {
    RawServer server([keeps = keeps](Connection& connection) {
      while (connection.read() && connection.send(answerOK) && keeps) continue;
    });
    const auto session = std::make_shared<CurlSession>();
    EXPECT_EQ(start(session, server.url()).get(), "200 ok");
    std::this_thread::sleep_for(std::chrono::milliseconds(time));
    EXPECT_EQ(start(session, server.url()).get(), "200 ok");
    EXPECT_EQ(server.connections, 2U);
  }
}

TEST(TransportWire, UsesAProxyExceptForThisMachine) {
  RawServer server(answering(answerOK)), proxy([](Connection&connection) {
    const bool connects = connection.read()->body.empty();
    connection.send(connects ? "HTTP/1.1 403 No\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n" : answerOK);
  });
  for (const char* name : {"http_proxy", "all_proxy"}) setenv(name, proxy.url().c_str(), 1);
  setenv("no_proxy", "direct.invalid", 1);
  EXPECT_EQ(post("http://direct.invalid/"), "-1003");
  for (const char* host : {"127.0.0.1", "localhost"}) EXPECT_EQ(post(server.url("/", host)), "200 ok");
  EXPECT_EQ(proxy.connections, 0U);
  EXPECT_EQ(post("http://other.invalid/", "body"), "200 ok");
  EXPECT_EQ(proxy.requests().back().head,
            "POST http://other.invalid/ HTTP/1.1\r\nHost: other.invalid\r\nContent-Length: 4\r\n\r\n");
  EXPECT_EQ(post("https://other.invalid/", "body"), "-1005");
  EXPECT_TRUE(proxy.requests().back().head.starts_with("CONNECT other.invalid:443 HTTP/1.1\r\n"));
  for (const char* name : {"http_proxy", "all_proxy", "no_proxy"}) unsetenv(name);
}

TEST(TransportWire, HandsOverWholeAnswersOnly) {
  const std::string zeros(1'000'000, '\0'), chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
  std::map<std::string, std::vector<std::string>> answers = {
      {"200 ok",
       {chunked + "1;a=b\r\no\r\n1\r\nk\r\n0\r\nContent-Length: none\r\n\r\n", head + "\r\nok",
        "HTTP/1.0 200 OK\r\n\r\nok", interim + "HTTP/1.1 103 Early\r\nContent-Length: 8\r\n\r\n" + answerOK,
        answerOK + answerOK, head + "content-length:2\r\nContent-Length: 2\r\n\r\nok"}},
      {"200 ", {head + "Content-Length: 0\r\n\r\n"}},
      {"500 ", {"HTTP/1.1 500 So\r\n\r\n"}},
      {"200 " + zeros, {head + "\r\n" + zeros}},
      {"-1103", {head + "\r\n" + zeros + "0"}},
      {"204 ", {"HTTP/1.1 204 None\r\n\r\n"}},
      {"304 ", {"HTTP/1.1 304 Old\r\nContent-Length: 7\r\n\r\n"}},
      {"-1005",
       {"", "HTTP/1.1 2", head + "Content-Le", head + "Content-Length: 2\r\n", head + "Content-Length: 3\r\n\r\nok",
        interim, interim + head + "Content-Le", "HTTP/1.1 101 Switching Protocols\r\n\r\nok", chunked + "5\r\nabc",
        chunked + "3\r\nabc\r\n", chunked + "xyz\r\nabc\r\n0\r\n\r\n"}},
      {"-1017",
       {"SSH-2.0-OpenSSH_9.2\r\n", "HTTP/1.1\r\n\r\n", "HTTP/1.1 20 OK\r\n\r\n", "HTTP/1.1 2000 OK\r\n\r\n",
        head + std::string("a: \0b\r\n\r\n", 9), head + "Content-Length: -1\r\n\r\n",
        head + "Content-Length: two\r\n\r\nok", head + "Content-Length: 2, 2\r\n\r\nok",
        head + "Content-Length: 1180591620717411303424\r\n\r\nok",
        head + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nok!",
        head + "a: " + std::string(200'000, 'a') + "\r\n\r\n",
        head + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n"}}};
  for (const std::string status : {"302", "401", "404", "407", "500", "999"}) {
    answers[status + " ok"] = {"HTTP/1.1 " + status + " So\r\nWWW-Authenticate: Basic realm=x\r\n\r\nok"};
  }
  std::string endless[] = {"", head};
  while (endless[1].size() < 1'100'000) endless[0] += interim, endless[1] += "name: value\r\n";
  for (const auto& text : endless) answers["-1005"].push_back(text);
  answers["-1103"].push_back(head + "\r\n" + zeros + zeros);
  for (const auto& [outcome, texts] : answers) {
    for (const auto& text : texts) {
      RawServer server([&sent = text](Connection& connection) {
        connection.read();
        // What is endless goes on until the client has had enough: what the two kernels hold, and little more.
        for (int megabytes = 0; connection.send(sent) && sent.size() > 1'000'100; ++megabytes) ASSERT_LT(megabytes, 20);
      });
      EXPECT_TRUE(post(server.url(), "", 20, {.maximumAnswerSize = zeros.size()}) == outcome) << text.substr(0, 100);
    }
  }
}

TEST(TransportWire, EndsHoweverAServerBreaksOff) {
  const auto large = 20'000'000U;
  // The body's size, how much of the request is read, and what is sent before the connection is reset; closed at first.
  const std::tuple<unsigned, unsigned, std::string> rows[] = {
      {0, 0, ""}, {1, 0, ""}, {0, 1, ""}, {0, 20, ""}, {0, 20, answerOK.substr(0, 30)}, {large, 1'000'000, ""}};
  for (const auto& [size, part, sent] : rows) {
    RawServer server([size = size, part = part, sent = sent](Connection& connection) {
      connection.receive(part) && connection.send(sent);
      connection.close(size + part > 0);
    });
    const std::string outcome = post(server.url(), std::string(size, 'x'));
    EXPECT_TRUE(outcome == "-1005" || (part == 0 && outcome == "-1004")) << part << sent << outcome;
  }
  RawServer hasty([=](Connection& connection) {
    connection.receive(100'000) && connection.send("HTTP/1.1 413 Too Large\r\nContent-Length: 2\r\n\r\nno");
    EXPECT_FALSE(connection.receive(large)) << "nobody waits for the rest";
  });
  EXPECT_EQ(post(hasty.url(), std::string(large, 'x')), "413 no");
}

TEST(TransportWire, FollowsRedirects) {
  // Status, location, what comes of it, and how the last request begins.
  std::istringstream rows(
      "301,end?x#y,200 ,GET /a/end?x\n302,/end,200 ,GET /end\n303,../../end,200 ,GET /end\n302,/again,-1007,GET "
      "/again\n"
      "307,/end,200 body,POST /end\n308,//u@LOCALHOST:,200 body,POST /end\n302,file:///etc/passwd,-1002,POST /a/b\n"
      "302,http:///end,-1000,POST /a/b\n302,/a b,-1000,POST /a/b\n302,,302 body,POST /a/b\n"
      "300,/end,300 body,POST /a/b\n307,//localhost:1,-1010,POST /a/b\n308,http://127.0.0.1:1/,-1010,POST /a/b");
  std::string status, location, outcome, last;
  while (std::getline(rows, status, ',') && std::getline(rows, location, ',') && std::getline(rows, outcome, ',') &&
         std::getline(rows, last)) {
    RawServer server([&](Connection& connection) {
      while (const auto got = connection.read()) {
        connection.send(interim + "HTTP/1.1 " + (got->head.find("/end") != std::string::npos ? "200" : status) +
                        " So\r\nLocation: " + location + (location.ends_with(":") ? server.port + "/end" : "") +
                        "\r\nContent-Length: " + std::to_string(got->body.size()) + "\r\n\r\n" + got->body);
      }
    });
    EXPECT_EQ(post(server.url("/a/b", "localhost"), "body"), outcome) << location;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), last == "POST /a/b" ? 1U : outcome == "-1007" ? 21U : 2U) << location;
    EXPECT_TRUE(requests.back().head.starts_with(last + " HTTP/1.1\r\n")) << location;
    EXPECT_EQ(requests.back().head.find("Content-") == std::string::npos, last.starts_with("GET")) << location;
    EXPECT_EQ(server.connections, 1U);
  }
}

}  // namespace tavlo::test
