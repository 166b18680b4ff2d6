#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tavlo::foundation {

/// A web or file address: a URI reference of RFC 3986, kept as it was written. A relative one has no scheme.
class URL {
 public:
  /// The URL that `text` is. Absent when `text` is empty or not in RFC 3986's grammar: nothing is repaired or guessed,
  /// so a blank, a line end, a character outside ASCII or "127.0.0.1:80" gives nothing, and neither does an IP literal
  /// of a future version.
  [[nodiscard]] static std::optional<URL> parse(std::string_view text);

  /// The URL that `text` means when it stands at `base` (RFC 3986, section 5.2). Absent as above.
  [[nodiscard]] static std::optional<URL> parse(std::string_view text, const URL& base);

  /// The file URL of `path`; a relative path is taken from the current folder.
  /// Throws std::filesystem::filesystem_error when there is no such folder or `path` is empty.
  [[nodiscard]] static URL fileURLWithPath(std::string_view path);

  /// The whole text, as it was written.
  [[nodiscard]] const std::string& absoluteString() const { return text_; }
  /// In lower case, without its colon.
  [[nodiscard]] const std::optional<std::string>& scheme() const { return scheme_; }
  /// Host and port as written, without a name or password before them; absent when there is no "//".
  [[nodiscard]] std::optional<std::string> hostAndPort() const;
  /// As written, an IP literal without its brackets; absent when there is none or it is empty.
  [[nodiscard]] std::optional<std::string> host() const;
  /// Absent when there is none or it is empty; every number above 65535 reads as 65536.
  [[nodiscard]] std::optional<unsigned> port() const;
  /// With its percent escapes decoded, so it may hold any byte: a file's name where the scheme is "file".
  [[nodiscard]] std::string path() const;
  /// As written.
  [[nodiscard]] const std::string& percentEncodedPath() const { return path_; }
  /// As written, without its question mark.
  [[nodiscard]] const std::optional<std::string>& query() const { return query_; }

  friend bool operator==(const URL&, const URL&) = default;

 private:
  URL() = default;

  std::string text_;
  std::optional<std::string> scheme_;
  std::optional<std::string> authority_;
  std::string path_;
  std::optional<std::string> query_;
  std::optional<std::string> fragment_;
};

}  // namespace tavlo::foundation
