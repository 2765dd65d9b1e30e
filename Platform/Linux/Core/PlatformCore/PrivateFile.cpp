#include "PlatformCore/PrivateFile.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(int error, const fs::path& path) {
    throw std::system_error(error, std::generic_category(), path.native());
}

int writeAll(int file, ByteView contents) {
    while (!contents.empty()) {
        const ssize_t written = ::write(file, contents.data(), contents.size());
        if (written >= 0)
            contents = contents.subspan(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return errno;
    }
    return ::fsync(file) == 0 ? 0 : errno;
}

/// Where a path leads to in the end, whether something is there or not.
fs::path targetOf(const fs::path& path) {
    constexpr int mostLinks = 40;  // as the system itself follows
    fs::path target = path;
    std::error_code error;
    for (int links = 0; fs::is_symlink(fs::symlink_status(target, error)); ++links) {
        if (links == mostLinks) fail(ELOOP, path);
        const fs::path next = fs::read_symlink(target, error);
        if (error) fail(error.value(), path);
        target = target.parent_path() / next;  // the latter alone if it is absolute
    }
    return target;
}

void syncFolder(const fs::path& folder) {
    const int directory = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return;
    ::fsync(directory);
    ::close(directory);
}

}  // namespace

void PrivateFile::replace(const fs::path& path, ByteView contents) {
    const fs::path target = targetOf(path);
    if (target.filename().empty()) fail(EISDIR, path);
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (fs::is_directory(status)) fail(EISDIR, path);
    if (fs::exists(status) && !fs::is_regular_file(status)) fail(EINVAL, path);

    // A name of its own length, since that of the file may be as long as the system allows.
    std::string beside = (target.parent_path() / ".vimble-XXXXXX").native();
    // Made with the mode 0600, so that no moment is left in which others could open it.
    const int file = ::mkostemp(beside.data(), O_CLOEXEC);
    if (file < 0) fail(errno, path);
    int failure = writeAll(file, contents);
    if (::close(file) != 0 && failure == 0) failure = errno;
    if (failure == 0 && ::rename(beside.c_str(), target.c_str()) != 0) failure = errno;
    if (failure != 0) {
        ::unlink(beside.c_str());
        fail(failure, path);
    }
    // Without this a machine that fails now could come up with the old file, or with none.
    syncFolder(target.parent_path());
}
