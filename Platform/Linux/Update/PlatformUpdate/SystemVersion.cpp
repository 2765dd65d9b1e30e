#include "PlatformUpdate/SystemVersion.h"

#include "PlatformCore/LinuxHost.h"
#include "UpdateKit/UpdateKitError.h"

#include <algorithm>
#include <optional>
#include <sys/utsname.h>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::optional<SemanticVersion> parsed(std::string_view text) {
    try {
        return SemanticVersion::parse(text);
    } catch (const UpdateKitError&) {
        return std::nullopt;
    }
}

/// For "6.1.0-18-amd64" this is "6.1.0", for "6.8-rc1" it is "6.8".
std::string_view leadingNumbers(std::string_view text) {
    std::size_t end = 0;
    for (int number = 0; number < 3; ++number) {
        std::size_t next = number == 0 ? 0 : end + 1;
        if (number > 0 && (end >= text.size() || text[end] != '.')) break;
        const std::size_t start = next;
        while (next < text.size() && isDigit(text[next])) ++next;
        if (next == start) break;
        end = next;
    }
    return text.substr(0, end);
}

}  // namespace

SemanticVersion systemVersion(std::string_view versionId, std::string_view kernelRelease) {
    // Look for a digit, since parsing accepts a sign, which no system's version begins with.
    if (!versionId.empty() && isDigit(versionId.front()))
        if (const auto version = parsed(versionId)) return *version;
    return parsed(leadingNumbers(kernelRelease)).value_or(SemanticVersion{});
}

SemanticVersion systemVersion(const std::filesystem::path& systemRoot) {
    utsname system{};
    const bool isKnown = uname(&system) == 0;
    return systemVersion(LinuxHost(systemRoot).osRelease("VERSION_ID").value_or(""), isKnown ? system.release : "");
}
