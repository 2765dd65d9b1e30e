#pragma once

#include <filesystem>
#include <stop_token>

/// Whole folders, down to the last file. No link is ever followed. Blocks; any thread.
namespace FileTree {

/// Copies a file, a link as such, or a folder with all that is in it. Permissions stay, without the set-uid and
/// set-gid bits.
/// @param destination  must not exist yet
/// @throws std::system_error  what was copied is removed again; also for what is no file, link or folder
void copy(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Removes a file, a link or a folder with all that is in it, folders that nobody may write to included.
/// Does nothing if there is no such path.
/// @throws std::system_error
void remove(const std::filesystem::path& path);

/// Waits until all of a file or a folder is on the disk, so that a machine that loses its power does not find a folder
/// of empty files. What may not be read is left out.
/// @param stop  ends the call between two files, without an error
/// @throws std::system_error
void flush(const std::filesystem::path& path, const std::stop_token& stop = {});

}  // namespace FileTree
