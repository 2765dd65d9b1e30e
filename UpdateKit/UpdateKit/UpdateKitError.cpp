#include "UpdateKit/UpdateKitError.h"

#include "Base/Check.h"

namespace {

bool takesPayload(UpdateKitError::Code code) { return code <= UpdateKitError::Code::installationFailed; }

std::string_view textOfCode(UpdateKitError::Code code) {
    using Code = UpdateKitError::Code;
    switch (code) {
        case Code::invalidManifest: return "Invalid release manifest: ";
        case Code::invalidVersion: return "Unable to parse version: ";
        case Code::manifestLoadingFailed: return "Failed to load release manifest: ";
        case Code::downloadFailed: return "Failed to download update archive: ";
        case Code::validationFailed: return "Update validation failed: ";
        case Code::installationFailed: return "Installation failed: ";
        case Code::noUpdateAvailable: return "No update available";
        case Code::missingBundleVersion: return "Main bundle does not contain a version string";
        case Code::extractionFailed: return "Failed to extract update archive";
        case Code::noAppBundleInArchive: return "No .app bundle found in update archive";
        case Code::multipleAppBundlesInArchive: return "Multiple .app bundles found in update archive";
        case Code::noPreparedUpdate: return "No prepared update is available";
    }
    fatal("an updater's error has no text");
}

}  // namespace

UpdateKitError::UpdateKitError(Code code, std::string_view payload)
    : _code(code), _payload(takesPayload(code) ? payload : std::string_view()), text(textOfCode(code)) {
    text += _payload;
}
