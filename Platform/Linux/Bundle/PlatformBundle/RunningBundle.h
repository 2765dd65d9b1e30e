#pragma once

#include "UpdateKit/AppBundle.h"

#include <filesystem>
#include <optional>

/// The folder of the bundle that a program lies in: DIR/NAME.app for DIR/NAME.app/Contents/Linux/PROGRAM, or
/// Contents/Services/PROGRAM. Looks at the path alone; nothing for a path of another form.
std::optional<std::filesystem::path> bundleFolderOf(const std::filesystem::path& program);

/// The bundle that a program lies in.
///
/// Ask once, at the start: another bundle may take its place while the program runs.
/// @param executable  a program's file, or a link to it, such as the one that the kernel keeps of this process
/// @return nothing for a program outside a bundle, or in one whose property list can't be read
std::optional<AppBundle> bundleOf(BundleReader& reader, const std::filesystem::path& executable = "/proc/self/exe");

/// Where this application lies: the folder of its bundle, or of the program itself if it lies in no bundle. A caller
/// that needs a bundle finds out when it opens it.
/// @throws std::filesystem::filesystem_error
std::filesystem::path runningApplication();
