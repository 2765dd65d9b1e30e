#include "PlatformUpdate/FetchedFile.h"

#include "Base/File.h"
#include "PlatformUpdate/NetworkFetch.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>

namespace {

FetchError failure(const char* what) { return FetchError(std::string(what) + ": " + std::strerror(errno)); }

}  // namespace

FetchedFile::FetchedFile(const std::filesystem::path& path)
    : file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (!file) throw failure("the file can't be made");
}

void FetchedFile::write(ByteView bytes) {
    if (!File::writeAll(file.get(), bytes)) throw failure("the file can't be written");
}

void FetchedFile::close() {
    // Some file systems report only here that there was no room.
    if (!file.close()) throw failure("the file can't be written");
}
