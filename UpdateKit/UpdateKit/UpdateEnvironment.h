#pragma once

#include "Base/Bytes.h"
#include "Text/Url.h"
#include "UpdateKit/BundleValidation.h"
#include "UpdateKit/Outcome.h"
#include "UpdateKit/SemanticVersion.h"
#include "UpdateKit/UpdateKitInstalling.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// All that the update coordinator does to the world, and asks of it, each replaceable. Time is its loop's.
///
/// Called on the coordinator's thread, but for `bundleInfo`. An operation with a completion calls it on that
/// thread, within the call or later. What such an operation returns calls it off when dropped: the completion is
/// then dropped uncalled, and nothing of what was begun is left. It may be dropped within the completion.
struct UpdateEnvironment {
    using Path = std::filesystem::path;
    using Handle = std::shared_ptr<void>;

    /// A text of the running application's information dictionary. Any thread.
    std::function<std::optional<std::string>(std::string_view key)> bundleInfo;
    std::function<SemanticVersion()> systemVersion;
    Path currentApplication;  // the bundle that runs
    std::int32_t processIdentifier = 0;

    /// Says whether there is a network: soon, and then at each change of it, on any thread.
    std::function<Handle(std::function<void(bool isReachable)> report)> watchReachability;

    /// Brings a manifest to memory. What is answered is taken as the document, whatever the status.
    std::function<Handle(const Url&, Completion<Bytes>)> load;
    /// Brings an archive to a new file.
    std::function<Handle(const Url&, const Path& file, Completion<Done>)> download;

    /// Makes a new folder that nobody else uses: "UpdateKit" and an upper-case UUID, in a temporary folder.
    /// @throws std::exception
    std::function<Path()> makeStagingDirectory;
    /// With those above it. @throws std::exception
    std::function<void(const Path&)> makeFolder;
    std::function<bool(const Path&)> exists;
    /// With all that is in it. What can't be removed stays; never throws.
    std::function<void(const Path&)> removeFolder;

    /// Unpacks into an empty folder.
    std::function<Handle(const Path& archive, const Path& folder, Completion<Done>)> extract;
    /// @throws UpdateKitError  what `findAppBundle` throws
    std::function<Path(const Path& folder)> findAppBundle;
    /// Completes with what `validateDownloadedApp` returns or throws.
    std::function<Handle(const Path& application, const DownloadExpectation&, Completion<ValidatedAppBundle>)> validate;

    std::shared_ptr<UpdateKitInstalling> installer;
};

/// The version of the application that runs.
/// @throws UpdateKitError  missingBundleVersion, invalidVersion
SemanticVersion runningVersion(const std::function<std::optional<std::string>(std::string_view key)>& bundleInfo);
