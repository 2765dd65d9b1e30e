#pragma once

#include "UpdateKit/UpdateEvent.h"

#include <optional>
#include <string>
#include <variant>

/// The state of a check that the user has asked for.
struct ManualCheckStatus {
    struct UnsupportedSystemVersion {
        std::string requiredVersion;
        bool operator==(const UnsupportedSystemVersion&) const = default;
    };
    struct Checking {
        bool operator==(const Checking&) const = default;
    };
    struct NoUpdateAvailable {
        bool operator==(const NoUpdateAvailable&) const = default;
    };

    std::variant<Checking, UnsupportedSystemVersion, NoUpdateAvailable> value;

    bool operator==(const ManualCheckStatus&) const = default;
};

/// All that the windows show of updates.
struct UpdateState {
    bool isConfigured = false;  // whether it is known where to look for updates
    /// What can be installed now. It is never reset: a staged update stays on offer until it has replaced the program.
    std::optional<ReadyUpdateInfo> readyUpdate;
    /// A version that is shown as ready although there is none. Nothing in the program sets it.
    std::optional<std::string> debugReadyVersion;
    std::optional<ManualCheckStatus> manualCheck;
    std::optional<UpdateFailureInfo> failure;  // the latest one that was not dismissed

    bool operator==(const UpdateState&) const = default;
};
