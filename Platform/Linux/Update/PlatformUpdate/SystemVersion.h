#pragma once

#include "UpdateKit/SemanticVersion.h"

#include <filesystem>
#include <string>
#include <string_view>

/// The version of this system: VERSION_ID of os-release ("12", "24.04"), else the first three numbers of the
/// kernel's release; 0.0.0 if neither is one.
/// @param systemRoot  where the files of this machine lie
SemanticVersion systemVersion(const std::filesystem::path& systemRoot = "/");

/// The same, from the two texts.
/// @param versionId  empty if there is none
SemanticVersion systemVersion(std::string_view versionId, std::string_view kernelRelease);
