#pragma once

#include <Foundation/Data.hpp>
#include <TavloReader/NFCPassportModel.hpp>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavlo::reader {

/// The largest file that is looked at, in bytes. The groups of real chips stay below one tenth of it.
inline constexpr std::size_t maximumElementaryFileSize = std::size_t{4} << 20;
/// The most files of one document, those that are no data groups included.
inline constexpr std::size_t maximumFileCount = 64;

/// A file of a document with the name it came under, which only serves reports.
struct NamedFile {
  /// Any text.
  std::string name;
  /// The whole content.
  foundation::Data bytes;
};

/// What was made of one file.
struct FileFinding {
  /// What became of a file.
  enum class Kind {
    group,      ///< a data group that is in the model
    leftAside,  ///< no data group, such as EF.CardAccess, EF.DIR or a certificate
    malformed,  ///< meant to be a data group and not in the model; `text` says what is wrong
  };
  std::string name;                   ///< the file's name, in valid UTF-8
  Kind kind = Kind::leftAside;        ///< what became of it
  std::optional<DataGroupId> group;   ///< where it is one, or means to be one
  std::string text;                   ///< what the file is, or what is wrong with it
  std::vector<std::string> oddities;  ///< worth telling, no error: padding cut, a name that contradicts the content ...
};

/// A document made from files: the model, and what became of each file, in the order given.
struct DocumentReading {
  NFCPassportModel model;             ///< the groups that are sound
  std::vector<FileFinding> findings;  ///< one for each file
};

/// Makes a document from elementary files in memory, recognised by content, whatever their names. A malformed group is
/// reported and does not stop the others. Throws ReaderError when two files are the same group, naming both, and when
/// there are more than `maximumFileCount` files.
[[nodiscard]] DocumentReading readDocument(std::vector<NamedFile> files);

/// Makes a document from the regular files of a folder, in the order of their names; anything else in it, such as a
/// subfolder or a pipe, is not opened. Throws ReaderError as above and when no file is a data group;
/// std::filesystem::filesystem_error, a std::system_error, when the folder cannot be read.
[[nodiscard]] DocumentReading readDocument(const std::filesystem::path& folder);

}  // namespace tavlo::reader
