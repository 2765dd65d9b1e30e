#pragma once

#include "Base/Bytes.h"

#include <filesystem>

/// Files that only their owner may read, for what is secret and the user wants to have as a file.
namespace PrivateFile {

/// Writes the file anew, under the mode 0600 from its first byte on, and onto the medium. It is written beside
/// the old one and takes its place at the end: on failure the old one stays as it was, and whoever has it open
/// does not see the new contents. A link stays, and what it leads to is replaced.
///
/// Any thread; blocks until the medium has it.
/// @throws std::system_error  why not; also where something other than a file is (a folder, a device, a pipe)
void replace(const std::filesystem::path& path, ByteView contents);

}  // namespace PrivateFile
