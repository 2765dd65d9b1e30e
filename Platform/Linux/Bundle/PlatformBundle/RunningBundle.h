#pragma once

#include "UpdateKit/AppBundle.h"

#include <filesystem>
#include <optional>

/// The bundle that a program lies in, in its `Contents/Linux/` or `Contents/Services/`.
///
/// Ask once, at the start: a bundle that is replaced while its program runs is another one by then.
/// @param executable  a program's file, or a link to it, such as the one that the kernel keeps of this process
/// @return nothing for a program outside a bundle, or in one whose property list can't be read
std::optional<AppBundle> bundleOf(BundleReader& reader, const std::filesystem::path& executable = "/proc/self/exe");
