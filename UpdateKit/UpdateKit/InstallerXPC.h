#pragma once

#include "UpdateKit/InstallerRequest.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// What the application and the installer service have agreed on, in plain values: the service's name on the
/// session bus, and the one call.
///
/// The call carries the URLs of the staged and of the current application and the process to be replaced
/// (signature "ssi"), and is answered, once all is done, with the error's text and whether that is worded for
/// the user ("asb"). The text comes as a list of one text, or of none if the new application has been started.
/// A plain text would not do, since the text of an error may be empty: a tool that was killed leaves none.
namespace InstallerXPC {

inline constexpr std::string_view serviceNameSuffix = ".UpdateKitInstallerXPC";
inline constexpr const char* objectPath = "/zorvane/UpdateKit/Installer";
inline constexpr const char* interface = "zorvane.UpdateKit.Installer";
inline constexpr const char* method = "InstallUpdate";
inline constexpr const char* replySignature = "asb";

/// Nothing without an identifier, or with an empty one.
[[nodiscard]] std::optional<std::string> serviceName(const std::optional<std::string>& bundleIdentifier);

/// The file URL of a path. A path itself can't be sent, since it may hold bytes that are no text.
[[nodiscard]] std::string urlOf(const std::filesystem::path& path);

/// Checks what a caller has sent. The caller may be anybody.
/// @throws std::runtime_error  no absolute file URL of at most 16 KiB, an application that is a symbolic link (which
///         would be moved in place of what it leads to), two that are the same or lie in each other, or a number
///         that is no other process's
/// @throws std::filesystem::filesystem_error  a folder above the applications can't be looked into
[[nodiscard]] InstallerLaunchRequest launchRequest(std::string_view stagedAppUrl, std::string_view currentAppUrl,
                                                   std::int32_t currentProcessIdentifier);

}  // namespace InstallerXPC
