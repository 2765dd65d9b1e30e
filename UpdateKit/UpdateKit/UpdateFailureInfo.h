#pragma once

#include <exception>
#include <string>

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
