#include "UpdateKit/UpdateEvent.h"

#include "Base/Check.h"
#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/UpdateKitError.h"

namespace {

UpdateFailureCategory category(UpdateKitError::Code code) {
    using Code = UpdateKitError::Code;
    switch (code) {
        case Code::invalidManifest:
        case Code::manifestLoadingFailed: return UpdateFailureCategory::manifest;
        case Code::downloadFailed: return UpdateFailureCategory::download;
        case Code::extractionFailed:
        case Code::noAppBundleInArchive:
        case Code::multipleAppBundlesInArchive: return UpdateFailureCategory::extraction;
        case Code::validationFailed: return UpdateFailureCategory::validation;
        case Code::installationFailed:
        case Code::noPreparedUpdate: return UpdateFailureCategory::installation;
        case Code::invalidVersion:
        case Code::noUpdateAvailable:
        case Code::missingBundleVersion: return UpdateFailureCategory::unknown;
    }
    fatal("an error of the updater has no category");
}

}  // namespace

const char* name(UpdateFailureCategory category) {
    switch (category) {
        case UpdateFailureCategory::manifest: return "manifest";
        case UpdateFailureCategory::download: return "download";
        case UpdateFailureCategory::extraction: return "extraction";
        case UpdateFailureCategory::validation: return "validation";
        case UpdateFailureCategory::installation: return "installation";
        case UpdateFailureCategory::unknown: return "unknown";
    }
    fatal("a category of failures has no name");
}

UpdateFailureInfo UpdateFailureInfo::of(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const InstallerClientError& failure) {
        return {UpdateFailureCategory::installation, failure.what(), failure.shouldPresentToUser()};
    } catch (const UpdateKitError& failure) {
        return {::category(failure.code()), failure.what(), failure.code() == UpdateKitError::Code::noPreparedUpdate};
    } catch (const std::exception& failure) {
        return {UpdateFailureCategory::unknown, failure.what(), false};
    } catch (...) {
        return {UpdateFailureCategory::unknown, "Unknown error", false};
    }
}
