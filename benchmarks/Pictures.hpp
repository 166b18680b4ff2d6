#pragma once

#include <UIKit/UIImage.hpp>

#include <string>
#include <string_view>

namespace tavlo::bench {

/// A picture to measure with, the same in every run; made at its first use and kept. The kinds:
/// - "s": a portrait with independent noise in R, G and B; "cam": a noisier one after a camera's YCbCr 4:2:0;
/// - "jpeg": "s" out of a JPEG file of quality 90;
/// - "near-grey": "cam" with a hint of colour only; "grey": "cam" without any;
/// - "drawn": the portrait in few colours with lines; "hard-edge": rectangles; "flat": one colour.
/// `size` is "640x480", "1280x960", "7MP", "12MP" or another width x height. Without a size, `kind` is the path of a
/// picture file, taken as it is.
[[nodiscard]] const uikit::UIImage& picture(const std::string& kind, const std::string& size);

/// What the cases with that picture are called: "KIND/SIZE", or "photo/NAME" for a file.
[[nodiscard]] std::string label(const std::string& kind, const std::string& size);

}  // namespace tavlo::bench
