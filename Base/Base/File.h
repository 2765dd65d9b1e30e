#pragma once

#include "Base/Bytes.h"
#include "Base/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>

/// Files that are read or replaced as a whole: every secret, state and registration is kept through these functions.
///
/// A function that takes a path throws std::system_error with the system's error number (in the generic category) and
/// that path. One that takes a descriptor leaves the number in `errno`, for callers with messages of their own. All
/// functions block, and may be called on any thread; a signal does not interrupt reading and writing.
namespace File {

/// What the contents of a replaced file are safe from.
///
/// In each case a reader finds the old contents or the new ones, and never a part.
enum class Durability {
    crash,      // the end of any program. A failure of the power may take the new contents, and on file systems that
                // do not write a file before they rename it (ext4 and btrfs do) the old ones with them
    powerLoss,  // the failure of the power too: waits until the medium has the file, and then its name
};

/// How a file is replaced.
struct Replacement {
    Durability durability;
    /// Permissions of the new file, whatever the old one's were and whatever the process's mask is. More than 0600
    /// is given only when the file has been written.
    mode_t permissions = 0600;
    /// The new file's name until it is whole, in the same folder. Six X at the end become a name that is free; a file
    /// of any other name is removed first. Empty: ".NAME.XXXXXX".
    std::string temporaryName = {};
};

/// Writes a file beside the old one and puts it in its place at the end, so that whoever has the old one open keeps
/// its contents. A link at this path is replaced, and not what it leads to. Keeps no copy of the contents.
/// @throws std::system_error  the old file stays as it was, and nothing is left beside it. A folder that can't be
///         brought to the medium is no error: the new contents are in their place already.
void replace(const std::filesystem::path& path, ByteView contents, const Replacement& how);

/// Where a path leads to in the end, through links of which the last may lead to nothing yet.
/// @throws std::system_error  ELOOP for more links than the system itself follows (40); a link that can't be read
std::filesystem::path followed(const std::filesystem::path& path);

enum class Links { follow, refuse };

/// An ordinary file that is open for reading, and its length at that moment.
struct Opened {
    FileDescriptor file;
    std::size_t size = 0;  // bytes
};

/// Opens an ordinary file without ever waiting, as the opening of a pipe would.
/// @param limit  the longest that is opened, in bytes
/// @throws std::system_error  also EISDIR for a folder, EINVAL for what is neither, EFBIG for a longer one; ELOOP for
///         a link that was refused (the last part of the path alone)
[[nodiscard]] Opened open(const std::filesystem::path& path, std::size_t limit, Links links = Links::follow);

/// Reads an ordinary file up to its end, also if it is longer than its stated length, as files of /proc are. Not for
/// unsealed secrets: when the buffer grows, its old memory is not wiped.
/// @throws std::system_error  as `open`
[[nodiscard]] Bytes read(const std::filesystem::path& path, std::size_t limit, Links links = Links::follow);

/// As `read`, for a file that need not be there.
/// @return nothing if there was none to open, or no folder for it
/// @throws std::system_error  as `open`. An error after the opening is always thrown.
std::optional<Bytes> readIfThere(const std::filesystem::path& path, std::size_t limit, Links links = Links::follow);

/// Opens a name in an open folder for reading: not through a symbolic link, and without waiting for anybody if it is
/// no file after all.
/// @param flags  more of those of open(2), such as O_DIRECTORY
/// @return none on failure; `errno` says why
[[nodiscard]] FileDescriptor openAt(int folder, const std::string& name, int flags = 0);

/// Reads until the room is full or the file ends.
/// @return how many bytes were read; nothing on failure
[[nodiscard]] std::optional<std::size_t> readInto(int file, std::span<std::uint8_t> room);

/// @return false on failure: a part may have been written
[[nodiscard]] bool writeAll(int file, ByteView contents);

}  // namespace File
