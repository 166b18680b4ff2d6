#include <Foundation/JSONValue.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>

namespace tavlo::foundation {

namespace {

using Kind = DecodingError::Kind;

[[noreturn]] void refuse(const std::string& message) {
  throw DecodingError(Kind::dataCorrupted, {}, message);
}

/// Builds a JSONValue from the parser's events. The parser keeps no stack of its own frames, so depth costs no stack.
class ValueBuilder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  JSONValue take() { return std::move(root_); }

  bool null() override { return put({}); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(number_integer_t value) override { return put(value); }
  bool number_unsigned(number_unsigned_t value) override { return put(value); }
  bool number_float(number_float_t value, const string_t& text) override {
    // A number that is not zero but too small for a double would silently become another number.
    const auto mantissa = std::string_view(text).substr(0, text.find_first_of("eE"));
    if (value == 0 && mantissa.find_first_of("123456789") != std::string_view::npos) refuse("number out of range");
    return put(value);
  }
  bool string(string_t& value) override { return put(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*elements*/) override { return open(JSONObject()); }
  bool key(string_t& value) override {
    keys_.back() = std::move(value);
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t /*elements*/) override { return open(JSONArray()); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t position, const std::string& /*lastToken*/,
                   const nlohmann::detail::exception& /*error*/) override {
    refuse("malformed JSON around byte " + std::to_string(position));
  }

 private:
  bool open(JSONValue container) {
    if (open_.size() == maximumCodingDepth) refuse("more than 512 arrays and objects inside each other");
    open_.push_back(std::move(container));
    keys_.emplace_back();
    return true;
  }

  bool close() {
    JSONValue finished = std::move(open_.back());
    open_.pop_back();
    keys_.pop_back();
    return put(std::move(finished));
  }

  bool put(JSONValue value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (auto* array = open_.back().getIf<JSONArray>()) {
      array->push_back(std::move(value));
    } else {
      open_.back().getIf<JSONObject>()->try_emplace(std::move(keys_.back()), std::move(value));
    }
    return true;
  }

  JSONValue root_;
  std::vector<JSONValue> open_;    // unfinished arrays and objects, outermost first
  std::vector<std::string> keys_;  // for each of them the key that was read last
};

/// Writes each kind of JSON value.
struct ValueWriter {
  Encoder& encoder;

  void operator()(std::nullptr_t) const { encoder.singleValueContainer().encodeNil(); }
  void operator()(const JSONObject& object) const {
    KeyedEncodingContainer& container = encoder.container();
    for (const auto& [key, member] : object) container.encode(key, member);
  }
  void operator()(const auto& other) const { foundation::encode(other, encoder); }
};

}  // namespace

const JSONValue* JSONValue::member(std::string_view key) const noexcept {
  const auto* object = getIf<JSONObject>();
  if (object == nullptr) return nullptr;
  const auto found = object->find(key);
  return found == object->end() ? nullptr : &found->second;
}

JSONValue JSONSerialization::jsonObject(DataView bytes, JSONReadingOptions options) {
  // The parser takes a NUL byte for the end of the text and skips a byte-order mark.
  if (std::ranges::find(bytes, 0) != bytes.end()) refuse("malformed JSON: NUL byte");
  if (textOf(bytes).starts_with("\xEF\xBB\xBF")) refuse("malformed JSON: byte-order mark");

  ValueBuilder builder;
  nlohmann::json::sax_parse(bytes.begin(), bytes.end(), &builder);
  JSONValue value = builder.take();
  const bool isContainer = value.getIf<JSONArray>() != nullptr || value.getIf<JSONObject>() != nullptr;
  const bool fragmentsAllowed =
      (static_cast<unsigned>(options) & static_cast<unsigned>(JSONReadingOptions::fragmentsAllowed)) != 0;
  if (!isContainer && !fragmentsAllowed) refuse("no array or object");
  return value;
}

void Coding<JSONValue>::encode(const JSONValue& value, Encoder& encoder) {
  std::visit(ValueWriter{encoder}, value.variant());
}

}  // namespace tavlo::foundation
