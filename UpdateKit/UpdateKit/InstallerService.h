#pragma once

#include "UpdateKit/AppBundle.h"
#include "UpdateKit/FileManager.h"
#include "UpdateKit/InstallerEnvironment.h"
#include "UpdateKit/InstallerPollingPolicy.h"
#include "UpdateKit/InstallerRequest.h"

#include <filesystem>

/// Replaces an application by an update, from a process that outlives it.
///
/// `validate` judges, and does nothing to the running application; `run` stops it, swaps the bundles and
/// starts the new one. Both block, for seconds. Whatever happens in between, the old bundle or the new one lies
/// whole at its place, but for the moment between two renames in which the old one lies whole under the
/// backup name NAME.previous-PROCESS.app beside it.
class InstallerService {
public:
    InstallerService(FileManager& fileManager, BundleReader& bundleReader, InstallerEnvironment environment,
                     InstallerPollingPolicy pollingPolicy);

    /// Trusts nothing of the request: checks both bundles and that one identity signed them.
    /// @throws InstallerServiceError  missingAppBundle, missingExecutable, signatureMismatch, replacementFailed
    /// @throws std::exception  a seal that can't be read, or does not hold
    void validate(const InstallerLaunchRequest& request);

    /// Nothing but the current bundle's folder is touched before the process is asked to end: what can be
    /// known of missing permission and room is known before.
    /// @throws InstallerServiceError  processTerminationFailed, processDidNotExit, userActionRequired,
    ///         replacementFailed, relaunchFailed
    void run(const InstallerLaunchRequest& request);

private:
    using Path = std::filesystem::path;
    struct Places;

    void checkBundle(const Path& application);
    void waitForExit(std::int32_t process);
    bool hasExited(std::int32_t process, int attempts);
    Path replace(const Places& places, const Path& replacement);
    void removeQuietly(const Path& path);

    FileManager& fileManager;
    BundleReader& bundleReader;
    const InstallerEnvironment environment;
    const InstallerPollingPolicy pollingPolicy;
};
