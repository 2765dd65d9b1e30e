#include "PlatformBundle/RegisteredFile.h"

#include "Base/FileDescriptor.h"
#include "Text/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t maxSize = std::size_t(1) << 20;  // bytes

std::runtime_error failure(const fs::path& path, int error) {
    return std::runtime_error(path.native() + ": " + std::strerror(error));
}

/// Nothing if the file can't be read, or is longer than the limit; then `errno` says why.
std::optional<std::string> contentsOf(const fs::path& path, std::size_t limit) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return std::nullopt;
    }
    std::string text(limit + 1, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t count = ::read(file.get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    if (size > limit) {
        errno = EFBIG;
        return std::nullopt;
    }
    text.resize(size);
    return text;
}

/// @return 0, or the error's number
int writeAll(int file, std::string_view contents) {
    while (!contents.empty()) {
        const ssize_t count = ::write(file, contents.data(), contents.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        contents.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

}  // namespace

bool RegisteredFile::update(const fs::path& path, std::string_view contents) {
    if (contentsOf(path, contents.size()) == contents) return false;
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) throw failure(path.parent_path(), error.value());
    // Give it a hidden name: desktops take every other file in these folders for an entry or an icon.
    std::string beside = path.parent_path() / ("." + path.filename().native() + ".XXXXXX");
    FileDescriptor file(::mkostemp(beside.data(), O_CLOEXEC));
    if (!file) throw failure(path, errno);
    int problem = writeAll(file.get(), contents);
    if (problem == 0 && ::fchmod(file.get(), 0644) != 0) problem = errno;
    if (problem == 0 && ::rename(beside.c_str(), path.c_str()) != 0) problem = errno;
    if (problem == 0) return true;
    ::unlink(beside.c_str());
    throw failure(path, problem);
}

std::string RegisteredFile::read(const fs::path& path) {
    auto contents = contentsOf(path, maxSize);
    if (!contents) throw failure(path, errno);
    return std::move(*contents);
}

void RegisteredFile::requirePlain(const fs::path& path) {
    const std::string& text = path.native();
    const bool hasControls =
        std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
    if (hasControls || !Text::isUtf8(text))
        throw std::runtime_error(text + ": the desktop can't be told of a place with such a name");
}
