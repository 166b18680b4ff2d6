#pragma once

#include <Foundation/Coding.hpp>
#include <Foundation/Data.hpp>

#include <optional>
#include <utility>

namespace tavlo::foundation {

/// Reads values from JSON text (RFC 8259, UTF-8). A decoder keeps nothing between calls; any thread.
class JSONDecoder {
 public:
  /// The value of type T that `bytes` hold. The text is read as by JSONSerialization, fragments allowed; throws
  /// DecodingError where it is malformed or holds something else than a T.
  template <class T>
  [[nodiscard]] T decode(DataView bytes) const {
    std::optional<T> value;
    read(bytes, [&value](Decoder& decoder) { value.emplace(foundation::decode<T>(decoder)); });
    return std::move(*value);
  }

 private:
  static void read(DataView bytes, const DecodeFunction& decodeValue);
};

}  // namespace tavlo::foundation
