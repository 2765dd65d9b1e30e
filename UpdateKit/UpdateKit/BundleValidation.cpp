#include "UpdateKit/BundleValidation.h"

#include "StateKit/Log.h"
#include "Text/Text.h"
#include "UpdateKit/UpdateKitError.h"

#include <exception>
#include <system_error>

namespace {

const Log validationLog("zorvane.UpdateKit", "BundleValidation");

UpdateKitError refused(const std::string& why) { return UpdateKitError(UpdateKitError::Code::validationFailed, why); }

std::optional<SemanticVersion> parsedVersion(const std::string& text) {
    try {
        return SemanticVersion::parse(text);
    } catch (const UpdateKitError&) {
        return std::nullopt;
    }
}

void checkExecutable(const AppBundle& bundle) {
    const auto executable = bundle.executable();
    std::error_code ignored;
    if (!executable || !std::filesystem::exists(*executable, ignored))
        throw refused("Downloaded app bundle has no executable");
}

SemanticVersion checkedVersion(const AppBundle& bundle, const DownloadExpectation& expectation) {
    const auto text = bundle.versionText();
    if (!text) throw refused("Downloaded app bundle is missing a version string");
    const auto version = parsedVersion(*text);
    if (!version) throw refused("Downloaded app has an invalid version string");
    if (*version != expectation.expectedVersion)
        throw refused("Downloaded app version " + version->description() + " does not match manifest version " +
                      expectation.expectedVersion.description());
    if (*version <= expectation.currentVersion) throw refused("Downloaded app is not newer than the current app");
    return *version;
}

void checkSystem(const AppBundle& bundle, const SemanticVersion& systemVersion) {
    const auto text = bundle.text("LSMinimumSystemVersion");
    if (!text || Text::trimmed(*text).empty()) return;
    const auto minimum = parsedVersion(*text);
    if (minimum && systemVersion < *minimum)
        throw refused("Downloaded app requires macOS " + minimum->description() + " or newer");
}

void checkSignature(const std::filesystem::path& application, const std::filesystem::path& current,
                    const CodeSignatureReader& readProfile) {
    bool matches = false;
    try {
        const auto currentProfile = readProfile(current);
        matches = currentProfile.matches(readProfile(application));
    } catch (const std::exception& error) {
        // Log the reason: the text of the error that is thrown does not contain it.
        validationLog.error("UpdateKit: code signature refused — " + Text::escaped(Text::trimmed(error.what())));
        throw refused("Unable to inspect code signature for " + application.filename().native());
    }
    if (!matches) throw refused("Downloaded app is not signed by the same identity as the current app");
}

}  // namespace

ValidatedAppBundle validateDownloadedApp(const std::filesystem::path& application,
                                         const DownloadExpectation& expectation, BundleReader& bundles,
                                         const CodeSignatureReader& readProfile) {
    const auto bundle = bundles.open(application);
    if (!bundle) throw refused("Downloaded bundle is unreadable");
    checkExecutable(*bundle);
    ValidatedAppBundle result;
    result.version = checkedVersion(*bundle, expectation);
    checkSystem(*bundle, expectation.systemVersion);
    checkSignature(application, expectation.currentApplication, readProfile);
    const auto displayName = bundle->text("CFBundleDisplayName");
    const auto name = displayName ? displayName : bundle->text("CFBundleName");
    result.displayName = name ? *name : application.stem().native();
    return result;
}
