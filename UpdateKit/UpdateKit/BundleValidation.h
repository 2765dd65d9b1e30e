#pragma once

#include "UpdateKit/AppBundle.h"
#include "UpdateKit/CodeSignatureReader.h"
#include "UpdateKit/SemanticVersion.h"

#include <filesystem>
#include <string>

/// What is known of a downloaded bundle after its validation.
struct ValidatedAppBundle {
    SemanticVersion version;
    std::string displayName;

    bool operator==(const ValidatedAppBundle&) const = default;
};

/// What a downloaded bundle is compared with.
struct DownloadExpectation {
    SemanticVersion expectedVersion;  // the manifest's
    SemanticVersion currentVersion;
    SemanticVersion systemVersion;
    std::filesystem::path currentApplication;
};

/// Decides whether a downloaded bundle is the announced, newer version, signed by whoever signed the current
/// one. Blocks while the seals of both are checked.
/// @throws UpdateKitError  validationFailed, with the first thing that is wrong
[[nodiscard]] ValidatedAppBundle validateDownloadedApp(const std::filesystem::path& application,
                                                       const DownloadExpectation& expectation, BundleReader& bundles,
                                                       const CodeSignatureReader& readProfile);
