#pragma once

#include "UpdateKit/UpdateEvent.h"

// What `UpdateKit` tells the application, on the main thread.

/// A new update has been staged.
struct UpdateReadyMessage {
    ReadyUpdateInfo info;
    bool operator==(const UpdateReadyMessage&) const = default;
};

/// A check, or an installation, has failed.
struct UpdateFailedMessage {
    UpdateFailureInfo info;
    bool operator==(const UpdateFailedMessage&) const = default;
};

/// A check, of either mode, found nothing to install.
struct UpdateCheckedNoUpdateMessage {
    UpdateNoUpdateInfo info;
    bool operator==(const UpdateCheckedNoUpdateMessage&) const = default;
};
