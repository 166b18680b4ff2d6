#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace tavlo::foundation {

// ---- Errors --------------------------------------------------------------------------------------------------------

/// One step from a value to one inside it: a member's key or an element's index.
using CodingKey = std::variant<std::string, std::size_t>;
/// The way from the outermost value to the one in question; empty at the outermost.
using CodingPath = std::vector<CodingKey>;

/// The path for people, such as "children[0].gender".
[[nodiscard]] std::string describe(const CodingPath& path);

/// How many arrays and objects may be open inside each other, both in encoding and in decoding.
inline constexpr std::size_t maximumCodingDepth = 512;

/// Why a value could not be read.
class DecodingError : public std::exception {
 public:
  /// What kind of fault it is.
  enum class Kind {
    keyNotFound,    ///< a required member is missing; the path ends with its key
    typeMismatch,   ///< the value is of another type
    valueNotFound,  ///< null, or the end of an array, where a value is required
    dataCorrupted,  ///< malformed input, or a value of the right type that means nothing
  };
  /// `path` leads to the value, `message` says what is wrong with it.
  DecodingError(Kind kind, CodingPath path, const std::string& message);

  /// What kind of fault it is.
  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  /// Where the value stands, from the outermost one.
  [[nodiscard]] const CodingPath& codingPath() const noexcept { return path_; }
  /// Path and fault in English; holds no value that was read.
  [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

 private:
  Kind kind_;
  CodingPath path_;
  std::string text_;
};

/// Why a value could not be written: the format has no form for it.
class EncodingError : public std::exception {
 public:
  /// `path` leads to the value, `message` says what is wrong with it.
  EncodingError(CodingPath path, const std::string& message);

  /// Where the value stands, from the outermost one.
  [[nodiscard]] const CodingPath& codingPath() const noexcept { return path_; }
  /// Path and fault in English; holds no value that was read.
  [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

 private:
  CodingPath path_;
  std::string text_;
};

// ---- Encoding ------------------------------------------------------------------------------------------------------

class Encoder;

/// Writes something into the place that it is given.
using EncodeFunction = std::function<void(Encoder&)>;

/// How values of type T are written and read. Specialise it for a type of your own, or give the type a `members()`
/// table: `static void encode(const T&, Encoder&)` and `static T decode(Decoder&)`.
template <class T>
struct Coding;

/// Writes `value` into the place that `encoder` stands for. Throws what the encoder throws.
template <class T>
void encode(const T& value, Encoder& encoder) {
  Coding<T>::encode(value, encoder);
}

/// Takes named values, written in the order of the calls. A key that is written again replaces what it held.
class KeyedEncodingContainer {
 public:
  virtual ~KeyedEncodingContainer() = default;
  /// Writes the member `key` through `write`.
  virtual void encodeMember(std::string_view key, const EncodeFunction& write) = 0;

  /// Writes the member `key` as Coding<T> has it.
  template <class T>
  void encode(std::string_view key, const T& value) {
    encodeMember(key, [&value](Encoder& place) { foundation::encode(value, place); });
  }
  /// Writes nothing at all when the value is absent.
  template <class T>
  void encodeIfPresent(std::string_view key, const std::optional<T>& value) {
    if (value) encode(key, *value);
  }
};

/// Takes values one after another.
class UnkeyedEncodingContainer {
 public:
  virtual ~UnkeyedEncodingContainer() = default;
  /// Writes the next element through `write`.
  virtual void encodeElement(const EncodeFunction& write) = 0;

  /// Writes the next element as Coding<T> has it.
  template <class T>
  void encode(const T& value) {
    encodeElement([&value](Encoder& place) { foundation::encode(value, place); });
  }
};

/// Takes one plain value.
class SingleValueEncodingContainer {
 public:
  virtual ~SingleValueEncodingContainer() = default;
  virtual void encodeNil() = 0;                          ///< writes null
  virtual void encodeBool(bool value) = 0;               ///< writes true or false
  virtual void encodeInteger(std::int64_t value) = 0;    ///< writes a whole number
  virtual void encodeUnsigned(std::uint64_t value) = 0;  ///< writes a whole number
  /// Throws EncodingError for NaN and infinities where the format has none.
  virtual void encodeDouble(double value) = 0;
  /// Throws EncodingError for malformed UTF-8.
  virtual void encodeString(std::string_view value) = 0;
};

/// A place for one value. Whoever writes the value chooses one kind of container; asking for the same kind again gives
/// the same container, so that a subclass can add members to those of its base. Containers live as long as their
/// encoder.
class Encoder {
 public:
  virtual ~Encoder() = default;
  [[nodiscard]] virtual CodingPath codingPath() const = 0;                 ///< from the outermost value to this place
  [[nodiscard]] virtual KeyedEncodingContainer& container() = 0;           ///< for an object's members
  [[nodiscard]] virtual UnkeyedEncodingContainer& unkeyedContainer() = 0;  ///< for an array's elements
  [[nodiscard]] virtual SingleValueEncodingContainer& singleValueContainer() = 0;  ///< for a plain value
};

// ---- Decoding ------------------------------------------------------------------------------------------------------

class Decoder;

/// Reads something from the place that it is given.
using DecodeFunction = std::function<void(Decoder&)>;

/// Reads a T from the place that `decoder` stands for. Throws what the decoder throws.
template <class T>
[[nodiscard]] T decode(Decoder& decoder) {
  return Coding<T>::decode(decoder);
}

/// Gives named values, in any order. Members that nobody asks for are ignored.
class KeyedDecodingContainer {
 public:
  virtual ~KeyedDecodingContainer() = default;
  /// Whether the member is there, be it null.
  [[nodiscard]] virtual bool contains(std::string_view key) const = 0;
  /// Whether the member is there and null.
  [[nodiscard]] virtual bool isNil(std::string_view key) const = 0;
  /// Reads the member `key` through `read`; throws DecodingError of kind keyNotFound when it is missing.
  virtual void decodeMember(std::string_view key, const DecodeFunction& read) = 0;

  /// Reads the member `key` as Coding<T> has it; throws DecodingError, of kind keyNotFound when it is missing.
  template <class T>
  [[nodiscard]] T decode(std::string_view key) {
    std::optional<T> value;
    decodeMember(key, [&value](Decoder& place) { value.emplace(foundation::decode<T>(place)); });
    return std::move(*value);
  }
  /// Absent when the member is missing or null.
  template <class T>
  [[nodiscard]] std::optional<T> decodeIfPresent(std::string_view key) {
    if (!contains(key) || isNil(key)) return std::nullopt;
    return decode<T>(key);
  }
};

/// Gives values one after another.
class UnkeyedDecodingContainer {
 public:
  virtual ~UnkeyedDecodingContainer() = default;
  [[nodiscard]] virtual bool isAtEnd() const = 0;  ///< whether no element is left
  /// Reads the next element through `read`; throws DecodingError of kind valueNotFound at the end.
  virtual void decodeElement(const DecodeFunction& read) = 0;

  /// Reads the next element as Coding<T> has it; throws DecodingError, of kind valueNotFound at the end.
  template <class T>
  [[nodiscard]] T decode() {
    std::optional<T> value;
    decodeElement([&value](Decoder& place) { value.emplace(foundation::decode<T>(place)); });
    return std::move(*value);
  }
};

/// Gives one plain value. Nothing is converted: a wrong type throws DecodingError of kind typeMismatch, null of kind
/// valueNotFound, and a number that does not fit of kind dataCorrupted.
class SingleValueDecodingContainer {
 public:
  virtual ~SingleValueDecodingContainer() = default;
  [[nodiscard]] virtual bool decodeBool() = 0;               ///< true or false
  [[nodiscard]] virtual std::int64_t decodeInteger() = 0;    ///< a whole number
  [[nodiscard]] virtual std::uint64_t decodeUnsigned() = 0;  ///< a whole number, not negative
  [[nodiscard]] virtual double decodeDouble() = 0;           ///< any number
  [[nodiscard]] virtual std::string decodeString() = 0;      ///< a text, in UTF-8
};

/// A place that holds one value. Asking for a container throws DecodingError when the value is of another kind.
/// Containers live as long as their decoder.
class Decoder {
 public:
  virtual ~Decoder() = default;
  [[nodiscard]] virtual CodingPath codingPath() const = 0;                 ///< from the outermost value to this place
  [[nodiscard]] virtual KeyedDecodingContainer& container() = 0;           ///< for an object's members
  [[nodiscard]] virtual UnkeyedDecodingContainer& unkeyedContainer() = 0;  ///< for an array's elements
  [[nodiscard]] virtual SingleValueDecodingContainer& singleValueContainer() = 0;  ///< for a plain value
};

// ---- Records -------------------------------------------------------------------------------------------------------

/// One member of a record R: its key, and how it is read from and written to the record.
template <class Record, class ValueType, class Read, class Write>
struct Member {
  using Value = ValueType;
  std::string_view key;
  Read read;
  Write write;
};

/// A member kept in a field.
template <class Record, class Value>
constexpr auto member(std::string_view key, Value Record::*field) {
  const auto write = [field](Record& record, Value value) { record.*field = std::move(value); };
  return Member<Record, Value, Value Record::*, decltype(write)>{key, field, write};
}

/// A member reached through accessors; where they are virtual, through those of the object's own class.
template <class Record, class Value, class Argument>
constexpr auto member(std::string_view key, Value (Record::*read)() const, void (Record::*write)(Argument)) {
  return Member<Record, Value, decltype(read), decltype(write)>{key, read, write};
}

/// Whether T is a std::optional.
template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

// The members of a record are declared in one table, `std::tuple{member(...), ...}`. Its order is the order of encoding
// and decoding. A member of type std::optional is written only if present and may be missing or null when read; any
// other is required.

/// Writes the members of `record` in the table's order.
template <class Record, class... Members>
void encodeMembers(const Record& record, const std::tuple<Members...>& table, Encoder& encoder) {
  KeyedEncodingContainer& container = encoder.container();
  const auto encodeOne = [&](const auto& member) {
    if constexpr (isOptional<typename std::remove_cvref_t<decltype(member)>::Value>) {
      container.encodeIfPresent(member.key, std::invoke(member.read, record));
    } else {
      container.encode(member.key, std::invoke(member.read, record));
    }
  };
  std::apply([&](const auto&... members) { (encodeOne(members), ...); }, table);
}

/// Reads the members of `record` in the table's order. Throws at the first that cannot be read.
template <class Record, class... Members>
void decodeMembers(Record& record, const std::tuple<Members...>& table, Decoder& decoder) {
  KeyedDecodingContainer& container = decoder.container();
  const auto decodeOne = [&](const auto& member) {
    using Value = typename std::remove_cvref_t<decltype(member)>::Value;
    if constexpr (isOptional<Value>) {
      std::invoke(member.write, record, container.decodeIfPresent<typename Value::value_type>(member.key));
    } else {
      std::invoke(member.write, record, container.decode<Value>(member.key));
    }
  };
  std::apply([&](const auto&... members) { (decodeOne(members), ...); }, table);
}

/// The place in the table of the member whose key is exactly `key`, absent when there is none.
template <class... Members>
[[nodiscard]] constexpr std::optional<std::size_t> memberIndex(const std::tuple<Members...>& table,
                                                               std::string_view key) {
  std::size_t index = 0;
  const bool found =
      std::apply([&](const auto&... members) { return ((members.key == key || (++index, false)) || ...); }, table);
  return found ? std::optional(index) : std::nullopt;
}

// ---- How each type is coded ----------------------------------------------------------------------------------------

/// A type that writes itself.
template <class T>
concept EncodesItself = requires(const T& value, Encoder& encoder) {
  value.encode(encoder);
};

/// A type that writes itself, through its own encode; how it is read is its own affair.
template <EncodesItself T>
struct Coding<T> {
  static void encode(const T& value, Encoder& encoder) { value.encode(encoder); }
};

/// A record that gives its table of members away: `static constexpr auto members()`.
template <class T>
concept HasMembers = requires {
  T::members();
};

template <HasMembers T>
requires(!EncodesItself<T>) struct Coding<T> {
  static void encode(const T& value, Encoder& encoder) { encodeMembers(value, T::members(), encoder); }
  static T decode(Decoder& decoder) {
    T value;
    decodeMembers(value, T::members(), decoder);
    return value;
  }
};

template <>
struct Coding<bool> {
  static void encode(bool value, Encoder& encoder) { encoder.singleValueContainer().encodeBool(value); }
  static bool decode(Decoder& decoder) { return decoder.singleValueContainer().decodeBool(); }
};

template <std::integral T>
struct Coding<T> {
  static void encode(T value, Encoder& encoder) {
    if constexpr (std::is_signed_v<T>) {
      encoder.singleValueContainer().encodeInteger(value);
    } else {
      encoder.singleValueContainer().encodeUnsigned(value);
    }
  }
  static T decode(Decoder& decoder) {
    const auto value = [&decoder] {
      if constexpr (std::is_signed_v<T>) {
        return decoder.singleValueContainer().decodeInteger();
      } else {
        return decoder.singleValueContainer().decodeUnsigned();
      }
    }();
    if (std::in_range<T>(value)) return static_cast<T>(value);
    throw DecodingError(DecodingError::Kind::dataCorrupted, decoder.codingPath(), "the number does not fit");
  }
};

template <>
struct Coding<double> {
  static void encode(double value, Encoder& encoder) { encoder.singleValueContainer().encodeDouble(value); }
  static double decode(Decoder& decoder) { return decoder.singleValueContainer().decodeDouble(); }
};

template <>
struct Coding<std::string> {
  static void encode(const std::string& value, Encoder& encoder) { encoder.singleValueContainer().encodeString(value); }
  static std::string decode(Decoder& decoder) { return decoder.singleValueContainer().decodeString(); }
};

template <class T>
struct Coding<std::vector<T>> {
  static void encode(const std::vector<T>& values, Encoder& encoder) {
    UnkeyedEncodingContainer& container = encoder.unkeyedContainer();
    for (const T& value : values) container.encode(value);
  }
  static std::vector<T> decode(Decoder& decoder) {
    UnkeyedDecodingContainer& container = decoder.unkeyedContainer();
    std::vector<T> values;
    while (!container.isAtEnd()) values.push_back(container.decode<T>());
    return values;
  }
};

}  // namespace tavlo::foundation
