#include "PlatformCore/MemoryFolder.h"

#include <cstdlib>
#include <linux/magic.h>
#include <string>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

bool isInMemory(const fs::path& place) {
    struct statfs system {};
    if (::statfs(place.c_str(), &system) != 0) return false;
    return system.f_type == TMPFS_MAGIC || system.f_type == RAMFS_MAGIC;
}

}  // namespace

std::vector<fs::path> MemoryFolder::places() {
    std::vector<fs::path> places;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    // The XDG Base Directory Specification demands that a relative path is ignored.
    if (runtime != nullptr && *runtime == '/') places.emplace_back(runtime);
    places.emplace_back("/dev/shm");
    return places;
}

MemoryFolder::MemoryFolder(const std::vector<fs::path>& places) {
    for (const fs::path& place : places) {
        if (!isInMemory(place)) continue;
        std::string name = (place / "vimble-XXXXXX").native();
        if (::mkdtemp(name.data()) == nullptr) continue;  // mode 0700
        folder = name;
        return;
    }
    throw MemoryFolderError("There is no folder in memory: neither $XDG_RUNTIME_DIR nor /dev/shm is one.");
}

MemoryFolder::~MemoryFolder() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}
