#pragma once

#include "StateKit/Host.h"
#include "UpdateKit/AppBundle.h"

#include <filesystem>

/// Describes this build and this Linux machine.
///
/// In a bundle, the information dictionary is what `Contents/Info.plist` said when this object was made. A program
/// outside a bundle has some keys compiled in: "CFBundleName", "CFBundleShortVersionString", "CFBundleVersion"
/// and "CFBundleIdentifier". Everything else is read anew at each call, without control characters and cut at
/// 200 bytes. Any thread.
class LinuxHost : public Host {
public:
    /// @param systemRoot  the folder below which this machine's system files are
    /// @param executable  this program's file, by which its bundle is found
    explicit LinuxHost(std::filesystem::path systemRoot = "/",
                       const std::filesystem::path& executable = "/proc/self/exe");

    /// The bundle that this program lies in; nothing if it is in none.
    const std::optional<AppBundle>& bundle() const { return _bundle; }

    std::optional<std::string> bundleInfo(std::string_view key) const override;
    std::optional<std::string> hardwareName() const override;
    /// PRETTY_NAME of os-release; the kernel's name and release where there is none.
    std::string operatingSystemVersion() const override;
    std::string timeZoneIdentifier() const override;
    /// From LC_ALL, LC_MESSAGES and LANG; "en_US_POSIX" where they name no language.
    std::string localeIdentifier() const override;
    /// The pretty name in machine-info, or the host name unless it is only "localhost".
    std::optional<std::string> computerName() const override;

    /// A value of os-release(5), such as "VERSION_ID"; nothing if absent or empty.
    std::optional<std::string> osRelease(std::string_view name) const;

private:
    std::filesystem::path systemRoot;
    std::optional<AppBundle> _bundle;
};
