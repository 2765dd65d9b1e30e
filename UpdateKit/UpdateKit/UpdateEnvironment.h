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

/// All that the update coordinator does to the world, and asks of it, each replaceable. Only the time is not
/// here: it comes from the coordinator's loop.
///
/// Called on the coordinator's thread, except `bundleInfo`. An operation with a completion calls it on that
/// thread, within the call or later. Such an operation returns a handle, and is called off when the handle is
/// dropped: then the completion is dropped uncalled, and nothing is left of what was begun. The handle may be
/// dropped within the completion.
struct UpdateEnvironment {
    using Path = std::filesystem::path;
    using Handle = std::shared_ptr<void>;

    /// A text of the running application's information dictionary. Any thread.
    std::function<std::optional<std::string>(std::string_view key)> bundleInfo;
    std::function<SemanticVersion()> systemVersion;
    Path currentApplication;  // the bundle that runs
    std::int32_t processIdentifier = 0;

    /// Reports whether there is a network, soon after the call and then at each change, on any thread.
    std::function<Handle(std::function<void(bool isReachable)> report)> watchReachability;

    /// Loads a manifest into memory. The body of an answer is taken as the document, whatever its HTTP status.
    std::function<Handle(const Url&, Completion<Bytes>)> load;
    /// Downloads an archive into a new file.
    std::function<Handle(const Url&, const Path& file, Completion<Done>)> download;

    /// Makes a new folder that nobody else uses: "UpdateKit" and an upper-case UUID, in a temporary folder.
    /// @throws std::exception
    std::function<Path()> makeStagingDirectory;
    /// Makes a folder, and those above it. @throws std::exception
    std::function<void(const Path&)> makeFolder;
    std::function<bool(const Path&)> exists;
    /// Removes a folder with all that is in it. What can't be removed stays; never throws.
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
[[nodiscard]] SemanticVersion runningVersion(
    const std::function<std::optional<std::string>(std::string_view key)>& bundleInfo);
