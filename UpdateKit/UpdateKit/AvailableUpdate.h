#pragma once

#include "UpdateKit/ReadyUpdateInfo.h"
#include "UpdateKit/ReleaseManifest.h"
#include "UpdateKit/SemanticVersion.h"

/// A release that, by its manifest alone, is newer than the running version and runs on this system.
struct AvailableUpdate {
    ReleaseManifest manifest;  // with an absolute `url`
    SemanticVersion currentVersion;
    ReadyUpdateInfo info;  // provisional: the bundle is not here yet, so it is named after the archive

    bool operator==(const AvailableUpdate&) const = default;
};
