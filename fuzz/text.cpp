// Bytes as base64url, as hexadecimal digits and as UTF-8.
#include <Foundation/Hex.hpp>
#include <TavloCommon/TavloCommon.hpp>

#include "fuzz.hpp"

void tavlo::fuzz::run(DataView input) {
  const Data bytes(input.begin(), input.end());
  const std::string_view text = foundation::textOf(input);
  within(8 * input.size() + 4096, [&] {
    require(common::dataFromBase64Url(common::base64UrlEncodedString(bytes).value()) == bytes);
    if (const auto decoded = common::dataFromBase64Url(text)) {
      const std::string again = common::base64UrlEncodedString(*decoded).value();
      require(text == again || text == again + "=" || text == again + "==");
    }
    require(foundation::dataFromHex(foundation::toHexString(bytes)) == bytes);
    if (const auto decoded = foundation::dataFromHex(text)) {
      std::string lower(text);
      for (char& c : lower) c = static_cast<char>(c | 0x20);  // digits have this bit already
      require(foundation::toHexString(*decoded) == lower);
    }
    const std::string valid = foundation::makeValidUTF8(text);
    require(isValidUTF8(valid) && (valid == text) == isValidUTF8(text));
  });
}
