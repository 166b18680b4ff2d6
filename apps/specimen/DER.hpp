#pragma once

#include <Foundation/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

/// Writes elementary files and what is in them.
namespace tavlo::specimen {

/// `parts`, one after the other.
[[nodiscard]] foundation::Data joined(std::initializer_list<foundation::DataView> parts);

/// `value` in `size` bytes, the highest first; the shortest that hold it when `size` is 0.
[[nodiscard]] foundation::Data bigEndian(std::uint64_t value, std::size_t size = 0);

/// One element with the shortest definite length, as DER has it (ITU-T X.690). `tag` is written as in the standards,
/// such as 0x5F1F.
[[nodiscard]] foundation::Data element(std::uint32_t tag, foundation::DataView value);
[[nodiscard]] foundation::Data element(std::uint32_t tag, std::string_view text);
/// One element around several others.
[[nodiscard]] foundation::Data element(std::uint32_t tag, std::initializer_list<foundation::DataView> parts);

/// A whole number that is not negative, as the content of an element of type INTEGER or ENUMERATED.
[[nodiscard]] foundation::Data number(std::uint64_t value);

/// An OBJECT IDENTIFIER out of its dotted form.
[[nodiscard]] foundation::Data objectIdentifier(std::string_view dotted);

}  // namespace tavlo::specimen
