#pragma once

#include <string>
#include <variant>

/// Why a manifest gave no update.
struct UpdateNoUpdateReason {
    /// There is an update, but it needs a newer system.
    struct SystemVersionUnsupported {
        std::string availableVersion;
        std::string requiredSystemVersion;
        bool operator==(const SystemVersionUnsupported&) const = default;
    };
    struct NoNewerVersion {
        bool operator==(const NoNewerVersion&) const = default;
    };

    std::variant<NoNewerVersion, SystemVersionUnsupported> value;

    bool operator==(const UpdateNoUpdateReason&) const = default;
};

/// A check that found nothing to install.
struct UpdateNoUpdateInfo {
    UpdateNoUpdateReason reason;
    std::string summary;  // for the user

    bool operator==(const UpdateNoUpdateInfo&) const = default;
};
