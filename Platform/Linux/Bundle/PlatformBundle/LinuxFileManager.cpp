#include "PlatformBundle/LinuxFileManager.h"

#include "PlatformBundle/FileTree.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

using Path = std::filesystem::path;

[[noreturn]] void fail(int error, const char* what, const Path& path) {
    throw std::system_error(error, std::system_category(), std::string(what) + " " + path.native());
}

Path parentOf(const Path& path) { return path.has_parent_path() ? path.parent_path() : Path("."); }

struct stat statusOf(const Path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) fail(errno, "look at", path);
    return status;
}

/// Renames unless something is at the destination. @return 0, or the error's number
int renameWithoutReplacing(const Path& source, const Path& destination) {
    if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, destination.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // The file system knows no such rename. Looking first is enough here: the folder is the user's own, and this
    // process has just moved away the bundle that lay at the destination.
    struct stat status {};
    if (::lstat(destination.c_str(), &status) == 0) return EEXIST;
    return ::rename(source.c_str(), destination.c_str()) == 0 ? 0 : errno;
}

Path copyBeside(const Path& source, const Path& destination) {
    const Path copy = parentOf(destination) / ("." + destination.filename().native() + ".incoming");
    FileTree::remove(copy);
    FileTree::copy(source, copy);
    try {
        // Flush here, since the old bundle is removed soon after the new one is at its place.
        FileTree::flush(copy);
    } catch (const std::system_error&) {
        FileTree::remove(copy);
        throw;
    }
    return copy;
}

}  // namespace

bool LinuxFileManager::exists(const Path& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

Path LinuxFileManager::prepareMove(const Path& source, const Path& destination) {
    const Path folder = parentOf(destination);
    if (::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) fail(errno, "write to", folder);
    return statusOf(source).st_dev == statusOf(folder / ".").st_dev ? source : copyBeside(source, destination);
}

void LinuxFileManager::move(const Path& source, const Path& destination) {
    int error = renameWithoutReplacing(source, destination);
    if (error == EXDEV) {
        struct stat status {};
        if (::lstat(destination.c_str(), &status) == 0) fail(EEXIST, "move to", destination);
        const Path copy = copyBeside(source, destination);
        error = renameWithoutReplacing(copy, destination);
        try {
            FileTree::remove(error == 0 ? source : copy);
        } catch (const std::system_error&) {
            // This changes nothing about whether the move is done.
        }
    }
    if (error != 0) fail(error, "move to", destination);
}

void LinuxFileManager::remove(const Path& path) { FileTree::remove(path); }
