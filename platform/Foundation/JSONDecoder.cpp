#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONValue.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace tavlo::foundation {

namespace {

using Kind = DecodingError::Kind;

/// One place of a JSON value that has been read.
class JSONReadingPlace final : public Decoder,
                               KeyedDecodingContainer,
                               UnkeyedDecodingContainer,
                               SingleValueDecodingContainer {
 public:
  explicit JSONReadingPlace(const JSONValue& value) : value_(value) {}
  JSONReadingPlace(const JSONReadingPlace& parent, CodingKey key, const JSONValue& value)
      : value_(value), parent_(&parent), key_(std::move(key)) {}

  [[nodiscard]] CodingPath codingPath() const override {
    if (parent_ == nullptr) return {};
    CodingPath path = parent_->codingPath();
    path.push_back(key_);
    return path;
  }

  KeyedDecodingContainer& container() override {
    object_ = &require<JSONObject>("an object");
    return *this;
  }
  UnkeyedDecodingContainer& unkeyedContainer() override {
    array_ = &require<JSONArray>("an array");
    return *this;
  }
  SingleValueDecodingContainer& singleValueContainer() override { return *this; }

 private:
  [[nodiscard]] bool contains(std::string_view key) const override { return object_->contains(key); }
  [[nodiscard]] bool isNil(std::string_view key) const override {
    const auto found = object_->find(key);
    return found != object_->end() && found->second.isNull();
  }
  void decodeMember(std::string_view key, const DecodeFunction& read) override {
    const auto found = object_->find(key);
    if (found == object_->end()) {
      CodingPath path = codingPath();
      path.emplace_back(std::string(key));
      throw DecodingError(Kind::keyNotFound, std::move(path), "the member is missing");
    }
    JSONReadingPlace place(*this, std::string(key), found->second);
    read(place);
  }

  [[nodiscard]] bool isAtEnd() const override { return next_ == array_->size(); }
  void decodeElement(const DecodeFunction& read) override {
    if (isAtEnd()) fail(Kind::valueNotFound, "the array has no further element");
    JSONReadingPlace place(*this, next_, (*array_)[next_]);
    read(place);
    ++next_;
  }

  [[nodiscard]] bool decodeBool() override { return require<bool>("true or false"); }
  [[nodiscard]] std::int64_t decodeInteger() override { return requireWhole<std::int64_t>(); }
  [[nodiscard]] std::uint64_t decodeUnsigned() override { return requireWhole<std::uint64_t>(); }
  [[nodiscard]] double decodeDouble() override {
    if (const auto* whole = value_.getIf<std::int64_t>()) return static_cast<double>(*whole);
    if (const auto* whole = value_.getIf<std::uint64_t>()) return static_cast<double>(*whole);
    return require<double>("a number");
  }
  [[nodiscard]] std::string decodeString() override { return require<std::string>("a text"); }

  [[noreturn]] void fail(Kind kind, const std::string& message) const {
    throw DecodingError(kind, codingPath(), message);
  }

  template <class T>
  [[nodiscard]] const T& require(const std::string& wanted) const {
    if (const T* value = value_.getIf<T>()) return *value;
    if (value_.isNull()) fail(Kind::valueNotFound, "null where " + wanted + " is required");
    fail(Kind::typeMismatch, "no value of the right type: " + wanted + " is required");
  }

  template <class T>
  [[nodiscard]] T requireWhole() const {
    if (value_.getIf<double>() != nullptr) fail(Kind::dataCorrupted, "the number is no whole one in range");
    if (const auto* big = value_.getIf<std::uint64_t>()) {
      if (std::in_range<T>(*big)) return static_cast<T>(*big);
    } else if (const auto whole = require<std::int64_t>("a number"); std::in_range<T>(whole)) {
      return static_cast<T>(whole);
    }
    fail(Kind::dataCorrupted, "the number does not fit");
  }

  const JSONValue& value_;
  const JSONReadingPlace* parent_ = nullptr;
  CodingKey key_;
  const JSONObject* object_ = nullptr;  // set when this place was opened as an object
  const JSONArray* array_ = nullptr;    // set when this place was opened as an array
  std::size_t next_ = 0;                // the element that is read next
};

}  // namespace

void JSONDecoder::read(DataView bytes, const DecodeFunction& decodeValue) {
  const JSONValue value = JSONSerialization::jsonObject(bytes, JSONReadingOptions::fragmentsAllowed);
  JSONReadingPlace place(value);
  decodeValue(place);
}

}  // namespace tavlo::foundation
