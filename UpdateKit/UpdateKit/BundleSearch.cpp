#include "UpdateKit/BundleSearch.h"

#include "UpdateKit/UpdateKitError.h"

#include <system_error>
#include <vector>

std::filesystem::path findAppBundle(const std::filesystem::path& extracted) {
    using Walk = std::filesystem::recursive_directory_iterator;
    std::vector<std::filesystem::path> found;
    std::error_code error;
    for (Walk walk(extracted, error); !error && walk != Walk(); walk.increment(error)) {
        const std::string name = walk->path().filename().native();
        const bool isHidden = name.starts_with('.');
        const bool isApplication = !isHidden && walk->path().extension() == ".app";
        if (isApplication) found.push_back(walk->path());
        if (isApplication || isHidden) walk.disable_recursion_pending();
    }
    if (error || found.empty()) throw UpdateKitError(UpdateKitError::Code::noAppBundleInArchive);
    if (found.size() > 1) throw UpdateKitError(UpdateKitError::Code::multipleAppBundlesInArchive);
    return found.front();
}
