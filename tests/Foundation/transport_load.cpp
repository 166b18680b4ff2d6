#include <chrono>

#include "TransportTest.hpp"

namespace tavlo::test {
namespace {

using Connection = RawServer::Connection;

std::string echo(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// More posts than places, from several threads: each ends once, in time, and with its own answer.
TEST(TransportLoad, GivesEachOfAThousandPostsItsOwnAnswer) {
  RawServer server([](Connection& connection) {
    while (const auto request = connection.read()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (request->body.ends_with("7")) return connection.close();
      connection.send(echo(request->body));
    }
  });
  Client client;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&, thread] {
      std::vector<std::pair<std::string, std::future<std::string>>> posts;
      for (int i = 0; i < 125; ++i) {
        const std::string body = std::to_string(thread) + "/" + std::to_string(i);
        posts.emplace_back(body, client.start(server.url(), body, 20));
      }
      for (auto& [body, result] : posts) EXPECT_EQ(result.get(), body.ends_with("7") ? "-1005" : "200 " + body);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(server.requests().size(), 1000U);
  EXPECT_LE(server.connections(), 300U);
}

TEST(TransportLoad, PostsFromWithinCompletions) {
  RawServer server(answering(answerOK));
  std::promise<void> done;
  Client client({.maximumActive = 1});
  std::function<void(int)> post = [&](int left) {
    client.start(server.url(), "", 5, [&, left] { left > 0 ? post(left - 1) : done.set_value(); });
  };
  post(200);
  done.get_future().wait();
  EXPECT_EQ(server.connections(), 1U);
}

TEST(TransportLoad, GoesOnWhileACompletionTakesItsTime) {
  std::promise<void> arrived;
  RawServer slow(answering(answerOK)), other([&](Connection&connection) {
    connection.read();
    arrived.set_value();
    connection.send(answerOK);
  });
  Client client;
  std::promise<bool> arrivedMeanwhile;
  client.start(slow.url(), "", 5, [&] {
    auto result = client.start(other.url());
    arrivedMeanwhile.set_value(arrived.get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready);
  });
  EXPECT_TRUE(arrivedMeanwhile.get_future().get());
}

TEST(TransportLoad, ReportsWhatItCannotSendLater) {
  Client client;
  EXPECT_EQ(client.post("ftp://127.0.0.1/"), "-1002");
  EXPECT_EQ(client.post("file:///etc/passwd"), "-1002");
  EXPECT_EQ(client.post("/verify"), "-1002");
  EXPECT_EQ(client.post("localhost:80/x"), "-1002");
  EXPECT_EQ(client.post("http:///x"), "-1000");
  EXPECT_EQ(client.post("http://127.0.0.1:99999/"), "-1000");
}

// The session goes away with requests under way, waiting and not yet seen.
TEST(TransportLoad, CancelsWhatHasNotEnded) {
  RawServer silent([](Connection& connection) { connection.receive(1U << 30); });
  std::vector<std::future<std::string>> posts;
  {
    Client client({.maximumActive = 2});
    for (int i = 0; i < 10; ++i) posts.push_back(client.start(silent.url()));
  }
  for (auto& post : posts) EXPECT_EQ(post.get(), "-999");
}

}  // namespace
}  // namespace tavlo::test
