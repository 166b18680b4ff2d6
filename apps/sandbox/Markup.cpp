#include "Markup.hpp"

#include <Foundation/UTF8.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <stdexcept>

namespace tavlo::sandbox {

namespace {

constexpr std::size_t maximumBodyText = 20'000;  // bytes
constexpr std::size_t longValue = 160;           // characters
constexpr std::size_t valueBeginning = 64;       // characters

/// Takes the first character off well-formed UTF-8.
char32_t takeCharacter(std::string_view& text) {
  const auto first = static_cast<std::uint8_t>(text.front());
  const unsigned size = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  char32_t character = size == 1 ? first : first & (0xFFU >> (size + 1));
  for (unsigned i = 1; i < size; ++i) character = character << 6U | (static_cast<std::uint8_t>(text[i]) & 0x3FU);
  text.remove_prefix(size);
  return character;
}

/// Control and format characters (Unicode's categories Cc and Cf, as far as they hide or reorder text).
bool isUnseen(char32_t character) {
  static constexpr std::pair<char32_t, char32_t> ranges[] = {
      {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x180E, 0x180E},   {0x200B, 0x200F},
      {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
  };
  return std::ranges::any_of(ranges,
                             [&](const auto& range) { return range.first <= character && character <= range.second; });
}

/// Writes `text` as HTML; the characters in `layout` stay as they are, though they cannot be seen.
std::string escaped(std::string_view text, std::string_view layout) {
  const std::string valid = foundation::makeValidUTF8(text);
  std::string html;
  std::string_view rest = valid;
  while (!rest.empty()) {
    const std::string_view before = rest;
    const char32_t character = takeCharacter(rest);
    const std::string_view bytes = before.substr(0, before.size() - rest.size());
    if (bytes == "&") {
      html += "&amp;";
    } else if (bytes == "<") {
      html += "&lt;";
    } else if (bytes == ">") {
      html += "&gt;";
    } else if (bytes == "\"") {
      html += "&quot;";
    } else if (bytes == "'") {
      html += "&#39;";
    } else if (isUnseen(character) && layout.find(bytes) == layout.npos) {
      std::array<char, 16> number{};
      std::snprintf(number.data(), number.size(), "U+%04X", static_cast<unsigned>(character));
      html.append("<span class=\"code\">").append(number.data()).append("</span>");
    } else {
      html += bytes;
    }
  }
  return html;
}

/// The beginning of `text`, at most `limit` bytes that end with a whole character.
std::string_view beginning(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<std::uint8_t>(text[limit]) & 0xC0U) == 0x80) --limit;
  return text.substr(0, limit);
}

bool isOfValue(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_' ||
         c == '+' || c == '/' || c == '=';
}

}  // namespace

std::string markupOf(std::string_view text, std::size_t limit) {
  const std::string_view shown = beginning(text, limit);
  return escaped(shown, "") + (shown.size() < text.size() ? "…" : "");
}

std::string markupOfBody(std::string_view body) {
  std::string html;
  std::size_t shown = 0;
  while (!body.empty() && shown < maximumBodyText) {
    const auto* const valueEnd = std::ranges::find_if_not(body, isOfValue);
    const auto length = static_cast<std::size_t>(valueEnd - body.begin());
    const bool isLong = length > longValue;
    // A value that is shown whole goes out together with what stands between it and the next one.
    const auto* const next = isLong ? valueEnd : std::find_if(valueEnd, body.end(), isOfValue);
    const auto size = static_cast<std::size_t>(next - body.begin());
    const auto part = beginning(body, isLong ? valueBeginning : std::min(size, maximumBodyText - shown));
    html += escaped(part, "\n\t");
    if (isLong) html += "<i>… " + std::to_string(length - valueBeginning) + " more …</i>";
    shown += part.size();
    body.remove_prefix(isLong ? size : part.size());
    if (part.empty()) break;
  }
  if (!body.empty()) html += "<i>… the rest is not shown</i>";
  return html;
}

std::string filled(std::string_view page, std::initializer_list<std::pair<std::string_view, std::string>> values) {
  std::string result;
  for (;;) {
    const auto begin = page.find("{{");
    result += page.substr(0, begin);
    if (begin == page.npos) return result;
    const auto end = page.find("}}", begin);
    const auto name = page.substr(begin + 2, end - begin - 2);
    const auto* const value = std::ranges::find(values, name, [](const auto& pair) { return pair.first; });
    if (value == values.end()) throw std::out_of_range("no value for " + std::string(name));
    result += value->second;
    page.remove_prefix(end + 2);
  }
}

}  // namespace tavlo::sandbox
