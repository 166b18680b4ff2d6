#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>

#include <cstddef>
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

/// A verification request whose every member was found sound in its form.
struct Request {
  reader::NFCPassportModel model;
  bool hasSelfie = false;     ///< whether a selfie was sent: a PNG that can be decoded
  bool hasPublicKey = false;  ///< whether a public key was sent: a point on P-256

  /// Reads a body and leaves nothing unchecked: unknown members, other types, null, other alphabets and values over
  /// their limits are refused, although a service might well accept them. Throws RefusedBody.
  [[nodiscard]] static Request decode(foundation::DataView bytes);
};

}  // namespace tavlo::sandbox
