#include "PlatformBundle/FileTree.h"

#include "Base/Bytes.h"
#include "Base/File.h"
#include "Base/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

/// Deeper folders are refused: each level holds a descriptor.
constexpr int maxDepth = 200;

[[noreturn]] void fail(int error, const char* what, const std::string& name) {
    throw std::system_error(error, std::system_category(), std::string(what) + " " + name);
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

/// The names in an open folder, without "." and "..".
std::vector<std::string> namesIn(int folder, const std::string& name) {
    FileDescriptor own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, DirectoryCloser> directory(own ? ::fdopendir(own.get()) : nullptr);
    if (!directory) fail(errno, "read", name);
    static_cast<void>(own.release());  // the list closes it
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::string each = entry->d_name;
        if (each != "." && each != "..") names.push_back(each);
        errno = 0;
    }
    if (errno != 0) fail(errno, "read", name);
    return names;
}

FileDescriptor openFolder(int parent, const std::string& name) {
    return FileDescriptor(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Lets the owner into a folder, without following a link.
void openUp(int parent, const std::string& name) {
    const FileDescriptor entry(::openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    // The mode can't be changed by a descriptor of this kind, but by its name in /proc, which leads to the folder
    // that was opened whatever lies under `name` now.
    if (entry) (void)::chmod(("/proc/self/fd/" + std::to_string(entry.get())).c_str(), 0700);
}

void removeAt(int parent, const std::string& name, int depth) {
    if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return;
    if (errno != EISDIR) fail(errno, "remove", name);
    if (depth > maxDepth) fail(ELOOP, "remove", name);
    FileDescriptor folder = openFolder(parent, name);
    struct stat status {};
    const bool isClosed = !folder || ::fstat(folder.get(), &status) != 0 || (status.st_mode & 0700) != 0700;
    if (isClosed) {
        openUp(parent, name);
        folder = openFolder(parent, name);
    }
    if (!folder) fail(errno, "remove", name);
    for (const auto& each : namesIn(folder.get(), name)) removeAt(folder.get(), each, depth + 1);
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) fail(errno, "remove", name);
}

void copyContents(int from, int to, const std::string& name) {
    std::array<std::uint8_t, 128 * 1024> buffer;
    for (;;) {
        const ssize_t count = ::read(from, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(errno, "read", name);
        if (count == 0) return;
        if (!File::writeAll(to, ByteView(buffer).first(static_cast<std::size_t>(count)))) fail(errno, "write", name);
    }
}

/// The permissions that a copy gets.
mode_t permissions(const struct stat& status) { return status.st_mode & 01777; }

struct Copying {
    int sourceParent;
    std::string source;
    int destinationParent;
    std::string destination;
};

void copyFile(const Copying& what, const struct stat& status) {
    const FileDescriptor from(::openat(what.sourceParent, what.source.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!from) fail(errno, "read", what.source);
    FileDescriptor to(::openat(what.destinationParent, what.destination.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!to) fail(errno, "make", what.destination);
    copyContents(from.get(), to.get(), what.source);
    const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
    (void)::futimens(to.get(), times.data());
    if (::fchmod(to.get(), permissions(status)) != 0) fail(errno, "make", what.destination);
    // Some file systems report only now that the disk is full.
    if (!to.close()) fail(errno, "write", what.destination);
}

void copyLink(const Copying& what) {
    std::array<char, 4097> target;
    const ssize_t length = ::readlinkat(what.sourceParent, what.source.c_str(), target.data(), target.size() - 1);
    if (length < 0) fail(errno, "read", what.source);
    target[static_cast<std::size_t>(length)] = '\0';
    if (::symlinkat(target.data(), what.destinationParent, what.destination.c_str()) != 0)
        fail(errno, "make", what.destination);
}

void copyAt(const Copying& what, int depth) {
    struct stat status {};
    if (::fstatat(what.sourceParent, what.source.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        fail(errno, "read", what.source);
    if (S_ISREG(status.st_mode)) return copyFile(what, status);
    if (S_ISLNK(status.st_mode)) return copyLink(what);
    if (!S_ISDIR(status.st_mode)) fail(EINVAL, "copy", what.source);
    if (depth > maxDepth) fail(ELOOP, "copy", what.source);

    const FileDescriptor from = openFolder(what.sourceParent, what.source);
    if (!from) fail(errno, "read", what.source);
    if (::mkdirat(what.destinationParent, what.destination.c_str(), 0700) != 0) fail(errno, "make", what.destination);
    const FileDescriptor to = openFolder(what.destinationParent, what.destination);
    if (!to) fail(errno, "make", what.destination);
    for (const auto& name : namesIn(from.get(), what.source)) copyAt({from.get(), name, to.get(), name}, depth + 1);
    if (::fchmod(to.get(), permissions(status)) != 0) fail(errno, "make", what.destination);
}

void flushFile(int file, const std::string& name) {
    // Some file systems refuse this, since they have nothing to wait for, or no disk.
    if (::fsync(file) != 0 && errno != EINVAL && errno != ENOTSUP) fail(errno, "write", name);
}

void flushAt(int parent, const std::string& name, const std::stop_token& stop, int depth) {
    if (stop.stop_requested()) return;
    // These flags neither follow a link nor wait at a pipe.
    const FileDescriptor entry = File::openAt(parent, name);
    if (!entry) {
        if (errno == ELOOP || errno == EACCES || errno == ENXIO) return;
        fail(errno, "read", name);
    }
    struct stat status {};
    if (::fstat(entry.get(), &status) != 0) fail(errno, "read", name);
    if (S_ISDIR(status.st_mode)) {
        if (depth > maxDepth) fail(ELOOP, "write", name);
        for (const auto& each : namesIn(entry.get(), name)) flushAt(entry.get(), each, stop, depth + 1);
    }
    if (S_ISDIR(status.st_mode) || S_ISREG(status.st_mode)) flushFile(entry.get(), name);
}

}  // namespace

void FileTree::copy(const std::filesystem::path& source, const std::filesystem::path& destination) {
    // Look before the copy begins: a failed copy is removed below, but what lies there already is not ours.
    struct stat status {};
    if (::lstat(destination.c_str(), &status) == 0) fail(EEXIST, "make", destination.native());
    try {
        copyAt({AT_FDCWD, source.native(), AT_FDCWD, destination.native()}, 0);
    } catch (const std::system_error&) {
        try {
            FileTree::remove(destination);
        } catch (const std::system_error&) {
            // Report the first error, which says why.
        }
        throw;
    }
}

void FileTree::remove(const std::filesystem::path& path) { removeAt(AT_FDCWD, path.native(), 0); }

void FileTree::flush(const std::filesystem::path& path, const std::stop_token& stop) {
    flushAt(AT_FDCWD, path.native(), stop, 0);
}
