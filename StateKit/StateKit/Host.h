#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What this build and this machine say of themselves.
class Host {
public:
    virtual ~Host() = default;

    /// A text of the bundle's information dictionary, such as "CFBundleShortVersionString"; nothing if
    /// there is no such key, or its value is no text.
    virtual std::optional<std::string> bundleInfo(std::string_view key) const = 0;

    /// The kind of machine, such as "x86_64"; nothing if the system does not tell.
    virtual std::optional<std::string> hardwareName() const = 0;

    /// The system's name and version, as people read it.
    virtual std::string operatingSystemVersion() const = 0;

    /// Such as "Europe/Zurich".
    virtual std::string timeZoneIdentifier() const = 0;

    /// Such as "de_CH".
    virtual std::string localeIdentifier() const = 0;

    /// The computer's name as its user knows it; nothing if it has none.
    virtual std::optional<std::string> computerName() const = 0;
};
