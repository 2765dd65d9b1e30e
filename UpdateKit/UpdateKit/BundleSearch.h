#pragma once

#include <filesystem>

/// Finds the one application in what came out of an archive.
///
/// Looks through all folders but hidden ones, follows no links, and does not look into an application: one
/// inside another does not count. Whatever is named *.app counts, folder or not; opening it is the next step.
/// @throws UpdateKitError  noAppBundleInArchive, also if the folder can't be read; multipleAppBundlesInArchive
std::filesystem::path findAppBundle(const std::filesystem::path& extracted);
