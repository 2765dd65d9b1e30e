#include "DesktopKit/AppUpdater.h"

#include "StateKit/Log.h"
#include "Text/Text.h"
#include "UpdateKit/FileUrl.h"

#include <utility>

namespace {

constexpr char infoKey[] = "UpdateKitManifestURL";
constexpr char variableName[] = "VIMBLE_UPDATE_MANIFEST_URL";

const Log updaterLog("zorvane.Vimble", "AppUpdater");

using Checking = ManualCheckStatus::Checking;
using NoUpdateAvailable = ManualCheckStatus::NoUpdateAvailable;

/// The state of a check that has found nothing.
ManualCheckStatus statusOf(const UpdateNoUpdateReason& reason) {
    using Unsupported = UpdateNoUpdateReason::SystemVersionUnsupported;
    if (const auto* unsupported = std::get_if<Unsupported>(&reason.value))
        return {ManualCheckStatus::UnsupportedSystemVersion{unsupported->requiredSystemVersion}};
    return {NoUpdateAvailable{}};
}

}  // namespace

AppUpdater::AppUpdater(AppUpdaterEnvironment environment)
    : environment(std::move(environment)), core(Core<UpdateState>::make(this->environment.loop, {})) {}

AppUpdater::~AppUpdater() = default;

std::optional<Url> AppUpdater::normalizedUrl(std::string_view text) {
    const std::string_view trimmed = Text::trimmed(text);
    if (trimmed.empty()) return std::nullopt;
    if (trimmed.starts_with('/')) return FileUrl::of(trimmed);
    auto url = Url::parse(trimmed);
    if (!url || !url->scheme) return std::nullopt;
    return url;
}

std::optional<Url> AppUpdater::manifestUrl() const {
    if (const auto text = environment.variable(variableName))
        if (auto url = normalizedUrl(*text)) return url;
    if (const auto text = environment.bundleInfo(infoKey)) return normalizedUrl(*text);
    return std::nullopt;
}

void AppUpdater::start() {
    if (std::exchange(hasStarted, true)) return;
    const auto url = manifestUrl();
    if (!url) {
        updaterLog.info("UpdateKit disabled: no manifest URL configured");
        core->commit([](UpdateState& state) { state.isConfigured = false; });
        return;
    }
    updater = environment.makeUpdateKit(*url);
    core->commit([](UpdateState& state) {
        state.isConfigured = true;
        state.debugReadyVersion.reset();
    });
    updater->observeReady(*this, [](AppUpdater& self, const auto& message) { self.updateReady(message.info); });
    updater->observeFailed(*this, [](AppUpdater& self, const auto& message) { self.updateFailed(message.info); });
    updater->observeCheckedNoUpdate(*this, [](AppUpdater& self, const auto& message) { self.noUpdate(message.info); });
}

// ---- what the user does

void AppUpdater::checkForUpdates() {
    if (!updater) {
        updaterLog.info("UpdateKit check requested but updates are not configured");
        return;
    }
    updaterLog.info("AppUpdater: starting manual update check");
    beginManualCheck();
    updater->checkForUpdates();
}

void AppUpdater::beginManualCheck() {
    setManualCheck(ManualCheckStatus{Checking{}});
    manualCheckTimeoutTask.emplace(environment.loop, manualCheckTimeout, [this] { manualCheckTimedOut(); });
}

void AppUpdater::manualCheckTimedOut() {
    if (!isChecking()) return;
    if (state().readyUpdate)
        setManualCheck(std::nullopt);
    else
        setManualCheck(ManualCheckStatus{NoUpdateAvailable{}});
}

void AppUpdater::installUpdate() {
    if (updater && state().readyUpdate) updater->installUpdate();
}

void AppUpdater::dismissManualCheck() {
    if (state().manualCheck && !isChecking()) setManualCheck(std::nullopt);
}

void AppUpdater::dismissFailure() {
    if (state().failure) core->commit([](UpdateState& state) { state.failure.reset(); });
}

bool AppUpdater::isChecking() const {
    const auto& status = state().manualCheck;
    return status && std::holds_alternative<Checking>(status->value);
}

void AppUpdater::setManualCheck(std::optional<ManualCheckStatus> status) {
    manualCheckTimeoutTask.reset();
    core->commit([&status](UpdateState& state) { state.manualCheck = status; });
}

// ---- what the updater reports

void AppUpdater::updateReady(const ReadyUpdateInfo& info) {
    updaterLog.info("Update prepared: " + Text::escaped(info.displayName) + " " + info.version + " (" +
                    info.downloadUrl.text() + ")");
    manualCheckTimeoutTask.reset();
    core->commit([&info](UpdateState& state) {
        state.readyUpdate = info;
        state.debugReadyVersion.reset();
        state.manualCheck.reset();
    });
}

void AppUpdater::updateFailed(const UpdateFailureInfo& info) {
    manualCheckTimeoutTask.reset();
    const bool wasChecking = isChecking();
    core->commit([&info, wasChecking](UpdateState& state) {
        state.failure = info;
        state.debugReadyVersion.reset();
        if (wasChecking) state.manualCheck.reset();
    });
}

void AppUpdater::noUpdate(const UpdateNoUpdateInfo& info) {
    // Only a check that the user has asked for reports that it found nothing.
    if (!isChecking()) return;
    updaterLog.info("AppUpdater: manual check completed — " + info.summary);
    // The update that is ready is shown already, so no result is needed.
    if (state().readyUpdate)
        setManualCheck(std::nullopt);
    else
        setManualCheck(statusOf(info.reason));
}
