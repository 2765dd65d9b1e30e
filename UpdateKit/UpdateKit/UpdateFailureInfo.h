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

    /// What an exception amounts to. A version that can't be read counts as unknown even if it is the manifest's:
    /// the error does not tell whose it was.
    static UpdateFailureInfo of(const std::exception_ptr& error);

    bool operator==(const UpdateFailureInfo&) const = default;
};
