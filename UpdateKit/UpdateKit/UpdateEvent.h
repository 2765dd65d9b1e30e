#pragma once

#include "StateKit/Date.h"
#include "Text/Url.h"

#include <exception>
#include <optional>
#include <string>
#include <variant>

/// What the rest of the program learns of an update.
struct ReadyUpdateInfo {
    std::string version;  // a `SemanticVersion`'s description
    std::string displayName;
    std::optional<Date> publicationDate;  // nothing fills it yet
    Url downloadUrl;                      // absolute

    bool operator==(const ReadyUpdateInfo&) const = default;
};

/// The stage of an update that failed.
enum class UpdateFailureCategory { manifest, download, extraction, validation, installation, unknown };

/// The case's own name, such as "manifest".
const char* name(UpdateFailureCategory category);

/// An update that failed.
struct UpdateFailureInfo {
    UpdateFailureCategory category = UpdateFailureCategory::unknown;
    std::string summary;               // the error's text
    bool shouldPresentToUser = false;  // whether that text is worded for the user

    /// The failure that an exception stands for. The category of an unreadable version is `unknown` even if it is
    /// the manifest's, since the error does not tell whose version it was.
    [[nodiscard]] static UpdateFailureInfo of(const std::exception_ptr& error);

    bool operator==(const UpdateFailureInfo&) const = default;
};

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

/// What the updater reports: an update that is ready, a failure, or that there is none.
using UpdateEvent = std::variant<ReadyUpdateInfo, UpdateFailureInfo, UpdateNoUpdateInfo>;
