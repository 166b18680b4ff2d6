#pragma once

#include <Foundation/Coding.hpp>
#include <Foundation/Data.hpp>

namespace tavlo::foundation {

/// Writes values as compact JSON (RFC 8259) in UTF-8: no white space, members in the order in which they are encoded,
/// numbers in the shortest form that reads back. An encoder keeps nothing between calls; any thread.
class JSONEncoder {
 public:
  /// The JSON text of `value`. Throws EncodingError for a number that is not finite, malformed UTF-8, a value that
  /// writes nothing, and more than `maximumCodingDepth` open arrays and objects; and what `value` itself throws.
  template <class T>
  [[nodiscard]] Data encode(const T& value) const {
    return write([&value](Encoder& encoder) { foundation::encode(value, encoder); });
  }

 private:
  static Data write(const EncodeFunction& encodeValue);
};

}  // namespace tavlo::foundation
