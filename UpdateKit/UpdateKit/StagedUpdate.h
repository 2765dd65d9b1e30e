#pragma once

#include "UpdateKit/ReadyUpdateInfo.h"
#include "UpdateKit/SemanticVersion.h"

#include <filesystem>

/// A release that lies unpacked and validated on this machine, ready to be installed.
struct StagedUpdate {
    SemanticVersion version;  // the bundle's own
    std::filesystem::path application;
    std::filesystem::path stagingDirectory;  // holds everything of this update
    ReadyUpdateInfo info;

    bool operator==(const StagedUpdate&) const = default;
};
