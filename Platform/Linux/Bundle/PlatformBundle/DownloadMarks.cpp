#include "PlatformBundle/DownloadMarks.h"

#include <sys/xattr.h>
#include <system_error>

namespace {

void removeMarksOf(const std::filesystem::path& path) {
    for (const char* mark : {"user.xdg.origin.url", "user.xdg.referrer.url"}) (void)::lremovexattr(path.c_str(), mark);
}

}  // namespace

void removeDownloadMarks(const std::filesystem::path& path) {
    using Walk = std::filesystem::recursive_directory_iterator;
    removeMarksOf(path);
    std::error_code error;
    if (!std::filesystem::is_directory(std::filesystem::symlink_status(path, error))) return;
    constexpr auto options = std::filesystem::directory_options::skip_permission_denied;
    for (Walk walk(path, options, error); !error && walk != Walk(); walk.increment(error)) removeMarksOf(walk->path());
}
