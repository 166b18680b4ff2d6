#pragma once

#include <Foundation/CompletionThread.hpp>
#include <Foundation/URLError.hpp>
#include <Foundation/URLSession.hpp>

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(hidden)

namespace tavlo::foundation {

/// What the process's environment says about connections, read once.
struct NetEnvironment {
  NetEnvironment();

  /// A file and a folder of trusted certificates: SSL_CERT_FILE and SSL_CERT_DIR. Where either is named, the system's
  /// own are not trusted.
  std::optional<std::string> trustFile, trustFolder;
  /// The hosts that are reached without a proxy: those that no_proxy names, and this machine.
  std::string noProxy;
};

/// One request on its way through libcurl, redirects included. But for its constructor, of one thread only.
class CurlTransfer {
 public:
  using Clock = std::chrono::steady_clock;

  /// The time limit runs from here. An answer of more than `maximumAnswerSize` bytes is an error.
  CurlTransfer(URLRequest request, URLSession::CompletionHandler handler, std::size_t maximumAnswerSize);

  /// Wipes the body, and what has come of an answer that nobody gets.
  ~CurlTransfer();

  /// A handle that sends the request; it lives until the next call or the end of this object.
  /// Throws URLError when the request cannot be sent.
  [[nodiscard]] CURL* prepare(const NetEnvironment& environment);
  /// The handle that `prepare` made last; none before.
  [[nodiscard]] CURL* handle() const { return easy_.get(); }

  /// When the request times out, unless something moves before.
  [[nodiscard]] Clock::time_point deadline() const { return lastActivity_ + timeout_; }

  /// To be told when libcurl is done with the handle. Whether that is the end: if not, a redirect is to be followed, by
  /// `prepare`. Throws URLError when there is no answer.
  [[nodiscard]] bool conclude(CURLcode result);

  /// What the handler gets: `error`, or the answer when there is none. The last use of this object.
  [[nodiscard]] Completion complete(std::optional<URLError> error = std::nullopt);

 private:
  /// What matters of the header block that came last.
  struct Head {
    bool interim = true;
    bool complete = false;
    bool chunked = false;
    std::optional<std::int64_t> contentLength;
    std::string location;
  };
  /// What belongs to one sending of the request; a redirect starts afresh.
  struct Exchange {
    bool sent = false;
    curl_off_t moved = 0;
    Head head;
    Data body;
    std::optional<URLError::Code> failure;
    std::shared_ptr<const bool> closeNotice;
  };
  struct Cleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };

  template <class Value>
  void set(CURLoption option, Value value);
  void setCallbacks();
  template <class Action>
  static bool notice(void* self, Action action) noexcept;

  void takeConnection();
  void takeHeaderLine(std::string_view line);
  void takeBody(std::string_view bytes);
  [[nodiscard]] int statusCode() const;
  [[nodiscard]] bool isCutShort() const;
  [[nodiscard]] URLError::Code codeOf(CURLcode result) const;

  URLRequest request_;
  URLSession::CompletionHandler handler_;
  const std::size_t maximumAnswerSize_;
  const Clock::duration timeout_;
  Clock::time_point lastActivity_ = Clock::now();
  int redirects_ = 0;
  Exchange exchange_;
  std::unique_ptr<CURL, Cleanup> easy_;
};

}  // namespace tavlo::foundation

#pragma GCC visibility pop
