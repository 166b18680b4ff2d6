#pragma once

#include <Foundation/Data.hpp>
#include <Foundation/JSONValue.hpp>

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace tavlo {

/// The library's own error: one text. Errors of the key store and of the network layer are never turned into it.
struct CAError : std::exception {
  /// Stores "CAError: " followed by `text`; so the text of another CAError gets the prefix a second time.
  explicit CAError(std::string_view text);

  /// The full text, prefix included. Setting it replaces the whole; no prefix is added.
  std::string message;

  /// `message`, unchanged.
  [[nodiscard]] std::string description() const { return message; }
  /// `message`, as long as it is not changed.
  [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }
};

/// The members of the JSON object (RFC 8259) that `text` holds. Absent when the text is no well-formed UTF-8 or no
/// JSON, or when its outermost value is no object; the cause is not told. Of two equal keys the first counts.
[[nodiscard]] std::optional<foundation::JSONObject> toJSON(std::string_view text);

/// Appends `text` to `data` as UTF-8; each ill-formed run in it becomes U+FFFD.
void appendString(foundation::NSMutableData& data, std::string_view text);

}  // namespace tavlo
