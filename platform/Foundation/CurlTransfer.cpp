#include <Foundation/CurlTransfer.hpp>

#include <Foundation/CloseNotice.hpp>
#include <Foundation/Environment.hpp>
#include <Foundation/Redirect.hpp>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <new>
#include <system_error>
#include <type_traits>
#include <utility>

namespace tavlo::foundation {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::chrono::hours maximumTransferTime{7 * 24};
constexpr std::chrono::seconds maximumIdleTime{3};
constexpr int maximumUnsentBytes = 128 * 1024;
constexpr int maximumRedirects = 20;

// libcurl would add these by itself; with a large body, Expect costs a second where the server ignores it.
curl_slist* suppressedHeaders() {
  static curl_slist* const list = [] {
    curl_slist* names = nullptr;
    for (const char* name : {"Content-Type:", "Accept:", "Expect:", "Proxy-Connection:"}) {
      names = curl_slist_append(names, name);
    }
    return names;
  }();
  return list;
}

// Without the name and password and the fragment, which do not leave this machine.
std::string textToSend(const URL& url) {
  return *url.scheme() + "://" + *url.hostAndPort() + url.percentEncodedPath() +
         (url.query() ? "?" + *url.query() : "");
}

curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
  const int handle = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
  // Else megabytes wait in the kernel, and a slow but steady upload looks like one that stands still.
  if (handle >= 0 && address->protocol == IPPROTO_TCP) {
    setsockopt(handle, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &maximumUnsentBytes, sizeof maximumUnsentBytes);
  }
  return handle;
}

bool isField(std::string_view name, std::string_view wanted) {
  return name.size() == wanted.size() && curl_strnequal(name.data(), wanted.data(), wanted.size()) != 0;
}

std::int64_t parseContentLength(std::string_view text) {
  std::int64_t length = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (error != std::errc() || end != text.data() + text.size() || length < 0) {
    throw URLError(URLError::Code::cannotParseResponse);
  }
  return length;
}

}  // namespace

NetEnvironment::NetEnvironment()
    : trustFile(environmentValue("SSL_CERT_FILE")), trustFolder(environmentValue("SSL_CERT_DIR")) {
  for (const char* name : {"no_proxy", "NO_PROXY"}) {
    if (noProxy.empty()) noProxy = environmentValue(name).value_or("");
  }
  // An asterisk means every host, and only when it stands alone.
  if (noProxy != "*") noProxy += ",localhost,127.0.0.1,::1";
}

CurlTransfer::CurlTransfer(URLRequest request, URLSession::CompletionHandler handler, std::size_t maximumAnswerSize)
    : request_(std::move(request)),
      handler_(std::move(handler)),
      maximumAnswerSize_(maximumAnswerSize),
      timeout_(std::chrono::duration_cast<Clock::duration>(
          std::min<Seconds>(maximumTransferTime, std::max(Seconds{0}, request_.timeoutInterval)))) {}

CurlTransfer::~CurlTransfer() {
  wipe(request_.httpBody);
  wipe(exchange_.body);
}

template <class Value>
void CurlTransfer::set(CURLoption option, Value value) {
  static_assert(std::is_same_v<Value, long> || std::is_same_v<Value, curl_off_t> || std::is_pointer_v<Value>);
  if (curl_easy_setopt(easy_.get(), option, value) != CURLE_OK) throw URLError(URLError::Code::unknown);
}

CURL* CurlTransfer::prepare(const NetEnvironment& environment) {
  requireSendable(request_.url);
  const bool posts = request_.httpMethod == "POST";
  if (!posts && request_.httpMethod != "GET") throw URLError(URLError::Code::unsupportedURL);
  wipe(exchange_.body);
  exchange_ = {};
  easy_.reset(curl_easy_init());
  if (!easy_) throw URLError(URLError::Code::unknown);

  set(CURLOPT_URL, textToSend(request_.url).c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  if (posts) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.httpBody.size()));
    set(CURLOPT_POSTFIELDS, request_.httpBody.empty() ? "" : static_cast<const void*>(request_.httpBody.data()));
  }
  set(CURLOPT_HTTPHEADER, suppressedHeaders());
  set(CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_NONE));
  set(CURLOPT_FOLLOWLOCATION, 0L);

  set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (environment.trustFile || environment.trustFolder) {
    set(CURLOPT_CAINFO, environment.trustFile ? environment.trustFile->c_str() : nullptr);
    set(CURLOPT_CAPATH, environment.trustFolder ? environment.trustFolder->c_str() : nullptr);
  } else if (curl_version_info(CURLVERSION_NOW)->cainfo != nullptr) {
    // The system's bundle holds what its folder holds, and only with the bundle alone does libcurl parse it just once.
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }

  set(CURLOPT_NOPROXY, environment.noProxy.c_str());
  set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  // One that has been idle for longer may be closed by the server just when a request is on its way.
  set(CURLOPT_MAXAGE_CONN, static_cast<long>(maximumIdleTime.count()));
  // The time limit is the session's business: it counts from the last movement, which libcurl cannot.
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(maximumTransferTime).count()));
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(std::chrono::milliseconds(maximumTransferTime).count()));
  set(CURLOPT_NOSIGNAL, 1L);
  // Else giving up a transfer waits for the resolver.
  set(CURLOPT_QUICK_EXIT, 1L);
  setCallbacks();
  return easy_.get();
}

void CurlTransfer::setCallbacks() {
  const curl_prereq_callback onConnection = [](void* self, char*, char*, int, int) {
    const bool goesOn = notice(self, [](CurlTransfer& transfer) { transfer.takeConnection(); });
    return goesOn ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
  };
  const curl_write_callback onHeaderLine = [](char* bytes, std::size_t, std::size_t size, void* self) {
    return notice(self, [=](CurlTransfer& transfer) { transfer.takeHeaderLine({bytes, size}); }) ? size : 0;
  };
  const curl_write_callback onBody = [](char* bytes, std::size_t, std::size_t size, void* self) {
    return notice(self, [=](CurlTransfer& transfer) { transfer.takeBody({bytes, size}); }) ? size : 0;
  };
  const curl_xferinfo_callback onProgress = [](void* self, curl_off_t, curl_off_t received, curl_off_t,
                                               curl_off_t sent) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const auto moved = received + sent;
    if (std::exchange(transfer.exchange_.moved, moved) != moved) transfer.lastActivity_ = Clock::now();
    return 0;
  };
  set(CURLOPT_OPENSOCKETFUNCTION, openSocket);
  set(CURLOPT_PREREQDATA, this);
  set(CURLOPT_PREREQFUNCTION, onConnection);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_HEADERFUNCTION, onHeaderLine);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_WRITEFUNCTION, onBody);
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFODATA, this);
  set(CURLOPT_XFERINFOFUNCTION, onProgress);
}

template <class Action>
bool CurlTransfer::notice(void* self, Action action) noexcept {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  transfer.lastActivity_ = Clock::now();
  try {
    action(transfer);
    return true;
  } catch (const URLError& error) {
    transfer.exchange_.failure = error.code();
  } catch (const std::bad_alloc&) {
    transfer.exchange_.failure = URLError::Code::dataLengthExceedsMaximum;
  }
  return false;
}

void CurlTransfer::takeConnection() {
  // When a kept connection turns out to be dead, libcurl would send the request again; the server may have acted on it.
  if (std::exchange(exchange_.sent, true)) throw URLError(URLError::Code::networkConnectionLost);
  exchange_.closeNotice = watchCloseNotice(easy_.get());
}

void CurlTransfer::takeHeaderLine(std::string_view line) {
  Head& head = exchange_.head;
  if (head.complete && !head.interim) return;  // A trailer.
  if (line.starts_with("HTTP/")) {
    head = {};
    head.interim = statusCode() < 200;
    return;
  }
  line = line.substr(0, line.find_last_not_of("\r\n \t") + 1);
  if (line.empty()) head.complete = true;
  const auto name = line.substr(0, line.find(':'));
  auto value = line.substr(std::min(line.size(), name.size() + 1));
  value.remove_prefix(std::min(value.size(), value.find_first_not_of(" \t")));

  if (isField(name, "Content-Length")) {
    const auto length = parseContentLength(value);
    if (head.contentLength.value_or(length) != length) throw URLError(URLError::Code::cannotParseResponse);
    head.contentLength = length;
  } else if (isField(name, "Transfer-Encoding")) {
    // No other one was offered, and libcurl would unpack it.
    if (!isField(value, "chunked")) throw URLError(URLError::Code::cannotParseResponse);
    head.chunked = true;
  } else if (isField(name, "Location")) {
    head.location = value;
  }
}

void CurlTransfer::takeBody(std::string_view bytes) {
  Data& body = exchange_.body;
  if (bytes.size() > maximumAnswerSize_ - body.size()) throw URLError(URLError::Code::dataLengthExceedsMaximum);
  if (bytes.size() > body.capacity() - body.size()) {
    Data larger;  // by hand, for what a vector outgrows is not wiped
    larger.reserve(std::max(2 * body.capacity(), body.size() + bytes.size()));
    larger.assign(body.begin(), body.end());
    body.swap(larger);
    wipe(larger);
  }
  body.insert(body.end(), bytes.begin(), bytes.end());
}

bool CurlTransfer::conclude(CURLcode result) {
  if (exchange_.failure) throw URLError(*exchange_.failure);
  if (result != CURLE_OK) throw URLError(codeOf(result), request_.url.host().value_or(""));
  if (isCutShort()) throw URLError(URLError::Code::networkConnectionLost);
  if (!redirect(request_, statusCode(), exchange_.head.location)) return true;
  if (++redirects_ > maximumRedirects) throw URLError(URLError::Code::httpTooManyRedirects);
  return false;
}

Completion CurlTransfer::complete(std::optional<URLError> error) {
  if (error) return {std::move(handler_), std::nullopt, std::nullopt, std::move(error)};
  return {std::move(handler_), std::move(exchange_.body), URLResponse{statusCode(), request_.url.absoluteString()},
          std::nullopt};
}

int CurlTransfer::statusCode() const {
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

// libcurl takes a connection that ends within the header block, or before the final answer, for the end of the answer.
bool CurlTransfer::isCutShort() const {
  const auto& [interim, complete, chunked, contentLength, location] = exchange_.head;
  if (!complete || interim) return true;
  long version = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_HTTP_VERSION, &version);
  const bool endsByClose =
      !chunked && !contentLength && statusCode() != 204 && statusCode() != 304 && version <= CURL_HTTP_VERSION_1_1;
  return endsByClose && exchange_.closeNotice && !*exchange_.closeNotice;
}

URLError::Code CurlTransfer::codeOf(CURLcode result) const {
  using enum URLError::Code;
  switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return cannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return cannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT:
      return timedOut;
    case CURLE_URL_MALFORMAT:
      return badURL;
    case CURLE_UNSUPPORTED_PROTOCOL:
      return exchange_.sent ? cannotParseResponse : unsupportedURL;
    case CURLE_OUT_OF_MEMORY:  // What libcurl calls a header line of more than 100 KB.
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
      return cannotParseResponse;
    case CURLE_PEER_FAILED_VERIFICATION:
      return serverCertificateUntrusted;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
      return secureConnectionFailed;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return networkConnectionLost;
    default:
      return unknown;
  }
}

}  // namespace tavlo::foundation
