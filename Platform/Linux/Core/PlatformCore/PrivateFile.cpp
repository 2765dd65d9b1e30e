#include "PlatformCore/PrivateFile.h"

#include "Base/File.h"

#include <system_error>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const std::error_code& error, const fs::path& path) {
    throw std::system_error(error, path.native());
}

}  // namespace

void PrivateFile::replace(const fs::path& path, ByteView contents) {
    const fs::path target = File::followed(path);
    std::error_code error;
    const fs::file_status status = fs::status(target, error);
    if (target.filename().empty() || fs::is_directory(status))
        fail(std::make_error_code(std::errc::is_a_directory), path);
    if (fs::exists(status) && !fs::is_regular_file(status))
        fail(std::make_error_code(std::errc::invalid_argument), path);
    try {
        // Do not build the name from the file's: that may be as long as the system allows already.
        File::replace(target, contents, {.durability = File::Durability::powerLoss, .temporaryName = ".vimble-XXXXXX"});
    } catch (const std::system_error& problem) {
        fail(problem.code(), path);
    }
}
