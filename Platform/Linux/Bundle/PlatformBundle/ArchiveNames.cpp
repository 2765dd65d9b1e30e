#include "PlatformBundle/ArchiveNames.h"

#include "PlatformBundle/ArchiveExtractor.h"
#include "Text/Text.h"

#include <algorithm>

namespace {

[[noreturn]] void refuse(std::string_view name, const std::string& why) {
    throw ExtractionError("\"" + Text::escaped(name) + "\" " + why);
}

}  // namespace

std::string ArchiveNames::addFile(std::string_view raw) {
    std::string name = add(raw, Kind::file);
    if (name.empty()) refuse(raw, "is no name of a file");
    return name;
}

std::string ArchiveNames::addFolder(std::string_view raw) { return add(raw, Kind::folder); }

std::string ArchiveNames::parentOf(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    return slash == std::string::npos ? std::string() : name.substr(0, slash);
}

std::vector<std::string_view> ArchiveNames::partsOf(std::string_view raw) const {
    if (raw.starts_with('/')) refuse(raw, "is an absolute path");
    if (!Text::isUtf8(raw)) refuse(raw, "is not UTF-8");
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0; begin < raw.size();) {
        const std::size_t end = std::min(raw.find('/', begin), raw.size());
        const std::string_view part = raw.substr(begin, end - begin);
        if (part == "..") refuse(raw, "leads upwards");
        if (!part.empty() && part != ".") parts.push_back(part);
        begin = end + 1;
    }
    if (parts.size() > maxDepth) refuse(raw, "lies too deep");
    return parts;
}

std::string ArchiveNames::add(std::string_view raw, Kind kind) {
    const auto parts = partsOf(raw);
    std::string name;
    for (std::size_t at = 0; at < parts.size(); ++at) {
        const bool isLast = at + 1 == parts.size();
        const Kind kindHere = isLast ? kind : Kind::folder;
        if (at > 0) name += '/';
        name += parts[at];
        const auto [found, isNew] = known.try_emplace(Text::caseFolded(name), Known{name, kindHere});
        if (isNew) continue;
        const Known& before = found->second;
        if (before.name != name) refuse(raw, "differs from \"" + Text::escaped(before.name) + "\" only in case");
        if (before.kind == Kind::file && !isLast) refuse(raw, "lies below what is no folder");
        if (before.kind == Kind::file || kindHere == Kind::file) refuse(raw, "is there twice");
    }
    return name;
}
