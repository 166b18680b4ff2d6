#pragma once

#include <Foundation/Coding.hpp>
#include <Foundation/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tavlo::foundation {

class JSONValue;
/// The elements of a JSON array.
using JSONArray = std::vector<JSONValue>;
/// The members of a JSON object by their key.
using JSONObject = std::map<std::string, JSONValue, std::less<>>;

/// A JSON value of any kind (RFC 8259). Integers that fit keep all 64 bits; any other number is a double.
class JSONValue {
 public:
  /// A whole number is std::int64_t where it fits, std::uint64_t only above that.
  using Variant =
      std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, JSONArray, JSONObject>;

  JSONValue() = default;                                        ///< null
  JSONValue(Variant value) : value_(std::move(value)) {}        ///< what it holds
  JSONValue(bool value) : value_(value) {}                      ///< true or false
  JSONValue(std::string value) : value_(std::move(value)) {}    ///< a text, in UTF-8
  JSONValue(const char* value) : value_(std::string(value)) {}  ///< a text, in UTF-8
  JSONValue(JSONArray value) : value_(std::move(value)) {}      ///< an array
  JSONValue(JSONObject value) : value_(std::move(value)) {}     ///< an object
  /// A whole number.
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) JSONValue(Integer value) : value_(number(value)) {}
  JSONValue(double value) : value_(value) {}  ///< a number

  /// Whether it is null.
  [[nodiscard]] bool isNull() const noexcept { return std::holds_alternative<std::nullptr_t>(value_); }

  /// The value when it is of type T (one of Variant's), else a null pointer.
  template <class T>
  [[nodiscard]] const T* getIf() const noexcept {
    return std::get_if<T>(&value_);
  }
  /// The same, to change it.
  template <class T>
  [[nodiscard]] T* getIf() noexcept {
    return std::get_if<T>(&value_);
  }

  /// The member `key` when this is an object that has it, else a null pointer.
  [[nodiscard]] const JSONValue* member(std::string_view key) const noexcept;

  /// What it holds, for std::visit.
  [[nodiscard]] const Variant& variant() const noexcept { return value_; }

  friend bool operator==(const JSONValue&, const JSONValue&) = default;

 private:
  template <std::integral Integer>
  static Variant number(Integer value) {
    if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
    return static_cast<std::uint64_t>(value);
  }

  Variant value_ = nullptr;
};

/// Encodes as the JSON value that it is.
template <>
struct Coding<JSONValue> {
  static void encode(const JSONValue& value, Encoder& encoder);
};

/// How JSON text is read.
enum class JSONReadingOptions : unsigned {
  none = 0,
  mutableContainers = 1,  ///< accepted; containers here are always mutable
  fragmentsAllowed = 4,   ///< the outermost value may be a plain one instead of an array or object
};

/// Reads JSON text.
class JSONSerialization {
 public:
  JSONSerialization() = delete;
  /// Reads one JSON text (RFC 8259, UTF-8 without a byte-order mark). Of two members with the same key the first
  /// counts. Throws DecodingError of kind dataCorrupted for malformed text or UTF-8, for numbers that a double cannot
  /// hold, for more than `maximumCodingDepth` open arrays and objects, and for a fragment where none is allowed.
  [[nodiscard]] static JSONValue jsonObject(DataView bytes, JSONReadingOptions options = JSONReadingOptions::none);
};

}  // namespace tavlo::foundation
