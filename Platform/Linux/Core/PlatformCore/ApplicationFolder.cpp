#include "PlatformCore/ApplicationFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr char folderName[] = "zorvane.Vimble";
constexpr Seconds leftoverAge = 24 * 60 * 60;
constexpr int deepestLeftover = 32;  // how many levels are searched for the last change

ApplicationFolderError failure(const fs::path& path, std::string_view what, int error) {
    return ApplicationFolderError(path.string() + ": " + std::string(what) + ": " + std::strerror(error));
}

/// A folder that the environment names; a relative path is ignored (XDG Base Directory Specification).
fs::path baseFolder(const char* variable, const char* inHome) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value == '/') return value;
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home != '/') {
        const passwd* user = getpwuid(geteuid());
        home = user != nullptr ? user->pw_dir : nullptr;
    }
    if (home == nullptr || *home != '/') throw ApplicationFolderError("There is no home folder: HOME is not set");
    return fs::path(home) / inHome;
}

/// Makes a folder and those above it, all for this user alone.
void makeFolder(const fs::path& path) {
    if (mkdir(path.c_str(), 0700) == 0) return;
    if (errno == ENOENT && path.has_parent_path() && path.parent_path() != path) {
        makeFolder(path.parent_path());
        if (mkdir(path.c_str(), 0700) == 0) return;
    }
    const int error = errno;
    struct stat status {};
    if (error == EEXIST && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return;
    throw failure(path, "the folder can't be made", error == EEXIST ? ENOTDIR : error);
}

/// Refuses what is no folder of this user's, and takes the rights of others away from one that is.
void claimPrivateFolder(const fs::path& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) throw failure(path, "the folder can't be entered", errno);
    if (!S_ISDIR(status.st_mode)) throw failure(path, "not a folder", ENOTDIR);
    if (status.st_uid != geteuid())
        throw ApplicationFolderError(path.string() + ": the folder belongs to another user");
    if ((status.st_mode & 07777) != 0700 && chmod(path.c_str(), 0700) != 0)
        throw failure(path, "the folder can't be made private", errno);
}

/// When a file, or anything in a folder, was last changed; far in the future if that can't be found out, so
/// that the file is kept.
double lastChange(const fs::path& path, int depth) {
    constexpr double unknown = 1e18;
    struct stat status {};
    if (depth > deepestLeftover || lstat(path.c_str(), &status) != 0) return unknown;
    double latest = static_cast<double>(status.st_mtim.tv_sec);
    if (!S_ISDIR(status.st_mode)) return latest;
    std::error_code error;
    fs::directory_iterator entry(path, error);
    if (error) return unknown;
    for (; entry != fs::directory_iterator() && !error; entry.increment(error))
        latest = std::max(latest, lastChange(entry->path(), depth + 1));
    return error ? unknown : latest;
}

/// Whether a program has locked the folder against others.
bool isInUse(const fs::path& path) {
    const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return folder && flock(folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

/// Removes old leftovers. One that can't be removed is left for a later start, since it does no harm.
void removeLeftovers(const fs::path& folder, Date now) {
    std::error_code error;
    std::vector<fs::path> old;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error))
        if (now.toUnix() - lastChange(entry->path(), 0) > leftoverAge && !isInUse(entry->path()))
            old.push_back(entry->path());
    for (const fs::path& path : old) fs::remove_all(path, error);
}

}  // namespace

ApplicationFolderInUse::ApplicationFolderInUse(const fs::path& folder, std::string holder, std::optional<int> holderId)
    : ApplicationFolderError(folder.string() + " is in use by " + (holder.empty() ? "another program" : holder) +
                             (holderId ? " (process " + std::to_string(*holderId) + ")" : "")),
      program(std::move(holder)),
      processId(holderId) {}

ApplicationFolder::ApplicationFolder(const std::optional<fs::path>& dataDir, const std::string& program, Date now)
    : folder(fs::absolute(place(dataDir)).lexically_normal()),
      temporaryFolder(baseFolder("XDG_CACHE_HOME", ".cache") / folderName / "tmp") {
    if (!folder.has_filename()) folder = folder.parent_path();  // "DIR/" means "DIR"
    makeFolder(folder);
    makeFolder(temporaryFolder);
    claimPrivateFolder(temporaryFolder);
    lock(program);
    removeLeftovers(temporaryFolder, now);
}

fs::path ApplicationFolder::place(const std::optional<fs::path>& dataDir) {
    return dataDir ? *dataDir : baseFolder("XDG_DATA_HOME", ".local/share") / folderName;
}

void ApplicationFolder::lock(const std::string& program) {
    const fs::path path = folder / ".lock";
    FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) throw failure(path, "the lock can't be opened", errno);
    int result = 0;
    do result = flock(file.get(), LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    if (result != 0) {
        const int error = errno;
        std::array<char, 256> buffer{};
        const ssize_t length = pread(file.get(), buffer.data(), buffer.size(), 0);
        if (error != EWOULDBLOCK) throw failure(path, "the lock can't be taken", error);
        std::string_view text(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        text = text.substr(0, text.find('\n'));
        int processId = 0;
        const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), processId);
        if (problem != std::errc()) throw ApplicationFolderInUse(folder, "", std::nullopt);
        text.remove_prefix(std::min(static_cast<std::size_t>(end - text.data()) + 1, text.size()));
        throw ApplicationFolderInUse(folder, std::string(text), processId);
    }
    // The text only tells people who holds the lock, so go on if it can't be written.
    const std::string text = std::to_string(getpid()) + " " + program + "\n";
    if (ftruncate(file.get(), 0) == 0) static_cast<void>(!pwrite(file.get(), text.data(), text.size(), 0));
    lockFile = std::move(file);
}
