#pragma once

#include <Foundation/Data.hpp>
#include <TavloCA/TavloCA.hpp>

#include <string>
#include <string_view>

/// What others would do in place of the library, to compare with, and readers that check what was made.
namespace tavlo::bench {

// As a competent user writes it by hand, with well-known libraries and their defaults.

/// PNG by libpng as it comes.
[[nodiscard]] foundation::Data pngByHand(const uikit::UIImage& image);
/// Hexadecimal text through a stringstream.
[[nodiscard]] std::string hexByHand(foundation::DataView bytes);
/// base64url by OpenSSL's base64, its alphabet mended afterwards.
[[nodiscard]] std::string base64ByHand(foundation::DataView bytes);
/// The request's JSON through nlohmann's DOM.
[[nodiscard]] std::string jsonByHand(const reader::NFCPassportModel& model, const std::string& selfie,
                                     foundation::DataView publicKey);
/// The whole request of all that.
[[nodiscard]] std::string bodyByHand(const reader::NFCPassportModel& model, const uikit::UIImage& selfie,
                                     const security::SecKey& publicKey);

/// JPEG by libjpeg at quality 90.
[[nodiscard]] foundation::Data jpegByHand(const uikit::UIImage& image);

// What libraries can do when they are chosen and set with care.

/// libpng with the Average filter and Huffman codes alone.
[[nodiscard]] foundation::Data pngByHuffman(const uikit::UIImage& image);
/// Rows with the Average filter through libdeflate at level 6.
[[nodiscard]] foundation::Data pngByLibdeflate(const uikit::UIImage& image);

/// Text or bytes as characters.
template <class Bytes>
[[nodiscard]] std::string_view viewOf(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Readers; they throw std::runtime_error when what they read is not as it should be.

/// libpng finds exactly the pixels of `image` in `png`.
void checkPNG(foundation::DataView png, const uikit::UIImage& image);
void checkHex(std::string_view text, foundation::DataView bytes);
void checkBase64(std::string_view text, foundation::DataView bytes);
/// Both texts hold the same.
void checkJSON(std::string_view text, std::string_view expected);
/// `body` is the request for these: its groups, its key, its selfie, and nothing else but what it says of the device.
void checkBody(std::string_view body, const reader::NFCPassportModel& model, const uikit::UIImage& selfie,
               const security::SecKey& publicKey);

}  // namespace tavlo::bench
