#include "StateKit/Disk.h"

#include "Base/File.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <span>

#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(int code, const char* what) { throw std::system_error(code, std::generic_category(), what); }

void replaceAll(std::string& text, std::string_view old, std::string_view with) {
    for (std::size_t at = text.find(old); at != std::string::npos; at = text.find(old, at + with.size()))
        text.replace(at, old.size(), with);
}

/// Makes a folder and those above it, for their owner alone. `create_directories` can't set a mode.
void makeFolders(const fs::path& folder) {
    if (::mkdir(folder.c_str(), 0700) == 0) return;
    if (errno == EEXIST) return;  // if it is no folder, making the file in it fails
    if (errno != ENOENT || !folder.has_relative_path() || folder.parent_path() == folder) fail(errno, "mkdir");
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail(errno, "mkdir");
}

/// Removes what a process that died in the middle of a write of this file has left.
void removeLeftovers(const fs::path& folder, const std::string& begin, std::string_view end) {
    std::error_code ignored;
    for (fs::directory_iterator it(folder, ignored), last; !ignored && it != last; it.increment(ignored)) {
        const std::string name = it->path().filename().native();
        if (name.size() <= begin.size() + end.size() || !name.starts_with(begin) || !name.ends_with(end)) continue;
        const std::string process = name.substr(begin.size(), name.size() - begin.size() - end.size());
        if (process.size() > 9 || process.find_first_not_of("0123456789") != std::string::npos) continue;
        const int id = std::atoi(process.c_str());
        if (id > 0 && ::kill(id, 0) != 0 && errno == ESRCH) ::unlink(it->path().c_str());
    }
}

}  // namespace

DiskError::DiskError(Code code, bool isMissing, const std::string& text)
    : std::runtime_error(text), code(code), isMissing(isMissing) {}

DiskError DiskError::decode(std::string_view typeName, std::string_view filename, std::string_view underlying,
                            bool isMissing) {
    std::string text = "Could not decode value ";
    text.append(typeName).append(" from ").append(filename).append(": ").append(underlying);
    return DiskError(Code::decode, isMissing, text);
}

DiskError DiskError::encode(std::string_view filename, std::string_view valueDescription, std::string_view underlying) {
    std::string text = "Could not encode ";
    text.append(valueDescription).append(" to ").append(filename).append(": ").append(underlying);
    return DiskError(Code::encode, false, text);
}

Disk::Disk(fs::path root, std::string nameSpace) : root(std::move(root)), nameSpace(std::move(nameSpace)) {}

fs::path Disk::folderFor(const fs::path& applicationSupport, const std::optional<std::string>& bundleIdentifier) {
    return applicationSupport / bundleIdentifier.value_or("plomb.Unknown");
}

fs::path Disk::folder() const {
    std::string parts = nameSpace;
    replaceAll(parts, "://", "…");
    replaceAll(parts, std::string_view("\0", 1), "%00");
    fs::path folder = root;
    for (std::size_t begin = 0; begin < parts.size();) {
        const std::size_t end = std::min(parts.find('/', begin), parts.size());
        std::string part = parts.substr(begin, end - begin);
        if (part == "." || part == "..") replaceAll(part, ".", "%2E");
        if (!part.empty()) folder /= part;
        begin = end + 1;
    }
    return folder;
}

fs::path Disk::fileName(const std::string& stem) {
    std::string name = stem;
    replaceAll(name, "/", "%2F");
    replaceAll(name, std::string_view("\0", 1), "%00");
    return name + ".json";
}

JsonInput Disk::read(const fs::path& path) {
    const File::Opened opened = File::open(path, maxFileSize);
    JsonInput input;
    input.resize(opened.size);
    const std::span room(reinterpret_cast<std::uint8_t*>(input.data()), opened.size);
    const auto length = File::readInto(opened.file.get(), room);
    if (!length) fail(errno, "read");
    if (*length < opened.size) input.resize(*length);  // cut short since we asked for its size
    return input;
}

void Disk::write(const fs::path& path, ByteView bytes) {
    const fs::path folder = path.parent_path();
    const std::string begin = "." + path.filename().native() + ".";
    static constexpr std::string_view end = ".tmp";

    makeFolders(folder);
    removeLeftovers(folder, begin, end);
    // The process's number in the name keeps two processes apart, and tells which leftovers are a dead one's.
    File::replace(path, bytes,
                  {.durability = File::Durability::crash,
                   .temporaryName = begin + std::to_string(::getpid()) + std::string(end)});
}

void Disk::removeFile(const fs::path& path) {
    if (::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR) return;
    throw fs::filesystem_error("cannot remove", path, std::error_code(errno, std::generic_category()));
}

std::optional<fs::path> Disk::setAsideFile(const fs::path& path) {
    constexpr int mostNames = 1000;
    for (int number = 1; number <= mostNames; ++number) {
        fs::path name = path.native() + ".damaged" + (number == 1 ? "" : "." + std::to_string(number));
        std::error_code failure;
        if (fs::symlink_status(name, failure).type() != fs::file_type::not_found) continue;
        fs::rename(path, name, failure);
        if (failure) return {};
        return name;
    }
    return {};
}

std::string Disk::shortened(std::string description) {
    constexpr std::size_t limit = 200;
    std::size_t characters = 0;
    for (std::size_t i = 0; i < description.size(); ++i) {
        const bool isBegin = (static_cast<unsigned char>(description[i]) & 0xC0) != 0x80;
        if (isBegin && ++characters > limit) {
            description.resize(i);
            return description + "…";
        }
    }
    return description;
}
