#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace tavlo::sandbox {

/// A stranger's `text` as text of an HTML element: nothing in it is markup, what is longer than `limit` bytes is cut,
/// and what cannot be seen (control characters, those that turn the direction of writing, and the like) stands there by
/// its number, such as U+202E.
[[nodiscard]] std::string markupOf(std::string_view text, std::size_t limit = 300);

/// The body of a request, likewise: its lines stay, long values (pictures, groups) are cut short, and so is the whole.
[[nodiscard]] std::string markupOfBody(std::string_view body);

/// `page` with each "{{name}}" replaced by the value of that name, which must be HTML already. Throws std::out_of_range
/// when there is none.
[[nodiscard]] std::string filled(std::string_view page,
                                 std::initializer_list<std::pair<std::string_view, std::string>> values);

}  // namespace tavlo::sandbox
