#pragma once

#include <filesystem>
#include <string>

/// What the installer service needs from the bundle that it lies in. It reads all of this at its start, since later
/// another bundle may lie there.
struct InstallerBundle {
    std::string applicationId;           // the bundle's identifier
    std::string serviceName;             // of the service on the session bus
    std::filesystem::path codeSignTool;  // `vimble-codesign`: beside the program, else in `Contents/Linux/`

    /// @param program  the service's own executable, in `Contents/Services/` or `Contents/Linux/`
    /// @throws std::runtime_error  it lies in no bundle, or in one without an identifier or the tool
    static InstallerBundle of(const std::filesystem::path& program);
};
