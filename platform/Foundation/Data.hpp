#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::foundation {

/// Bytes in memory, owned.
using Data = std::vector<std::uint8_t>;
/// The same buffer where the platform tells growable from fixed ones.
using NSMutableData = Data;
/// Bytes that somebody else owns.
using DataView = std::span<const std::uint8_t>;

/// The bytes of `text`, copied.
[[nodiscard]] Data dataOf(std::string_view text);

/// The bytes seen as characters, without a copy; valid as long as `bytes` are. Nothing is checked: see UTF8.hpp.
[[nodiscard]] std::string_view textOf(DataView bytes) noexcept;

/// Overwrites the bytes with zeros and drops them, so that personal data does not linger in freed memory.
void wipe(Data& bytes) noexcept;

/// The largest file that `contentsOf` reads, in bytes.
inline constexpr std::size_t maximumFileSize = std::size_t{256} << 20;

/// Reads the whole file at `path`, as it is at this moment.
/// Throws std::system_error when it cannot be opened or read, is no regular file, or is larger than `limit` bytes.
[[nodiscard]] Data contentsOf(const std::filesystem::path& path, std::size_t limit = maximumFileSize);

/// A name for a file that is met nowhere else and cannot be guessed: `size` bytes, at most 256, of the system's random
/// source as lower-case hexadecimal digits. Throws std::system_error.
[[nodiscard]] std::string randomName(std::size_t size);

/// What `writePrivately` does when the file exists.
enum class IfExists { replace, fail };

/// Writes a file that only its owner may read (mode 0600), so that a crash leaves either the old file or the whole new
/// one: a temporary file in the same folder, flushed to disk, then renamed into place and the folder flushed.
/// With IfExists::fail, of several writers at once exactly one succeeds and the others get false; nothing is replaced.
/// The folder must exist. Throws std::system_error; no temporary file is left behind then, but the file may be in
/// place when only the folder could not be flushed.
bool writePrivately(const std::filesystem::path& path, DataView bytes, IfExists ifExists = IfExists::replace);

/// Removes the temporary files that killed processes have left in `folder`. Those that `writePrivately` is writing at
/// this moment stay, in whatever process; what cannot be removed is left to the next time.
void sweepTemporaryFiles(const std::filesystem::path& folder);

/// Flushes the folder to disk, so that what was made in it or removed from it stays so after a crash. Throws
/// std::system_error.
void flushFolder(const std::filesystem::path& folder);

/// Makes the folder and its missing parents with mode 0700, on disk when it returns, also where another process has
/// made them and was killed. A folder of ours that is there and open to others is closed to them; its parents stay as
/// they are. Throws std::system_error.
void createPrivateFolder(const std::filesystem::path& folder);

/// `$XDG_DATA_HOME/tavlo`, else `$HOME/.local/share/tavlo`: where keys and pictures are kept. The folder may not exist
/// yet. Throws std::runtime_error when neither variable names an absolute path.
[[nodiscard]] std::filesystem::path applicationSupportFolder();

}  // namespace tavlo::foundation
