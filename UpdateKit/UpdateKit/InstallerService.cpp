#include "UpdateKit/InstallerService.h"

#include "UpdateKit/InstallerServiceError.h"
#include "UpdateKit/UserActionMessage.h"

#include <exception>
#include <string>
#include <utility>

namespace {

using Code = InstallerServiceError::Code;

/// The path without slashes at its end: with one, its file name would be empty.
std::filesystem::path withoutEndingSlash(const std::filesystem::path& path) {
    return path.has_filename() ? path : path.parent_path();
}

/// The error of a move, worded for the user where the user can do something.
InstallerServiceError moveError(const std::exception& error) {
    if (const auto message = userActionMessage(error)) return InstallerServiceError(Code::userActionRequired, *message);
    return InstallerServiceError(Code::replacementFailed, error.what());
}

}  // namespace

struct InstallerService::Places {
    explicit Places(const InstallerLaunchRequest& request)
        : destination(withoutEndingSlash(request.currentApp)),
          backup(destination.parent_path() / (destination.stem().native() + ".previous-" +
                                              std::to_string(request.currentProcessIdentifier) + ".app")) {}

    Path destination;  // keeps the installed name, whatever the staged bundle is called
    Path backup;
};

InstallerService::InstallerService(FileManager& fileManager, BundleReader& bundleReader,
                                   InstallerEnvironment environment, InstallerPollingPolicy pollingPolicy)
    : fileManager(fileManager),
      bundleReader(bundleReader),
      environment(std::move(environment)),
      pollingPolicy(pollingPolicy) {}

void InstallerService::validate(const InstallerLaunchRequest& request) {
    checkBundle(request.stagedApp);
    checkBundle(request.currentApp);
    const auto current = environment.readCodeSignatureProfile(request.currentApp);
    const auto staged = environment.readCodeSignatureProfile(request.stagedApp);
    if (!current.matches(staged)) throw InstallerServiceError(Code::signatureMismatch);
    try {
        environment.removeQuarantine(request.stagedApp);
    } catch (const std::exception& error) {
        throw InstallerServiceError(Code::replacementFailed, error.what());
    }
}

void InstallerService::checkBundle(const Path& application) {
    if (!fileManager.exists(application)) throw InstallerServiceError(Code::missingAppBundle, application.native());
    const auto bundle = bundleReader.open(application);
    const auto executable = bundle ? bundle->executable() : std::nullopt;
    if (!executable || !fileManager.exists(*executable))
        throw InstallerServiceError(Code::missingExecutable, application.native());
}

void InstallerService::run(const InstallerLaunchRequest& request) {
    const Places places(request);
    // Copying a bundle from another volume takes a while, and the disk may be full. Copy it here, while the
    // application still runs: it hears of a failure, and is then gone for no longer than two renames.
    Path replacement;
    try {
        replacement = fileManager.prepareMove(withoutEndingSlash(request.stagedApp), places.destination);
    } catch (const std::exception& error) {
        throw moveError(error);
    }
    const bool isCopy = replacement != withoutEndingSlash(request.stagedApp);
    Path installed;
    try {
        environment.terminateProcess(request.currentProcessIdentifier, request.currentApp);
        waitForExit(request.currentProcessIdentifier);
        installed = replace(places, replacement);
    } catch (...) {
        if (isCopy) removeQuietly(replacement);
        throw;
    }
    if (isCopy) removeQuietly(request.stagedApp);
    try {
        environment.relaunchApp(installed);
    } catch (const std::exception& error) {
        throw InstallerServiceError(Code::relaunchFailed, error.what());
    }
}

void InstallerService::waitForExit(std::int32_t process) {
    if (hasExited(process, pollingPolicy.gracefulAttempts)) return;
    environment.forceTerminateProcess(process);
    if (!hasExited(process, pollingPolicy.forcedAttempts)) throw InstallerServiceError(Code::processDidNotExit);
}

bool InstallerService::hasExited(std::int32_t process, int attempts) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (!environment.processIsRunning(process)) return true;
        environment.sleep(pollingPolicy.interval);
    }
    return !environment.processIsRunning(process);
}

InstallerService::Path InstallerService::replace(const Places& places, const Path& replacement) {
    removeQuietly(places.backup);
    try {
        fileManager.move(places.destination, places.backup);
        fileManager.move(replacement, places.destination);
    } catch (const std::exception& error) {
        if (fileManager.exists(places.backup) && !fileManager.exists(places.destination)) try {
                fileManager.move(places.backup, places.destination);
            } catch (const std::exception&) {
                // The old bundle stays under its backup name. Report the first error, which says why.
            }
        throw moveError(error);
    }
    // Ignore errors here: the installation has succeeded, and what is left of the backup does no harm.
    removeQuietly(places.backup);
    return places.destination;
}

void InstallerService::removeQuietly(const Path& path) {
    try {
        fileManager.remove(path);
    } catch (const std::exception&) {
    }
}
