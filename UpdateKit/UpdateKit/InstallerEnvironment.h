#pragma once

#include "UpdateKit/CodeSignatureReader.h"

#include <cstdint>
#include <filesystem>
#include <functional>

/// What the installer does to the world beside moving folders, each replaceable.
///
/// One record serves one request: the live one keeps what it learns of the process between the calls.
struct InstallerEnvironment {
    using Path = std::filesystem::path;
    using ProcessIdentifier = std::int32_t;

    /// Throws what `readCodeSignatureProfile` throws.
    CodeSignatureReader readCodeSignatureProfile;
    /// Takes off the marks of a download. May throw.
    std::function<void(const Path& application)> removeQuarantine;
    /// Starts the application as the process that it replaces had been started. Throws if it can't be.
    std::function<void(const Path& application)> relaunchApp;
    /// Asks the process to end; one that is gone already is fine.
    /// @throws InstallerServiceError  processTerminationFailed: not allowed, or not the process of `application`
    std::function<void(ProcessIdentifier process, const Path& application)> terminateProcess;
    /// Ends the process; never throws.
    std::function<void(ProcessIdentifier process)> forceTerminateProcess;
    /// Also true of a process that we may not touch. One that has ended, and that nobody has asked about yet,
    /// does not run.
    std::function<bool(ProcessIdentifier process)> processIsRunning;
    /// Blocks, but no longer than until the process has ended.
    std::function<void(double seconds)> sleep;
};
