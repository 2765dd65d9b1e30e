#pragma once

#include <filesystem>

/// Whole folders, down to the last file. No link is ever followed. Blocks; any thread.
namespace FileTree {

/// Copies a file, a link as such, or a folder with all that is in it. Permissions stay, without the set-uid and
/// set-gid bits.
/// @param destination  must not exist yet
/// @throws std::system_error  what was copied is removed again; also for what is no file, link or folder
void copy(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Removes a file, a link or a folder with all that is in it, folders that nobody may write to included.
/// Nothing there is fine.
/// @throws std::system_error
void remove(const std::filesystem::path& path);

}  // namespace FileTree
