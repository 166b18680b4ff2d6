#include <Foundation/JSONEncoder.hpp>
#include <Foundation/UTF8.hpp>
#include <Foundation/VectorClones.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavlo::foundation {

namespace {

bool isASCII(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

/// Whether `c` is ASCII and stands for itself.
bool isPlain(char c) {
  return c >= ' ' && isASCII(c) && c != '"' && c != '\\';
}

/// How many such characters `text` begins with.
TAVLO_VECTOR_CLONES
std::size_t plainRun(std::string_view text) {
  constexpr std::size_t block = 128;
  std::size_t run = 0;
  for (; run + block <= text.size(); run += block) {
    // Without branches, so that compilers look at many together. Turning one bit puts '"' in the place of the space,
    // just above the control characters; what is beyond ASCII is below 0.
    std::int8_t odd = 0;
    for (std::size_t i = run; i < run + block; ++i) {
      const auto code = static_cast<std::int8_t>(text[i]);
      odd = static_cast<std::int8_t>(odd | static_cast<int>((code ^ 2) <= ' ') | static_cast<int>(code == '\\'));
    }
    if (odd != 0) break;
  }
  while (run < text.size() && isPlain(text[run])) ++run;
  return run;
}

/// One place of the JSON text: writes straight to the end of the body. Places nest like the values they stand for.
class JSONWritingPlace final : public Encoder,
                               KeyedEncodingContainer,
                               UnkeyedEncodingContainer,
                               SingleValueEncodingContainer {
 public:
  explicit JSONWritingPlace(Data& body) : body_(body) {}
  JSONWritingPlace(JSONWritingPlace& parent, CodingKey key)
      : body_(parent.body_), parent_(&parent), key_(std::move(key)), depth_(parent.depth_ + 1) {}

  [[nodiscard]] CodingPath codingPath() const override {
    if (parent_ == nullptr) return {};
    CodingPath path = parent_->codingPath();
    path.push_back(key_);
    return path;
  }

  KeyedEncodingContainer& container() override {
    open(Kind::object, '{');
    return *this;
  }
  UnkeyedEncodingContainer& unkeyedContainer() override {
    open(Kind::array, '[');
    return *this;
  }
  SingleValueEncodingContainer& singleValueContainer() override { return *this; }

  /// Ends the value; nothing may be written to it any more.
  void close() {
    if (kind_ == Kind::object) append("}");
    if (kind_ == Kind::array) append("]");
    if (kind_ == Kind::nothing) fail("no value was written");
  }

 private:
  enum class Kind { nothing, object, array, plain };
  void encodeMember(std::string_view key, const EncodeFunction& write) override {
    eraseMember(key);
    members_.emplace(key, body_.size());
    if (members_.size() > 1) append(",");
    JSONWritingPlace place(*this, std::string(key));
    place.appendQuoted(key);
    append(":");
    write(place);
    place.close();
  }

  void encodeElement(const EncodeFunction& write) override {
    if (elements_ > 0) append(",");
    JSONWritingPlace place(*this, elements_++);
    write(place);
    place.close();
  }

  void encodeNil() override { appendPlain("null"); }
  void encodeBool(bool value) override { appendPlain(value ? "true" : "false"); }
  void encodeInteger(std::int64_t value) override { appendNumber(value); }
  void encodeUnsigned(std::uint64_t value) override { appendNumber(value); }
  void encodeDouble(double value) override {
    if (!std::isfinite(value)) fail("the number is not finite");
    if (value == 0 && std::signbit(value)) return appendPlain("-0.0");  // "-0" is read back as a whole number
    appendNumber(value);
  }
  void encodeString(std::string_view value) override {
    beginPlain();
    appendQuoted(value);
  }

  [[noreturn]] void fail(const std::string& message) const { throw EncodingError(codingPath(), message); }

  void open(Kind kind, char bracket) {
    if (kind_ == kind) return;
    if (kind_ != Kind::nothing) throw std::logic_error("one value is written as two kinds of container");
    if (depth_ == maximumCodingDepth) fail("more than 512 arrays and objects inside each other");
    kind_ = kind;
    append({&bracket, 1});
  }

  void beginPlain() {
    if (kind_ != Kind::nothing) throw std::logic_error("a value is written twice");
    kind_ = Kind::plain;
  }

  /// Takes a member out again that was written before under the same key.
  void eraseMember(std::string_view key) {
    const auto written = members_.find(key);
    if (written == members_.end()) return;
    const std::size_t begin = written->second;
    members_.erase(written);
    std::size_t end = body_.size();
    bool isFirst = true;
    for (const auto& [other, position] : members_) {
      if (position > begin) end = std::min(end, position);
      if (position < begin) isFirst = false;
    }
    // The first member has no comma before it: when it goes, the next one's comma goes instead.
    const std::size_t comma = isFirst && end < body_.size() ? 1 : 0;
    const auto at = [this](std::size_t position) { return body_.begin() + static_cast<std::ptrdiff_t>(position); };
    body_.erase(at(begin), at(end + comma));
    for (auto& [other, position] : members_) {
      if (position > begin) position -= end - begin + (position > end ? comma : 0);
    }
  }

  /// Makes room for `size` more bytes: with little to spare, for one text may be most of the body.
  void makeRoom(std::size_t size) {
    constexpr std::size_t spare = 4096;
    if (body_.capacity() - body_.size() < size) body_.reserve(body_.size() + size + body_.size() / 2 + spare);
  }

  void append(std::string_view text) {
    makeRoom(text.size());
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    body_.insert(body_.end(), bytes, bytes + text.size());
  }

  void appendPlain(std::string_view text) {
    beginPlain();
    append(text);
  }

  void appendNumber(auto value) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    appendPlain({text.data(), end});
  }

  void appendQuoted(std::string_view text) {
    makeRoom(text.size() + 2);
    append("\"");
    while (!text.empty()) {
      std::size_t run = 1;
      if (isPlain(text.front())) {
        run = plainRun(text.substr(0, 2 << 10));  // a piece that is still in the cache when it is copied
        append(text.substr(0, run));
      } else if (isASCII(text.front())) {
        appendEscape(text.front());
      } else {
        run = static_cast<std::size_t>(std::ranges::find_if(text, isASCII) - text.begin());
        if (!isValidUTF8(text.substr(0, run))) fail("the text is not well-formed UTF-8");
        append(text.substr(0, run));
      }
      text.remove_prefix(run);
    }
    append("\"");
  }

  void appendEscape(char c) {
    static constexpr std::string_view plain = "\"\\\b\f\n\r\t";
    static constexpr std::string_view letters = "\"\\bfnrt";
    static constexpr std::string_view digits = "0123456789abcdef";
    if (const auto index = plain.find(c); index != std::string_view::npos) {
      append({std::array{'\\', letters[index]}.data(), 2});
    } else {
      const auto code = static_cast<unsigned char>(c);
      append("\\u00");
      append({std::array{digits[code >> 4U], digits[code & 15U]}.data(), 2});
    }
  }

  Data& body_;
  const JSONWritingPlace* parent_ = nullptr;
  CodingKey key_;
  std::size_t depth_ = 0;
  Kind kind_ = Kind::nothing;
  std::map<std::string, std::size_t, std::less<>> members_;  // where each begins in the body, its comma included
  std::size_t elements_ = 0;
};

}  // namespace

Data JSONEncoder::write(const EncodeFunction& encodeValue) {
  Data body;
  JSONWritingPlace place(body);
  encodeValue(place);
  place.close();
  return body;
}

}  // namespace tavlo::foundation
