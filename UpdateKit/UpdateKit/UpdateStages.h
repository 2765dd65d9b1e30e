#pragma once

#include "UpdateKit/ReleaseManifest.h"
#include "UpdateKit/SemanticVersion.h"
#include "UpdateKit/UpdateEvent.h"

#include <filesystem>

// What an update is on its way: first announced, then on this machine.

/// A release that, by its manifest alone, is newer than the running version and runs on this system.
struct AvailableUpdate {
    ReleaseManifest manifest;  // with an absolute `url`
    SemanticVersion currentVersion;
    ReadyUpdateInfo info;  // provisional: the bundle is not here yet, so it is named after the archive

    bool operator==(const AvailableUpdate&) const = default;
};

/// A release that lies unpacked and validated on this machine, ready to be installed.
struct StagedUpdate {
    SemanticVersion version;  // the bundle's own
    std::filesystem::path application;
    std::filesystem::path stagingDirectory;  // holds everything of this update
    ReadyUpdateInfo info;

    bool operator==(const StagedUpdate&) const = default;
};
