#include "PlatformUpdate/FetchedFile.h"

#include "PlatformUpdate/NetworkFetch.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

FetchError failure(const char* what) { return FetchError(std::string(what) + ": " + std::strerror(errno)); }

}  // namespace

FetchedFile::FetchedFile(const std::filesystem::path& path)
    : file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (!file) throw failure("the file can't be made");
}

void FetchedFile::write(ByteView bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw failure("the file can't be written");
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

void FetchedFile::close() {
    // Some file systems report only here that there was no room.
    if (::close(file.release()) != 0) throw failure("the file can't be written");
}
