#pragma once

#include <filesystem>

/// Finds the one application in an unpacked archive.
///
/// Looks through all folders but hidden ones, follows no links, and does not look into an application: one
/// inside another does not count. Whatever is named *.app counts, whether it is a folder or not; the caller
/// finds out when it opens it.
/// @throws UpdateKitError  noAppBundleInArchive, also if the folder can't be read; multipleAppBundlesInArchive
[[nodiscard]] std::filesystem::path findAppBundle(const std::filesystem::path& extracted);
