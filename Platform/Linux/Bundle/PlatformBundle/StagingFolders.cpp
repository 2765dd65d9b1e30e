#include "PlatformBundle/StagingFolders.h"

#include "PlatformBundle/FileTree.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr char folderName[] = "UpdateKit";
constexpr int attempts = 20;

std::system_error failure(const fs::path& path) {
    return std::system_error(errno, std::generic_category(), path.native());
}

/// Makes a folder and those above it, for this user alone. Does nothing if it is there.
void makeFolder(const fs::path& path) {
    if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return;
    if (errno != ENOENT || path == path.parent_path()) throw failure(path);
    makeFolder(path.parent_path());
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) throw failure(path);
}

FileDescriptor openFolder(const fs::path& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Whether the open folder is still the one at the path: it may have been removed, and made anew, before it was
/// locked.
bool isStillThere(const FileDescriptor& folder, const fs::path& path) {
    struct stat open {};
    struct stat there {};
    return fstat(folder.get(), &open) == 0 && lstat(path.c_str(), &there) == 0 && open.st_dev == there.st_dev &&
           open.st_ino == there.st_ino;
}

/// A UUID of random bits (RFC 4122, version 4).
std::string newUuid() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), "getrandom");
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

/// Removes a folder after giving it another name, so that an installer that looks for something in it finds all of it
/// or nothing.
void removeQuietly(const fs::path& path) {
    try {
        const fs::path condemned = path.native() + ".old";
        const bool isMoved = ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, condemned.c_str(), RENAME_NOREPLACE) == 0;
        FileTree::remove(isMoved ? condemned : path);
    } catch (const std::system_error&) {
        // The next program that starts tries again.
    }
}

}  // namespace

StagingFolders::StagingFolders(Path temporaryFolder) : top(temporaryFolder / folderName) {}

void StagingFolders::enter() {
    if (topLock && isStillThere(topLock, top)) return;
    for (int i = 0; i < attempts; ++i) {
        // Whoever cleans up the user's caches may have removed the temporary folder too.
        makeFolder(top);
        FileDescriptor folder = openFolder(top);
        if (!folder) {
            if (errno == ENOENT) continue;
            throw failure(top);
        }
        if (flock(folder.get(), LOCK_SH) != 0) throw failure(top);
        if (!isStillThere(folder, top)) continue;
        topLock = std::move(folder);
        return;
    }
    throw std::system_error(ENOENT, std::generic_category(), top.native());
}

StagingFolders::Path StagingFolders::make() {
    enter();
    for (int i = 0; i < attempts; ++i) {
        Path path = top / newUuid();
        if (mkdir(path.c_str(), 0700) != 0) throw failure(path);
        FileDescriptor folder = openFolder(path);
        // Before the lock, another program may have taken the folder for a leftover.
        if (!folder || flock(folder.get(), LOCK_SH | LOCK_NB) != 0 || !isStillThere(folder, path)) continue;
        locks.emplace(path, std::move(folder));
        return path;
    }
    throw std::system_error(ENOENT, std::generic_category(), top.native());
}

void StagingFolders::remove(const Path& folder) {
    removeQuietly(folder);
    locks.erase(folder);
}

void StagingFolders::removeLeftovers() {
    std::error_code error;
    std::vector<Path> paths;
    for (fs::directory_iterator entry(top, error); !error && entry != fs::directory_iterator(); entry.increment(error))
        paths.push_back(entry->path());
    for (const Path& path : paths) {
        const FileDescriptor folder = openFolder(path);
        // Remove what is no folder without asking for a lock, since none of our programs puts a file here.
        if (folder && flock(folder.get(), LOCK_EX | LOCK_NB) != 0) continue;
        removeQuietly(path);
    }
}

std::shared_ptr<void> StagingFolders::hold(const Path& update) {
    auto locks = std::make_shared<std::vector<FileDescriptor>>();
    // Folders of this name may also lie in the archive, or above our folder. Lock those too, since it does no harm.
    for (Path each = update; each.has_relative_path(); each = each.parent_path()) {
        if (each.parent_path().filename() != folderName) continue;
        for (const Path& path : {each.parent_path(), each}) {
            FileDescriptor folder = openFolder(path);
            if (!folder) continue;
            // Only a program that is removing the folder has a lock that excludes others.
            if (flock(folder.get(), LOCK_SH | LOCK_NB) != 0 || !isStillThere(folder, path))
                throw std::runtime_error(path.native() + " is being removed by another program");
            locks->push_back(std::move(folder));
        }
    }
    return locks;
}
