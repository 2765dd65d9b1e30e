#include "PlatformBundle/RunningBundle.h"

#include <system_error>

std::optional<AppBundle> bundleOf(BundleReader& reader, const std::filesystem::path& executable) {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::canonical(executable, error);
    if (error) return std::nullopt;
    const std::filesystem::path folder = program.parent_path();
    if (folder.filename() != "Linux" && folder.filename() != "Services") return std::nullopt;
    const std::filesystem::path contents = folder.parent_path();
    const std::filesystem::path bundle = contents.parent_path();
    if (contents.filename() != "Contents" || bundle.extension() != ".app") return std::nullopt;
    return reader.open(bundle);
}
