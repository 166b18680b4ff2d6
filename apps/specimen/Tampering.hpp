#pragma once

#include <TavloReader/DataGroup.hpp>
#include <specimen/SecurityObject.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::specimen {

/// One way in which a document is not as its state would have made it.
struct Tampering {
  enum class Kind {
    flip,           ///< one bit of a file differs from what was signed
    drop,           ///< a file is missing
    notSigned,      ///< a group is not in the SOD
    truncate,       ///< the second half of a file is missing
    pad,            ///< blanks follow a file, as careless readers leave them
    indefinite,     ///< the SOD has lengths of the indefinite form; no fault, but rare
    expiredSigner,  ///< the signer's certificate had run out when it signed
    wrongAuthority  ///< the signer is under another authority of the same name
  };
  Kind kind;
  std::optional<reader::DataGroupId> file;  ///< for the kinds that concern one
  std::optional<std::size_t> byte;          ///< which one flip alters, counted from 0; by default the last one

  /// Reads "flip=DG1:11", "drop=SOD", "wrong-authority" and the like. Throws std::invalid_argument.
  [[nodiscard]] static Tampering parse(const std::string& text);

  /// What `parse` understands, a line for each kind, for help texts.
  [[nodiscard]] static std::string help();
};

/// Whether there is one of `kind`, for `file` if there is one to name.
[[nodiscard]] bool contains(const std::vector<Tampering>& all, Tampering::Kind kind,
                            std::optional<reader::DataGroupId> file = std::nullopt);

/// Alters `files` that are signed already, in the order of `all`. Throws std::invalid_argument when a file to alter is
/// not there, or too short.
void tamper(Files& files, const std::vector<Tampering>& all);

}  // namespace tavlo::specimen
