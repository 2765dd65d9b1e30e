#include "CodeSignature/BundleLinks.h"

#include "CodeSignature/CodeSignatureError.h"
#include "CodeSignature/EscapedText.h"

#include <algorithm>

namespace {

// As many links as the kernel follows, and a limit on the work that one link can cause.
constexpr int maximumLinks = 40;
constexpr int maximumSteps = 1024;

/// The parts of a path, last one first, so that the next one can be taken from the end.
std::vector<std::string> turnedRound(std::string_view path) {
    std::vector<std::string> parts;
    while (true) {
        const std::size_t end = path.find('/');
        parts.emplace_back(path.substr(0, end));
        if (end == std::string_view::npos) break;
        path.remove_prefix(end + 1);
    }
    std::ranges::reverse(parts);
    return parts;
}

/// Removes the last part of a path. @return false if there is none
bool goUp(std::string& place) {
    if (place.empty()) return false;
    const std::size_t end = place.rfind('/');
    place.resize(end == std::string::npos ? 0 : end);
    return true;
}

}  // namespace

void BundleLinks::checkAll() const {
    for (const auto& [path, target] : targets) check(path);
}

void BundleLinks::check(const std::string& path) const {
    const auto refuse = [&](std::string_view how) {
        throw CodeSignatureError(CodeSignatureErrorCode::unsealable, path,
                                 "the link to " + escapedText(targets.at(path)) + ' ' + std::string(how));
    };
    std::string place = path;
    goUp(place);
    std::vector<std::string> ahead{path.substr(place.empty() ? 0 : place.size() + 1)};
    int links = 0;
    for (int steps = 0; !ahead.empty(); ++steps) {
        if (steps == maximumSteps) refuse("goes a way that is too long");
        const std::string part = std::move(ahead.back());
        ahead.pop_back();
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            if (!goUp(place)) refuse("leads out of the bundle");
            continue;
        }
        if (!place.empty()) place += '/';
        place += part;
        const SealEntry* entry = find(place);
        if (!entry) return refuse("leads to nothing in the bundle");
        switch (entry->kind) {
            case SealEntry::Kind::directory: break;
            case SealEntry::Kind::file:
                if (!ahead.empty()) refuse("leads to nothing in the bundle");
                break;
            case SealEntry::Kind::link: {
                if (++links > maximumLinks) refuse("leads in a circle");
                const std::string& target = targets.at(place);
                if (target.starts_with('/')) refuse("leads out of the bundle");
                goUp(place);
                for (std::string& next : turnedRound(target)) ahead.push_back(std::move(next));
                break;
            }
        }
    }
}

const SealEntry* BundleLinks::find(std::string_view path) const {
    const auto at = std::ranges::lower_bound(entries, path, {},
                                             [](const SealEntry& entry) -> std::string_view { return entry.path; });
    return at != entries.end() && at->path == path ? &*at : nullptr;
}
