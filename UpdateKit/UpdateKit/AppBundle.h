#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// An application bundle on disk, as it was when it was opened: a folder NAME.app with a property list
/// `Contents/Info.plist` and its programs in `Contents/Linux/`.
struct AppBundle {
    std::filesystem::path path;

    /// The values of the property list that are texts. Keys with values of another type are left out, since
    /// every caller wants a text.
    std::map<std::string, std::string, std::less<>> info;

    std::optional<std::string> text(std::string_view key) const;

    /// `Contents/Linux/` and the value of "CFBundleExecutable"; nothing if there is none, or it is no plain
    /// file name. The file need not exist.
    std::optional<std::filesystem::path> executable() const;

    /// The text under "CFBundleShortVersionString", else under "CFBundleVersion".
    std::optional<std::string> versionText() const;

    bool operator==(const AppBundle&) const = default;
};

/// Opens bundles. May be called on any thread.
class BundleReader {
public:
    virtual ~BundleReader() = default;

    /// @return nothing if there is no bundle there, or its property list can't be read
    [[nodiscard]] virtual std::optional<AppBundle> open(const std::filesystem::path& path) = 0;
};
