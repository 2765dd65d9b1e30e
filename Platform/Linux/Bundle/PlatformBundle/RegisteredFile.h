#pragma once

#include <filesystem>
#include <string>
#include <string_view>

/// Files that tell the user's desktop of the application, in folders that other programs read too.
namespace RegisteredFile {

/// Gives a file these contents, unless it has them. The folders above it are made; the file is put in its place
/// when it is whole, so nobody reads half of one.
/// @return whether it had to be written
/// @throws std::runtime_error  why not, in one line
bool update(const std::filesystem::path& path, std::string_view contents);

/// @throws std::runtime_error  it can't be read, or has more than a MiB
std::string read(const std::filesystem::path& path);

/// @throws std::runtime_error  a path that is not UTF-8, or has control characters: such files can't name it
void requirePlain(const std::filesystem::path& path);

}  // namespace RegisteredFile
