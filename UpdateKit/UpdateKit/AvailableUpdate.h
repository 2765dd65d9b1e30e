#pragma once

#include "UpdateKit/ReadyUpdateInfo.h"
#include "UpdateKit/ReleaseManifest.h"
#include "UpdateKit/SemanticVersion.h"

/// A release that is newer than what runs, and runs on this system: what the manifest alone tells.
struct AvailableUpdate {
    ReleaseManifest manifest;  // with an absolute `url`
    SemanticVersion currentVersion;
    ReadyUpdateInfo info;  // provisional: nobody has seen the bundle, so its name is the archive's

    bool operator==(const AvailableUpdate&) const = default;
};
