#pragma once

#include "UpdateKit/AppBundle.h"
#include "UpdateKit/FileManager.h"
#include "UpdateKit/InstallerEnvironment.h"
#include "UpdateKit/InstallerRequest.h"

#include <filesystem>

/// How long the installer waits for the application to end.
struct InstallerPollingPolicy {
    double interval = 0.1;      // between two looks at the process, in seconds
    int gracefulAttempts = 50;  // looks after the polite request; below 0 counts as 0
    int forcedAttempts = 50;    // looks after the kill; likewise
};

/// Replaces an application by an update, from a process that outlives it.
///
/// `validate` judges, and does nothing to the running application; `run` stops it, swaps the bundles and
/// starts the new one. Both block, for seconds. At any moment either the old or the new bundle lies whole at
/// its place. The exception is the moment between two renames, when the old one lies whole beside it, under
/// the backup name NAME.previous-PROCESS.app.
class InstallerService {
public:
    InstallerService(FileManager& fileManager, BundleReader& bundleReader, InstallerEnvironment environment,
                     InstallerPollingPolicy pollingPolicy);

    /// Trusts nothing of the request: checks both bundles and that one identity signed them.
    /// @throws InstallerServiceError  missingAppBundle, missingExecutable, signatureMismatch, replacementFailed
    /// @throws std::exception  a seal that can't be read, or does not hold
    void validate(const InstallerLaunchRequest& request);

    /// Finds out what it can about missing permission and room before it asks the process to end. Until then it
    /// touches nothing but the folder that the current bundle lies in.
    /// @throws InstallerServiceError  processTerminationFailed, processDidNotExit, userActionRequired,
    ///         replacementFailed, relaunchFailed
    void run(const InstallerLaunchRequest& request);

private:
    using Path = std::filesystem::path;
    struct Places;

    void checkBundle(const Path& application);
    void waitForExit(std::int32_t process);
    [[nodiscard]] bool hasExited(std::int32_t process, int attempts);
    Path replace(const Places& places, const Path& replacement);
    void removeQuietly(const Path& path);

    FileManager& fileManager;
    BundleReader& bundleReader;
    const InstallerEnvironment environment;
    const InstallerPollingPolicy pollingPolicy;
};
