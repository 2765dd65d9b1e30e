#pragma once

#include <filesystem>

/// The files that this process has had written to the disk. Every call of fsync is noted, and carried out.
namespace FlushedFiles {

void forget();
/// Whether fsync was called for this file or folder since `forget`.
bool contain(const std::filesystem::path& path);

}  // namespace FlushedFiles
