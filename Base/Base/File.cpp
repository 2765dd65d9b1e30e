#include "Base/File.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr mode_t madePermissions = 0600;
constexpr std::size_t usualSize = 4095;  // bytes; for files that say that they are empty, as those of /proc do
constexpr int mostLinks = 40;            // as many as the kernel follows

[[noreturn]] void fail(int error, const fs::path& path) {
    throw std::system_error(error, std::generic_category(), path.native());
}

/// Removes a file's name when it is destroyed, unless it was released.
class Leftover {
public:
    explicit Leftover(const std::string& path) : path(path) {}
    ~Leftover() {
        if (isHeld) ::unlink(path.c_str());
    }
    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;
    void release() { isHeld = false; }

private:
    const std::string& path;
    bool isHeld = true;
};

/// Makes a file for its owner alone, so that no moment is left in which others could open it.
/// @param path  six X at its end are replaced
FileDescriptor make(std::string& path) {
    if (path.ends_with("XXXXXX")) return FileDescriptor(::mkostemp(path.data(), O_CLOEXEC));
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    FileDescriptor file(::open(path.c_str(), flags, madePermissions));
    // Do not write into a file that exists: it may have other permissions, or be open elsewhere.
    if (file || errno != EEXIST || ::unlink(path.c_str()) != 0) return file;
    return FileDescriptor(::open(path.c_str(), flags, madePermissions));
}

/// Brings a new name to the medium: without this, the old file could be back after a failure of the power.
void flushFolder(const fs::path& folder) {
    const FileDescriptor opened(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened) ::fsync(opened.get());
}

FileDescriptor openToRead(const fs::path& path, File::Links links) {
    const int noLink = links == File::Links::refuse ? O_NOFOLLOW : 0;
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | noLink));
}

/// @return its length
std::size_t checkOrdinary(const FileDescriptor& file, const fs::path& path, std::size_t limit) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) fail(errno, path);
    if (S_ISDIR(status.st_mode)) fail(EISDIR, path);
    if (!S_ISREG(status.st_mode)) fail(EINVAL, path);
    if (static_cast<std::uintmax_t>(status.st_size) > limit) fail(EFBIG, path);
    return static_cast<std::size_t>(status.st_size);
}

Bytes contentsOf(const FileDescriptor& file, const fs::path& path, std::size_t limit) {
    const std::size_t size = checkOrdinary(file, path, limit);
    Bytes contents;
    std::size_t length = 0;
    // Ask for one byte more than expected, to see whether the file ends there.
    std::size_t room = std::min(std::max(size, usualSize), limit) + 1;
    for (; length == contents.size(); room = std::min(2 * room, limit + 1)) {
        if (length > limit) fail(EFBIG, path);
        contents.resize(room);
        const auto count = File::readInto(file.get(), std::span(contents).subspan(length));
        if (!count) fail(errno, path);
        length += *count;
    }
    contents.resize(length);
    return contents;
}

}  // namespace

void File::replace(const fs::path& path, ByteView contents, const Replacement& how) {
    const std::string name = how.temporaryName.empty() ? "." + path.filename().native() + ".XXXXXX" : how.temporaryName;
    std::string beside = (path.parent_path() / name).native();
    FileDescriptor file = make(beside);
    if (!file) fail(errno, path);
    Leftover leftover(beside);
    if (!writeAll(file.get(), contents)) fail(errno, path);
    if (how.permissions != madePermissions && ::fchmod(file.get(), how.permissions) != 0) fail(errno, path);
    if (how.durability == Durability::powerLoss && ::fsync(file.get()) != 0) fail(errno, path);
    if (!file.close()) fail(errno, path);
    if (::rename(beside.c_str(), path.c_str()) != 0) fail(errno, path);
    leftover.release();
    if (how.durability == Durability::powerLoss) flushFolder(path.parent_path());
}

fs::path File::followed(const fs::path& path) {
    fs::path target = path;
    std::error_code error;
    for (int links = 0; fs::is_symlink(fs::symlink_status(target, error)); ++links) {
        if (links == mostLinks) fail(ELOOP, path);
        const fs::path next = fs::read_symlink(target, error);
        if (error) fail(error.value(), path);
        target = target.parent_path() / next;  // `next` alone if it is absolute
    }
    return target;
}

File::Opened File::open(const fs::path& path, std::size_t limit, Links links) {
    FileDescriptor file = openToRead(path, links);
    if (!file) fail(errno, path);
    const std::size_t size = checkOrdinary(file, path, limit);
    return {std::move(file), size};
}

Bytes File::read(const fs::path& path, std::size_t limit, Links links) {
    const FileDescriptor file = openToRead(path, links);
    if (!file) fail(errno, path);
    return contentsOf(file, path, limit);
}

std::optional<Bytes> File::readIfThere(const fs::path& path, std::size_t limit, Links links) {
    const FileDescriptor file = openToRead(path, links);
    if (!file && errno == ENOENT) return std::nullopt;
    if (!file) fail(errno, path);
    return contentsOf(file, path, limit);
}

FileDescriptor File::openAt(int folder, const std::string& name, int flags) {
    return FileDescriptor(
        ::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | flags));
}

std::optional<std::size_t> File::readInto(int file, std::span<std::uint8_t> room) {
    std::size_t length = 0;
    while (length < room.size()) {
        const ssize_t count = ::read(file, room.data() + length, room.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
    }
    return length;
}

bool File::writeAll(int file, ByteView contents) {
    while (!contents.empty()) {
        const ssize_t count = ::write(file, contents.data(), contents.size());
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) errno = EIO;  // a write of nothing would be repeated for ever
        if (count <= 0) return false;
        contents = contents.subspan(static_cast<std::size_t>(count));
    }
    return true;
}
