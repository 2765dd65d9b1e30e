#include "UpdateKit/UpdateEnvironment.h"

#include "UpdateKit/UpdateKitError.h"

SemanticVersion runningVersion(const std::function<std::optional<std::string>(std::string_view key)>& bundleInfo) {
    for (const char* key : {"CFBundleShortVersionString", "CFBundleVersion"})
        if (const auto text = bundleInfo(key)) return SemanticVersion::parse(*text);
    throw UpdateKitError(UpdateKitError::Code::missingBundleVersion);
}
