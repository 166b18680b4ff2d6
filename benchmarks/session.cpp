#include "Cases.hpp"
#include "Timing.hpp"

#include <TavloCA/TavloCA.hpp>

#include <curl/curl.h>

#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>

namespace tavlo::bench {
namespace {

using foundation::Data;

void compare(std::string_view answer, const std::string& expected) {
  if (answer != expected) throw std::runtime_error("the server got something else: " + std::string(answer));
}

/// A handle as a user's own code would have it, with libcurl's defaults.
class Handle {
 public:
  Handle(const std::string& url, const std::string& trustFile) {
    curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_, CURLOPT_CAINFO, trustFile.c_str());
    curl_easy_setopt(curl_, CURLOPT_HTTPHEADER, headers_);
    const curl_write_callback keep = [](char* bytes, std::size_t, std::size_t size, void* answer) {
      static_cast<std::string*>(answer)->append(bytes, size);
      return size;
    };
    curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, keep);
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &answer_);
  }
  ~Handle() {
    curl_slist_free_all(headers_);
    curl_easy_cleanup(curl_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  const std::string& post(const Data& body) {
    answer_.clear();
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    if (curl_easy_perform(curl_) != CURLE_OK) throw std::runtime_error("libcurl cannot post");
    return answer_;
  }

 private:
  CURL* const curl_ = curl_easy_init();
  curl_slist* const headers_ = curl_slist_append(nullptr, "Expect:");
  std::string answer_;
};

/// Posts each of `bodies` through the library, at most `outstanding` at a time, and compares the answers.
void postAll(const std::string& url, std::vector<Data> bodies, const std::string& expected, std::size_t outstanding) {
  std::atomic<std::size_t> next = 0, left = bodies.size();
  std::promise<bool> finished;
  auto finish = finished.get_future();
  std::atomic<bool> equal = true;
  std::function<void()> postNext = [&] {
    const std::size_t at = next++;
    if (at >= bodies.size()) return;
    TavloCA::post(std::move(bodies[at]), url, [&](const std::optional<Data>& answer, const std::exception_ptr&) {
      if (!answer || foundation::textOf(*answer) != expected) equal = false;
      postNext();
      if (--left == 0) finished.set_value(equal);
    });
  };
  for (std::size_t i = 0; i < outstanding; ++i) postNext();
  if (!finish.get()) throw std::runtime_error("an answer is missing or wrong");
}

void addSession(const std::string& kind, const std::string& url, const std::string& trustFile) {
  const Data body(1000, 'x');
  const std::string expected = Server::answerTo(foundation::textOf(body));
  constexpr std::size_t batch = 256;
  const std::string group = "posts/" + kind + "/1KB/";
  const auto addPosts = [&](const std::string& who, std::size_t count, auto run) {
    // Idle connections are closed after seconds, and here it is kept ones that are measured.
    addCase(
        group + who, [count] { return counter("posts", count); }, run, run);
  };
  addPosts("ours-64", batch, [=] { postAll(url, std::vector(batch, body), expected, 64); });
  addPosts("ours-1", batch, [=] { postAll(url, std::vector(batch, body), expected, 1); });
  addPosts("handle-per-call", 1, [=] { compare(Handle(url, trustFile).post(body), expected); });
  addPosts("kept-handle", 1,
           [=, handle = std::make_shared<Handle>(url, trustFile)] { compare(handle->post(body), expected); });

  const Data upload(20'000'000, 'y');
  const std::string uploaded = Server::answerTo(foundation::textOf(upload));
  const auto addUpload = [&](const std::string& who, auto run) {
    const auto prepare = [=] {
      auto copy = upload;
      const std::size_t peak = peakMemory([&] { run(std::move(copy)); });
      return Counters{{"bytes", 2e7}, {"peak", peak}};
    };
    addCase("upload/" + kind + "/20MB/" + who, prepare, [=](benchmark::State& state) {
      state.PauseTiming();
      auto copy = upload;
      state.ResumeTiming();
      run(std::move(copy));
    });
  };
  addUpload("ours", [=](Data&& data) {
    std::vector<Data> bodies;
    bodies.push_back(std::move(data));
    postAll(url, std::move(bodies), uploaded, 1);
  });
  addUpload("kept-handle", [=, handle = std::make_shared<Handle>(url, trustFile)](const Data& data) {
    compare(handle->post(data), uploaded);
  });
}

}  // namespace

void addSessionCases(const Servers& servers) {
  addSession("plain", servers.plain.url(), servers.trustFile);
  addSession("tls", servers.tls.url(), servers.trustFile);

  const auto url = servers.plain.url();
  for (const auto& [name, size] : {std::pair{"1KB", 1000}, {"100KB", 100'000}}) {
    const auto postThousand = [url, size = static_cast<std::size_t>(size)] {
      std::vector bodies(1000, Data(size, 'z'));
      const std::string expected = Server::answerTo(foundation::textOf(bodies.front()));
      return peakMemory([&] { postAll(url, std::move(bodies), expected, 1000); });
    };
    addCase(
        std::string("queue/plain/") + name + "/ours",
        [=] {
          static_cast<void>(postThousand());  // Connections and threads are there from now on.
          return counter("peak-per-post", postThousand() / 1000);
        },
        postThousand);
  }
  const auto post = [=, body = Data(1000, 'x')] {
    postAll(url, {body}, Server::answerTo(foundation::textOf(body)), 1);
  };
  addCase(
      "earlier-calls/post/20000/ours",
      [=] {
        return Counters{{"late-over-early", lateOverEarly(20'000, post)}};
      },
      post);
}

}  // namespace tavlo::bench
