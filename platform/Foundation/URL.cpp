#include <Foundation/URL.hpp>

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace tavlo::foundation {
namespace {

// What RFC 3986 allows in each component beside unreserved characters and percent escapes.
constexpr std::string_view inHost = "!$&'()*+,;=";
constexpr std::string_view inUserinfo = "!$&'()*+,;=:";
constexpr std::string_view inPath = "!$&'()*+,;=:@/";
constexpr std::string_view inQuery = "!$&'()*+,;=:@/?";

// Of ASCII, whatever the locale.
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr char lowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
constexpr bool isLetter(char c) {
  return lowerCase(c) >= 'a' && lowerCase(c) <= 'z';
}
constexpr bool isHexDigit(char c) {
  return isDigit(c) || (lowerCase(c) >= 'a' && lowerCase(c) <= 'f');
}
constexpr bool contains(std::string_view set, char c) {
  return set.find(c) != std::string_view::npos;
}
constexpr bool isUnreserved(char c) {
  return isLetter(c) || isDigit(c) || contains("-._~", c);
}

bool isMadeOf(std::string_view text, std::string_view allowed) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%') {
      if (text.size() - i < 3 || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) return false;
      i += 2;
    } else if (!isUnreserved(text[i]) && !contains(allowed, text[i])) {
      return false;
    }
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isLetter(text[0]) &&
         std::ranges::all_of(text, [](char c) { return isLetter(c) || isDigit(c) || contains("+-.", c); });
}

bool isIPv6Address(std::string_view text) {
  in6_addr address;
  return isMadeOf(text, ":") && inet_pton(AF_INET6, std::string(text).c_str(), &address) == 1;
}

struct Authority {
  std::string_view userinfo, host, port;
};

Authority split(const std::optional<std::string>& authority) {
  Authority parts;
  std::string_view text = authority ? *authority : std::string_view();
  if (const auto at = text.find('@'); at != text.npos) {
    parts.userinfo = text.substr(0, at);
    text.remove_prefix(at + 1);
  }
  // The colons within the brackets of an IP literal start no port.
  const auto colon = text.find(':', text.starts_with("[") ? text.find(']') : 0);
  parts.host = text.substr(0, colon);
  if (colon != text.npos) parts.port = text.substr(colon + 1);
  return parts;
}

bool isAuthority(const std::optional<std::string>& authority) {
  const auto [userinfo, host, port] = split(authority);
  const bool isHost = host.starts_with("[") ? host.ends_with("]") && isIPv6Address(host.substr(1, host.size() - 2))
                                            : isMadeOf(host, inHost);
  return isHost && isMadeOf(userinfo, inUserinfo) && std::ranges::all_of(port, isDigit);
}

// RFC 3986, section 5.2.4.
std::string withoutDotSegments(std::string_view path) {
  std::string result;
  while (!path.empty()) {
    if (path.starts_with("../")) {
      path.remove_prefix(3);
    } else if (path.starts_with("./") || path.starts_with("/./")) {
      path.remove_prefix(2);
    } else if (path.starts_with("/../") || path == "/..") {
      const auto slash = result.rfind('/');
      result.resize(slash == result.npos ? 0 : slash);
      path = path == "/.." ? "/" : path.substr(3);
    } else if (path == "/.") {
      path = "/";
    } else if (path == "." || path == "..") {
      path = {};
    } else {
      const auto segment = path.substr(0, path.find('/', 1));
      result += segment;
      path.remove_prefix(segment.size());
    }
  }
  return result;
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  URL url;
  url.text_ = text;
  // A colon before any other delimiter ends a scheme: the grammar has none in a relative path's first segment.
  if (const auto end = text.find_first_of(":/?#"); end != text.npos && text[end] == ':') {
    if (!isScheme(text.substr(0, end))) return std::nullopt;
    std::ranges::transform(text.substr(0, end), std::back_inserter(url.scheme_.emplace()), lowerCase);
    text.remove_prefix(end + 1);
  }
  if (const auto hash = text.find('#'); hash != text.npos) {
    url.fragment_ = text.substr(hash + 1);
    text = text.substr(0, hash);
  }
  if (const auto mark = text.find('?'); mark != text.npos) {
    url.query_ = text.substr(mark + 1);
    text = text.substr(0, mark);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    url.authority_ = text.substr(0, text.find('/'));
    text.remove_prefix(url.authority_->size());
  }
  url.path_ = text;
  const bool wellFormed = isAuthority(url.authority_) && isMadeOf(url.path_, inPath) &&
                          isMadeOf(url.query_.value_or(""), inQuery) && isMadeOf(url.fragment_.value_or(""), inQuery);
  return wellFormed ? std::optional(std::move(url)) : std::nullopt;
}

std::optional<URL> URL::parse(std::string_view text, const URL& base) {
  auto url = parse(text);
  if (!url || url->scheme_) return url;
  if (!url->authority_) {
    if (url->path_.empty()) {
      url->path_ = base.path_;
      if (!url->query_) url->query_ = base.query_;
    } else if (!url->path_.starts_with("/")) {
      const bool noSegment = base.authority_ && base.path_.empty();
      url->path_.insert(0, noSegment ? "/" : base.path_.substr(0, base.path_.rfind('/') + 1));
    }
    url->authority_ = base.authority_;
  }
  std::string path = withoutDotSegments(url->path_);
  // What was a path must not become an authority or a scheme now that the dots before it are gone.
  if (!url->authority_ && path.starts_with("//")) path.insert(0, "/.");
  if (!base.scheme_ && path.substr(0, path.find('/')).find(':') != path.npos) path.insert(0, "./");
  return parse((base.scheme_ ? *base.scheme_ + ":" : "") + (url->authority_ ? "//" + *url->authority_ : "") + path +
               (url->query_ ? "?" + *url->query_ : "") + (url->fragment_ ? "#" + *url->fragment_ : ""));
}

URL URL::fileURLWithPath(std::string_view path) {
  const std::filesystem::path whole = std::filesystem::absolute(path);
  std::string text = "file://";
  for (const char c : whole.native()) {
    if (isUnreserved(c) || contains(inPath, c)) {
      text += c;
    } else {
      constexpr std::string_view hexDigits = "0123456789ABCDEF";
      const auto byte = static_cast<unsigned char>(c);
      text += {'%', hexDigits[byte >> 4], hexDigits[byte & 15]};
    }
  }
  return *parse(text);
}

std::optional<std::string> URL::hostAndPort() const {
  if (!authority_) return std::nullopt;
  return authority_->substr(authority_->find('@') + 1);
}

std::optional<std::string> URL::host() const {
  auto host = split(authority_).host;
  if (host.starts_with("[")) host = host.substr(1, host.size() - 2);
  return host.empty() ? std::nullopt : std::optional(std::string(host));
}

std::optional<unsigned> URL::port() const {
  const auto port = split(authority_).port;
  if (port.empty()) return std::nullopt;
  unsigned number = 0;
  const bool fits = std::from_chars(port.data(), port.data() + port.size(), number).ec == std::errc();
  return fits ? std::min(number, 65536U) : 65536U;
}

std::string URL::path() const {
  std::string result;
  for (std::size_t i = 0; i < path_.size(); ++i) {
    auto byte = static_cast<unsigned char>(path_[i]);
    if (byte == '%') {
      std::from_chars(&path_[i + 1], &path_[i + 1] + 2, byte, 16);
      i += 2;
    }
    result += static_cast<char>(byte);
  }
  return result;
}

}  // namespace tavlo::foundation
