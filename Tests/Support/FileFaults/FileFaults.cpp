#include "FileFaults/FileFaults.h"

#include "Base/Check.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace {

thread_local FileFaults* watching = nullptr;

/// @return whether the call is to end at once, with `errno` set
bool isFailing(std::string_view call) {
    const int error = watching ? watching->enter(call) : 0;
    if (error != 0) errno = error;
    return error != 0;
}

/// @return whether a signal comes before anything could be read or written
bool isInterrupted() {
    if (!watching || !watching->interruptsNow()) return false;
    errno = EINTR;
    return true;
}

std::size_t allowed(std::size_t size) {
    return watching && watching->kind() == FileFaults::Kind::piecemeal ? std::min<std::size_t>(size, 1) : size;
}

}  // namespace

FileFaults::FileFaults(Kind kind) : _kind(kind) {
    check(watching == nullptr, "the calls of this thread are being watched already");
    watching = this;
}

FileFaults::FileFaults(int failing, int error) : _kind(Kind::failing), failing(failing), error(error) {
    check(watching == nullptr, "the calls of this thread are being watched already");
    watching = this;
}

FileFaults::~FileFaults() { watching = nullptr; }

int FileFaults::enter(std::string_view call) {
    _calls.push_back(call);
    return static_cast<int>(_calls.size()) == failing ? error : 0;
}

// The linker has calls of `open` lead to `__wrap_open`, and those of `__real_open` to the system's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    return isFailing("open") ? -1 : __real_open(path, flags, mode);
}

int __real_openat(int folder, const char* path, int flags, ...);
int __wrap_openat(int folder, const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list rest;
        va_start(rest, flags);
        mode = va_arg(rest, mode_t);
        va_end(rest);
    }
    return isFailing("openat") ? -1 : __real_openat(folder, path, flags, mode);
}

int __real_mkostemp(char* pattern, int flags);
int __wrap_mkostemp(char* pattern, int flags) { return isFailing("mkostemp") ? -1 : __real_mkostemp(pattern, flags); }

int __real_fstat(int file, struct stat* status);
int __wrap_fstat(int file, struct stat* status) { return isFailing("fstat") ? -1 : __real_fstat(file, status); }

ssize_t __real_read(int file, void* bytes, std::size_t size);
ssize_t __wrap_read(int file, void* bytes, std::size_t size) {
    if (isFailing("read") || isInterrupted()) return -1;
    return __real_read(file, bytes, allowed(size));
}

ssize_t __real_write(int file, const void* bytes, std::size_t size);
ssize_t __wrap_write(int file, const void* bytes, std::size_t size) {
    if (isFailing("write") || isInterrupted()) return -1;
    if (watching && watching->kind() == FileFaults::Kind::stuck) return 0;
    return __real_write(file, bytes, allowed(size));
}

int __real_fchmod(int file, mode_t mode);
int __wrap_fchmod(int file, mode_t mode) { return isFailing("fchmod") ? -1 : __real_fchmod(file, mode); }

int __real_fsync(int file);
int __wrap_fsync(int file) { return isFailing("fsync") ? -1 : __real_fsync(file); }

int __real_close(int file);
int __wrap_close(int file) {
    const int result = __real_close(file);
    return isFailing("close") ? -1 : result;
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) { return isFailing("rename") ? -1 : __real_rename(from, to); }
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
