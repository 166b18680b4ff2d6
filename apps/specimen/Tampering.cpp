#include <specimen/Tampering.hpp>

#include <algorithm>
#include <array>
#include <regex>
#include <stdexcept>

namespace tavlo::specimen {

using foundation::Data;
using reader::DataGroupId;
using Kind = Tampering::Kind;

namespace {

struct Row {
  Kind kind;
  std::string_view name;
  bool hasFile;
  std::string_view help;
};

constexpr std::array rows{
    Row{Kind::flip, "flip", true, "one bit of the last byte flips, or of another byte: flip=DG1:11"},
    Row{Kind::drop, "drop", true, "the file is missing"},
    Row{Kind::notSigned, "unsigned", true, "the group is not in the SOD"},
    Row{Kind::truncate, "truncate", true, "the second half is missing"},
    Row{Kind::pad, "pad", true, "blanks follow the file; no fault"},
    Row{Kind::indefinite, "indefinite", false, "the SOD has indefinite lengths; no fault"},
    Row{Kind::expiredSigner, "expired-signer", false, "the signer's certificate had run out when it signed"},
    Row{Kind::wrongAuthority, "wrong-authority", false, "the signer is under another authority of the same name"},
};

std::optional<DataGroupId> fileNamed(std::string_view text) {
  for (int value = 0; value <= static_cast<int>(DataGroupId::SOD); ++value) {
    if (name(static_cast<DataGroupId>(value)) == text) return static_cast<DataGroupId>(value);
  }
  return std::nullopt;
}

}  // namespace

Tampering Tampering::parse(const std::string& text) {
  static const std::regex pattern("([a-z-]+)(?:=([A-Z0-9]+)(?::([0-9]{1,7}))?)?");
  std::smatch match;
  const auto refuse = [&] { return std::invalid_argument("no such tampering: " + text); };
  if (!std::regex_match(text, match, pattern)) throw refuse();
  const auto* const row = std::ranges::find(rows, match[1].str(), &Row::name);
  if (row == rows.end()) throw refuse();

  Tampering result{row->kind, fileNamed(match[2].str()), std::nullopt};
  if (match[3].matched) result.byte = std::stoul(match[3]);
  const bool wantsGroup = row->kind == Kind::notSigned;
  const bool isGroup = result.file && *result.file != DataGroupId::COM && *result.file != DataGroupId::SOD;
  if (result.file.has_value() != row->hasFile || match[2].matched != row->hasFile ||
      (result.byte && row->kind != Kind::flip) || (wantsGroup && !isGroup)) {
    throw refuse();
  }
  return result;
}

std::string Tampering::help() {
  std::string text;
  for (const Row& row : rows) {
    const std::string form = std::string(row.name) + (row.hasFile ? "=FILE" : "");
    text.append("  ").append(form).append(18 - form.size(), ' ').append(row.help).append("\n");
  }
  return text + "FILE is COM, SOD or a group such as DG1.\n";
}

bool contains(const std::vector<Tampering>& all, Kind kind, std::optional<DataGroupId> file) {
  return std::ranges::any_of(all, [&](const Tampering& one) { return one.kind == kind && one.file == file; });
}

void tamper(Files& files, const std::vector<Tampering>& all) {
  for (const auto& [kind, id, byte] : all) {
    if (!id) continue;
    const auto file = files.find(*id);
    if (file == files.end()) throw std::invalid_argument("there is no " + std::string(name(*id)) + " to tamper with");
    Data& bytes = file->second;
    if (kind == Kind::flip) {
      const std::size_t at = byte.value_or(bytes.size() - 1);
      if (at >= bytes.size()) {
        throw std::invalid_argument(std::string(name(*id)) + " has only " + std::to_string(bytes.size()) + " bytes");
      }
      bytes[at] ^= 1U;
    } else if (kind == Kind::drop) {
      files.erase(file);
    } else if (kind == Kind::truncate) {
      bytes.resize(bytes.size() / 2);
    } else if (kind == Kind::pad) {
      bytes.resize(bytes.size() + 16, 0);
    }
  }
}

}  // namespace tavlo::specimen
