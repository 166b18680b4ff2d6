#pragma once

#include <Foundation/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(hidden)

namespace tavlo::reader {

/// Takes a tag of up to four bytes off the front of `bytes`; absent when they end too early.
[[nodiscard]] std::optional<std::uint32_t> takeTag(foundation::DataView& bytes);

/// Takes a definite length off the front of `bytes`; absent when they end too early or it is of another form.
[[nodiscard]] std::optional<std::size_t> takeLength(foundation::DataView& bytes);

/// A tag as it is written in standards, such as "5F1F".
[[nodiscard]] std::string tagText(std::uint32_t tag);

/// A size for people, such as "1 byte" or "2 bytes".
[[nodiscard]] std::string byteCount(std::size_t count);

/// One element: a tag and its value, which is a view into the bytes that were read.
struct TLV {
  std::uint32_t tag;
  foundation::DataView value;
};

/// Reads BER-TLV elements as chips write them (ISO/IEC 7816-4), one after the other. No length is believed before it
/// is held against what is left. Errors are ReaderErrors that begin with the name of the group.
class TLVReader {
 public:
  TLVReader(foundation::DataView bytes, std::string_view groupName) : rest_(bytes), groupName_(groupName) {}

  [[nodiscard]] bool atEnd() const noexcept { return rest_.empty(); }
  [[nodiscard]] foundation::DataView rest() const noexcept { return rest_; }

  /// The next element.
  [[nodiscard]] TLV next();
  /// The value of the next element, which must have the tag `tag`.
  [[nodiscard]] foundation::DataView next(std::uint32_t tag);
  /// The next element as a number of things that follow.
  [[nodiscard]] std::size_t nextCount();
  /// Throws when anything is left.
  void expectEnd() const;

  [[noreturn]] void fail(const std::string& what) const;

 private:
  foundation::DataView rest_;
  std::string_view groupName_;
};

}  // namespace tavlo::reader

#pragma GCC visibility pop
