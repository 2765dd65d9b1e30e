#pragma once

#include "UpdateKit/CodeSignatureReader.h"

#include <cstdint>
#include <filesystem>
#include <functional>

/// The operations of the installer on the world, except moving folders; a test replaces each.
///
/// One record serves one request: the live one keeps what it learns of the process between the calls.
struct InstallerEnvironment {
    using Path = std::filesystem::path;
    using ProcessIdentifier = std::int32_t;

    /// Throws what `readCodeSignatureProfile` throws.
    CodeSignatureReader readCodeSignatureProfile;
    /// Removes the marks of a download. May throw.
    std::function<void(const Path& application)> removeQuarantine;
    /// Starts the application in the same way as the process that it replaces. Throws if that fails.
    std::function<void(const Path& application)> relaunchApp;
    /// Asks the process to end. Does nothing if it has ended already.
    /// @throws InstallerServiceError  processTerminationFailed: not allowed, or not the process of `application`
    std::function<void(ProcessIdentifier process, const Path& application)> terminateProcess;
    /// Ends the process; never throws.
    std::function<void(ProcessIdentifier process)> forceTerminateProcess;
    /// Also true of a process that we may not touch. False for one that has ended, even if its parent has not
    /// waited for it yet.
    std::function<bool(ProcessIdentifier process)> processIsRunning;
    /// Blocks for that time, or until the process has ended if that is sooner.
    std::function<void(double seconds)> sleep;
};
