#include "PlatformBundle/RunningBundle.h"

#include <system_error>

namespace fs = std::filesystem;

std::optional<fs::path> bundleFolderOf(const fs::path& program) {
    const fs::path folder = program.parent_path();
    if (folder.filename() != "Linux" && folder.filename() != "Services") return std::nullopt;
    const fs::path contents = folder.parent_path();
    const fs::path bundle = contents.parent_path();
    if (contents.filename() != "Contents" || bundle.extension() != ".app") return std::nullopt;
    return bundle;
}

std::optional<AppBundle> bundleOf(BundleReader& reader, const fs::path& executable) {
    std::error_code error;
    const fs::path program = fs::canonical(executable, error);
    if (error) return std::nullopt;
    const auto bundle = bundleFolderOf(program);
    return bundle ? reader.open(*bundle) : std::nullopt;
}

fs::path runningApplication() {
    const fs::path program = fs::read_symlink("/proc/self/exe");
    return bundleFolderOf(program).value_or(program.parent_path());
}
