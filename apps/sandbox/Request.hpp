#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>

#include <cstddef>
#include <optional>
#include <stdexcept>

namespace tavlo::sandbox {

/// The largest body that is read, in bytes.
inline constexpr std::size_t maximumBodySize = std::size_t{64} << 20;

/// A body that is no verification request: names the member and what is wrong with it, such as
/// "doc.DG1: odd number of hexadecimal digits". Holds nothing of what was sent but the names of unknown members.
class RefusedBody : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A selfie that can be decoded.
struct Selfie {
  foundation::Data png;
  std::size_t width = 0;   ///< in pixels
  std::size_t height = 0;  ///< in pixels
  bool isFlat = false;     ///< whether all pixels have nearly one colour
};

/// A verification request whose every member was found sound in its form.
struct Request {
  reader::NFCPassportModel model;
  std::optional<Selfie> selfie;
  std::optional<foundation::Data> publicKey;  ///< as it was sent: it may be no key

  /// Reads a body and leaves nothing unchecked: unknown members, other types, null, other alphabets and values over
  /// their limits are refused, although a service might well accept them. Throws RefusedBody.
  [[nodiscard]] static Request decode(foundation::DataView bytes);
};

}  // namespace tavlo::sandbox
