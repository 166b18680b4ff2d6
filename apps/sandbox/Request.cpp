#include "Request.hpp"

#include <Foundation/Hex.hpp>
#include <Foundation/JSONValue.hpp>
#include <TavloCommon/TavloCommon.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <UIKit/UIImage.hpp>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tavlo::sandbox {

using foundation::Data;
using foundation::DataView;
using foundation::JSONObject;
using foundation::JSONValue;
using reader::DataGroup;
using reader::DataGroupId;

namespace {

// In bytes.
constexpr std::size_t maximumDeviceText = 256;
constexpr std::size_t maximumInstrumentation = 65'536;
constexpr std::size_t maximumPublicKey = 1024;

/// A name that stands in a message; what is no plausible name might be a value in the wrong place.
std::string printable(std::string_view name) {
  const bool plausible =
      name.size() <= 32 && std::ranges::all_of(name, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
      });
  return plausible ? "\"" + std::string(name) + "\"" : "of an unusual name";
}

/// One value in the body and the way to it.
class Field {
 public:
  Field(const JSONValue& value, std::string path) : value_(value), path_(std::move(path)) {}

  [[noreturn]] void refuse(const std::string& reason) const {
    throw RefusedBody((path_.empty() ? "the body" : path_) + ": " + reason);
  }

  /// Refuses anything but an object with no other members than `keys`.
  void requireObject(const std::vector<std::string_view>& keys) const {
    const auto* object = value_.getIf<JSONObject>();
    if (object == nullptr) refuse("not an object");
    for (const auto& [key, value] : *object) {
      if (std::ranges::find(keys, key) == keys.end()) refuse("unknown member " + printable(key));
    }
  }

  [[nodiscard]] std::optional<Field> member(std::string_view key) const {
    const JSONValue* value = value_.member(key);
    if (value == nullptr) return std::nullopt;
    return Field(*value, (path_.empty() ? "" : path_ + ".") + std::string(key));
  }

  [[nodiscard]] Field requiredMember(std::string_view key) const {
    auto found = member(key);
    if (!found) Field(value_, (path_.empty() ? "" : path_ + ".") + std::string(key)).refuse("missing");
    return *found;
  }

  [[nodiscard]] const std::string& text(std::size_t limit = maximumBodySize) const {
    const auto* text = value_.getIf<std::string>();
    if (text == nullptr) refuse("not a text");
    if (text->size() > limit) refuse("longer than " + std::to_string(limit) + " bytes");
    return *text;
  }

  [[nodiscard]] Data bytesOfHex(std::size_t limit) const {
    const std::string& digits = text();
    if (digits.empty()) refuse("empty");
    if (digits.size() % 2 != 0) refuse("odd number of hexadecimal digits");
    if (digits.size() / 2 > limit) refuse("more than " + std::to_string(limit) + " bytes");
    auto bytes = foundation::dataFromHex(digits);
    if (!bytes) refuse("not hexadecimal");
    return std::move(*bytes);
  }

  void requireTime() const {
    const auto* whole = value_.getIf<std::int64_t>();
    const auto* real = value_.getIf<double>();
    const bool isNumber = whole != nullptr || real != nullptr || value_.getIf<std::uint64_t>() != nullptr;
    if (!isNumber) refuse("not a number");
    if ((whole != nullptr && *whole < 0) || (real != nullptr && *real < 0)) refuse("negative");
  }

 private:
  const JSONValue& value_;
  std::string path_;
};

std::vector<DataGroupId> allGroups() {
  std::vector<DataGroupId> ids;
  for (auto i = static_cast<int>(DataGroupId::COM); i <= static_cast<int>(DataGroupId::SOD); ++i) {
    ids.push_back(static_cast<DataGroupId>(i));
  }
  return ids;
}

std::vector<std::string_view> groupNames() {
  std::vector<std::string_view> names;
  for (const DataGroupId id : allGroups()) names.push_back(reader::name(id));
  return names;
}

reader::NFCPassportModel decodeGroups(const Field& doc) {
  doc.requireObject(groupNames());
  reader::NFCPassportModel model;
  for (const DataGroupId id : allGroups()) {
    const auto field = doc.member(reader::name(id));
    if (!field) continue;
    const Data bytes = field->bytesOfHex(reader::maximumElementaryFileSize);
    std::shared_ptr<const DataGroup> group;
    try {
      group = DataGroup::parse(bytes);
    } catch (const reader::ReaderError& error) {
      field->refuse(error.what());
    }
    if (group->id() != id) field->refuse("holds " + std::string(reader::name(group->id())));
    if (group->data() != bytes) field->refuse("padding follows the group");
    model.add(std::move(group));
  }
  return model;
}

Selfie decodeSelfie(const Field& field) {
  auto bytes = common::dataFromBase64Url(field.text());
  if (!bytes) field.refuse("not base64url");
  if (uikit::imageFormat(*bytes) != uikit::ImageFormat::png) field.refuse("not a PNG");
  try {
    const auto image = uikit::UIImage::decode(*bytes);
    constexpr int nearly = 8;  // of 255
    const DataView pixels = image.pixels();
    const std::size_t channels = image.channels();
    std::size_t i = 0;
    while (i < pixels.size() && std::abs(pixels[i] - pixels[i % channels]) <= nearly) ++i;
    return {std::move(*bytes), image.width(), image.height(), i == pixels.size()};
  } catch (const uikit::ImageError& error) {
    field.refuse(error.what());
  }
}

void requireDevice(const Field& device) {
  const std::vector<std::string_view> keys = {"os", "os_version", "manufacturer", "model"};
  device.requireObject(keys);
  for (const std::string_view key : keys) {
    if (const auto field = device.member(key)) (void)field->text(maximumDeviceText);
  }
}

void requirePerformance(const Field& performance) {
  performance.requireObject({"dgreadtime", "instrumentation"});
  if (const auto times = performance.member("dgreadtime")) {
    times->requireObject(groupNames());
    for (const std::string_view name : groupNames()) {
      if (const auto time = times->member(name)) time->requireTime();
    }
  }
  if (const auto text = performance.member("instrumentation")) (void)text->text(maximumInstrumentation);
}

/// A body of brackets and commas would take many times its size once it is read.
void requireFewValues(DataView body) {
  constexpr std::ptrdiff_t limit = 100'000;  // well above the commas that `instrumentation` may hold as a text
  const auto opensValue = [](std::uint8_t byte) { return byte == ',' || byte == '[' || byte == '{'; };
  if (std::ranges::count_if(body, opensValue) > limit) throw RefusedBody("the body: more values than a request has");
}

}  // namespace

Request Request::decode(DataView bytes) {
  requireFewValues(bytes);
  JSONValue value;
  try {
    value = foundation::JSONSerialization::jsonObject(bytes);
  } catch (const foundation::DecodingError& error) {
    throw RefusedBody("the body: " + std::string(error.what()));
  }
  const Field body(value, "");
  body.requireObject({"version", "doc", "biometry", "signing", "device", "performance"});
  const Field version = body.requiredMember("version");
  if (version.text() != "1.0") version.refuse("not \"1.0\"");

  Request request;
  request.model = decodeGroups(body.requiredMember("doc"));

  const Field biometry = body.requiredMember("biometry");
  biometry.requireObject({"selfie"});
  if (const auto selfie = biometry.member("selfie")) request.selfie = decodeSelfie(*selfie);

  const Field signing = body.requiredMember("signing");
  signing.requireObject({"mdlPublicKey"});
  if (const auto key = signing.member("mdlPublicKey")) request.publicKey = key->bytesOfHex(maximumPublicKey);

  requireDevice(body.requiredMember("device"));
  requirePerformance(body.requiredMember("performance"));
  return request;
}

}  // namespace tavlo::sandbox
