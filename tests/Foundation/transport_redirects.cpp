#include "TransportTest.hpp"

namespace tavlo::test {
namespace {

// Answers a request for ".../end" with its body and sends every other one on to `location`.
void redirect(RawServer::Connection& connection, int status, const std::string& location) {
  while (const auto request = connection.read()) {
    const bool isEnd = request->head.find("/end") != std::string::npos;
    const std::string& body = isEnd ? request->body : "here";
    connection.send("HTTP/1.1 " + std::to_string(isEnd ? 200 : status) + " So\r\nLocation: " + location +
                    "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
  }
}

TEST(TransportRedirects, AreFollowedOnTheSameServer) {
  struct Row {
    int status;
    const char *location, *requestLine, *outcome;
  };
  for (const Row& row : std::initializer_list<Row>{
           {301, "end?x#y", "GET /a/end?x HTTP/1.1\r\n", "200 "},
           {302, "/end", "GET /end HTTP/1.1\r\n", "200 "},
           {303, "../../end", "GET /end HTTP/1.1\r\n", "200 "},
           {307, "/end", "POST /end HTTP/1.1\r\n", "200 body"},
           {308, "//name@LOCALHOST/end", "POST /end HTTP/1.1\r\n", "200 body"},
       }) {
    std::string target = row.location;
    RawServer server([&](RawServer::Connection& connection) { redirect(connection, row.status, target); });
    if (const auto end = target.find("HOST/"); end != target.npos) target.insert(end + 4, ":" + server.port());
    EXPECT_EQ(Client().post(server.url("/a/b", "localhost"), "body"), row.outcome) << row.status;
    ASSERT_EQ(server.requests().size(), 2U);
    const auto [head, body] = server.requests()[1];
    EXPECT_EQ(head.substr(0, head.find("Host")), row.requestLine);
    EXPECT_EQ(body, row.status < 307 ? "" : "body");
    EXPECT_EQ(head.find("Content-") == std::string::npos, row.status < 307) << head;
    EXPECT_EQ(server.connections(), 1U);
  }
}

TEST(TransportRedirects, TakeNoBodyToAnotherServer) {
  RawServer other(answering(answerOK));
  for (const int status : {307, 308, 302}) {
    RawServer server([&](RawServer::Connection& connection) { redirect(connection, status, other.url("/end")); });
    EXPECT_EQ(Client().post(server.url(), "body"), status == 302 ? "200 ok" : "-1010");
  }
  ASSERT_EQ(other.requests().size(), 1U);
  EXPECT_EQ(other.requests()[0].body, "");
}

TEST(TransportRedirects, EndInTimeAndAtGoodAddressesOnly) {
  const auto post = [](const std::string& location) {
    RawServer server([&](RawServer::Connection& connection) { redirect(connection, 302, location); });
    const std::string result = Client().post(server.url());
    return result + " after " + std::to_string(server.requests().size());
  };
  EXPECT_EQ(post("/again"), "-1007 after 21");
  EXPECT_EQ(post("file:///etc/passwd"), "-1002 after 1");
  EXPECT_EQ(post("http:///end"), "-1000 after 1");
  EXPECT_EQ(post("/a b"), "-1000 after 1");
}

}  // namespace
}  // namespace tavlo::test
