#include "RelayShell/FileLock.h"

#include "Base/Check.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

FileLockError failure(const std::filesystem::path& file, const char* what) {
    return FileLockError("the file " + file.string() + " can't be " + what + ": " + std::strerror(errno));
}

}  // namespace

FileLock::FileLock(std::filesystem::path place) : file(std::move(place)) {
    std::error_code error;
    if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path(), error);
    descriptor = FileDescriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!descriptor) throw failure(file, "opened");
}

bool FileLock::tryTake() { return ::flock(descriptor.get(), LOCK_EX | LOCK_NB) == 0; }

void FileLock::take() {
    while (::flock(descriptor.get(), LOCK_EX) != 0) check(errno == EINTR, "A file lock can't be waited for.");
}

void FileLock::giveBack() { ::flock(descriptor.get(), LOCK_UN); }

std::string FileLock::text() const {
    std::string text(1000, '\0');
    const auto count = ::pread(descriptor.get(), text.data(), text.size(), 0);
    if (count < 0) throw failure(file, "read");
    text.resize(static_cast<std::size_t>(count));
    return text;
}

void FileLock::setText(const std::string& text) {
    if (::ftruncate(descriptor.get(), 0) != 0 ||
        ::pwrite(descriptor.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        throw failure(file, "written");
}
