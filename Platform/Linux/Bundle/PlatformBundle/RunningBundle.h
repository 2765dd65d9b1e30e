#pragma once

#include "UpdateKit/AppBundle.h"

#include <filesystem>
#include <optional>

/// Where the bundle lies that a program is in: of DIR/NAME.app/Contents/Linux/PROGRAM, or Contents/Services/PROGRAM, it
/// is DIR/NAME.app. By the path alone; nothing for one that is not of this form.
std::optional<std::filesystem::path> bundleFolderOf(const std::filesystem::path& program);

/// The bundle that a program lies in.
///
/// Ask once, at the start: a bundle that is replaced while its program runs is another one by then.
/// @param executable  a program's file, or a link to it, such as the one that the kernel keeps of this process
/// @return nothing for a program outside a bundle, or in one whose property list can't be read
std::optional<AppBundle> bundleOf(BundleReader& reader, const std::filesystem::path& executable = "/proc/self/exe");

/// Where this application lies: the folder of its bundle. A program outside a bundle has its own folder instead, which
/// is no bundle: what asks for one finds that out.
/// @throws std::filesystem::filesystem_error
std::filesystem::path runningApplication();
