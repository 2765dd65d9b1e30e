#pragma once

#include <cstdint>
#include <filesystem>

/// What the application asks of the installer service. All paths absolute.
struct InstallerRequest {
    std::filesystem::path stagedApp;   // the unpacked, validated application
    std::filesystem::path currentApp;  // the one to be replaced
    std::int32_t currentProcessIdentifier = 0;

    bool operator==(const InstallerRequest&) const = default;
};

/// The same as the service receives it: its bundles have not been validated there yet.
struct InstallerLaunchRequest {
    std::filesystem::path stagedApp;
    std::filesystem::path currentApp;
    std::int32_t currentProcessIdentifier = 0;
};
