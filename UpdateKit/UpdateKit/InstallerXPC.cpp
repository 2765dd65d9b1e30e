#include "UpdateKit/InstallerXPC.h"

#include "Text/Text.h"
#include "UpdateKit/FileUrl.h"

#include <algorithm>
#include <stdexcept>
#include <unistd.h>

namespace {

using Path = std::filesystem::path;

constexpr std::size_t longestUrl = std::size_t(16) << 10;

/// The path that a URL names, without "." and "..", and without a slash at the end.
Path pathOf(std::string_view text, const std::string& what) {
    const auto url = text.size() <= longestUrl ? Url::parse(text) : std::nullopt;
    const auto path = url ? FileUrl::path(*url) : std::nullopt;
    if (!path) throw std::runtime_error("The " + what + " application is given by no absolute file URL");
    const Path plain = path->lexically_normal();
    Path result = plain.has_filename() ? plain : plain.parent_path();
    if (std::filesystem::is_symlink(std::filesystem::symlink_status(result)))
        throw std::runtime_error("The " + what + " application is a symbolic link: " + Text::escaped(result.native()));
    return result;
}

bool liesIn(const Path& path, const Path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

}  // namespace

std::optional<std::string> InstallerXPC::serviceName(const std::optional<std::string>& bundleIdentifier) {
    if (!bundleIdentifier || bundleIdentifier->empty()) return std::nullopt;
    return *bundleIdentifier + std::string(serviceNameSuffix);
}

std::string InstallerXPC::urlOf(const Path& path) { return FileUrl::of(path).text(); }

InstallerLaunchRequest InstallerXPC::launchRequest(std::string_view stagedAppUrl, std::string_view currentAppUrl,
                                                   std::int32_t currentProcessIdentifier) {
    const Path staged = pathOf(stagedAppUrl, "staged");
    const Path current = pathOf(currentAppUrl, "current");
    const Path realStaged = std::filesystem::weakly_canonical(staged);
    const Path realCurrent = std::filesystem::weakly_canonical(current);
    if (liesIn(realStaged, realCurrent) || liesIn(realCurrent, realStaged))
        throw std::runtime_error("The staged and the current application are one, or lie in each other");
    // As targets of a signal, the numbers up to 0 mean several processes; and if this process ended itself,
    // nobody would install the update.
    if (currentProcessIdentifier <= 0 || currentProcessIdentifier == ::getpid())
        throw std::runtime_error(std::to_string(currentProcessIdentifier) + " is not the application's process");
    return {staged, current, currentProcessIdentifier};
}
