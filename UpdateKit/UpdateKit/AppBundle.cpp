#include "UpdateKit/AppBundle.h"

std::optional<std::string> AppBundle::text(std::string_view key) const {
    const auto found = info.find(key);
    return found == info.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::filesystem::path> AppBundle::executable() const {
    const auto name = text("CFBundleExecutable");
    const bool isFileName = name && !name->empty() && *name != "." && *name != ".." &&
                            name->find('/') == std::string::npos && name->find('\0') == std::string::npos;
    if (!isFileName) return std::nullopt;
    return path / "Contents" / "Linux" / *name;
}

std::optional<std::string> AppBundle::versionText() const {
    const auto shortText = text("CFBundleShortVersionString");
    return shortText ? shortText : text("CFBundleVersion");
}
