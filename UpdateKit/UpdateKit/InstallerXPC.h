#pragma once

#include "UpdateKit/InstallerRequest.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// What the application and the installer service have agreed on, told in plain values: the service's name on
/// the session bus, and the one call.
///
/// The call carries the URLs of the staged and of the current application and the process to be replaced
/// (signature "ssi"), and is answered, once all is done, with the error's text and whether that is worded for
/// the user ("asb"). The list holds one text, or none: then the new application has been started. It is no plain
/// text, since a tool that was killed leaves an error without words.
namespace InstallerXPC {

inline constexpr std::string_view serviceNameSuffix = ".UpdateKitInstallerXPC";
inline constexpr const char* objectPath = "/zorvane/UpdateKit/Installer";
inline constexpr const char* interface = "zorvane.UpdateKit.Installer";
inline constexpr const char* method = "InstallUpdate";
inline constexpr const char* replySignature = "asb";

/// Nothing without an identifier, or with an empty one.
std::optional<std::string> serviceName(const std::optional<std::string>& bundleIdentifier);

/// A file URL, for a path may hold bytes that are no text.
std::string urlOf(const std::filesystem::path& path);

/// What a caller sent, who may be anybody.
/// @throws std::runtime_error  no absolute file URL of at most 16 KiB, an application that is a symbolic link (which
///         would be moved in place of what it leads to), two that are one or lie in each other, or a number that is
///         no other process's
/// @throws std::filesystem::filesystem_error  a folder above them can't be looked into
InstallerLaunchRequest launchRequest(std::string_view stagedAppUrl, std::string_view currentAppUrl,
                                     std::int32_t currentProcessIdentifier);

}  // namespace InstallerXPC
