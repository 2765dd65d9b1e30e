#pragma once

#include <filesystem>

/// What this process has had written to the disk: every call of fsync is noted, and done.
namespace FlushedFiles {

void forget();
/// Whether it was called for this file or folder since.
bool contain(const std::filesystem::path& path);

}  // namespace FlushedFiles
