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

/// With those above it, for this user alone. One that is there is fine.
void makeFolder(const fs::path& path) {
    if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return;
    if (errno != ENOENT || path == path.parent_path()) throw failure(path);
    makeFolder(path.parent_path());
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) throw failure(path);
}

FileDescriptor openFolder(const fs::path& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Whether what is open is what lies at the path: it may have been removed, and made anew, before it was locked.
bool isStillThere(const FileDescriptor& folder, const fs::path& path) {
    struct stat open {};
    struct stat there {};
    return fstat(folder.get(), &open) == 0 && lstat(path.c_str(), &there) == 0 && open.st_dev == there.st_dev &&
           open.st_ino == there.st_ino;
}

/// Of random bits, as RFC 4122 has it (version 4).
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

/// Under another name first: an installer that looks for what lies in it then finds all of it, or nothing.
void removeQuietly(const fs::path& path) {
    try {
        const fs::path condemned = path.native() + ".old";
        const bool isMoved = ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, condemned.c_str(), RENAME_NOREPLACE) == 0;
        FileTree::remove(isMoved ? condemned : path);
    } catch (const std::system_error&) {
        // The next program to start tries again.
    }
}

}  // namespace

StagingFolders::StagingFolders(Path temporaryFolder) : top(temporaryFolder / folderName) {}

void StagingFolders::enter() {
    if (topLock && isStillThere(topLock, top)) return;
    for (int i = 0; i < attempts; ++i) {
        // Whoever cleans up the user's caches may have taken the temporary folder too.
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
        // Another program may have taken it for a leftover in the moment between.
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
        // What is no folder is nobody's: a lock can't be had on it, and nothing of ours is a file.
        if (folder && flock(folder.get(), LOCK_EX | LOCK_NB) != 0) continue;
        removeQuietly(path);
    }
}

std::shared_ptr<void> StagingFolders::hold(const Path& update) {
    auto locks = std::make_shared<std::vector<FileDescriptor>>();
    // An archive may have a folder of that name in it, and so may the way to ours: all of them do no harm.
    for (Path each = update; each.has_relative_path(); each = each.parent_path()) {
        if (each.parent_path().filename() != folderName) continue;
        for (const Path& path : {each.parent_path(), each}) {
            FileDescriptor folder = openFolder(path);
            if (!folder) continue;
            // Only who is removing it has it for itself.
            if (flock(folder.get(), LOCK_SH | LOCK_NB) != 0 || !isStillThere(folder, path))
                throw std::runtime_error(path.native() + " is being removed by another program");
            locks->push_back(std::move(folder));
        }
    }
    return locks;
}
