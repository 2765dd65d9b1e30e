#pragma once

#include "DesktopKit/UpdateState.h"
#include "StateKit/Core.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"
#include "StateKit/SignalTarget.h"
#include "Text/Url.h"
#include "UpdateKit/UpdateKit.h"

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

/// A subset of the updater's state, made for a view.
template <class Model>
concept UpdateViewModel = CoreInitable<Model> && std::same_as<typename Model::StateType, UpdateState>;

/// What the application's updater needs of the program around it. All must outlive it.
struct AppUpdaterEnvironment {
    MainLoop& loop;
    /// A variable of the process; nothing if it is not set.
    std::function<std::optional<std::string>(const char* name)> variable;
    /// A text of the bundle's information dictionary.
    std::function<std::optional<std::string>(std::string_view key)> bundleInfo;
    /// Starts the updater, which begins to look by itself.
    std::function<std::unique_ptr<UpdateKit>(const Url& manifestUrl)> makeUpdateKit;
};

/// The application's view of updates: whether there are any, and all that its windows show of them.
///
/// Main thread only. Until `start` it knows nothing and does nothing.
class AppUpdater : public SignalTarget {
public:
    /// A check that has no answer after this time counts, for the user, as one that found nothing.
    static constexpr Seconds manualCheckTimeout = 30;

    explicit AppUpdater(AppUpdaterEnvironment environment);
    ~AppUpdater();

    /// Finds where the manifest lies, and begins to look there. A second call does nothing. If no place is
    /// configured, the other operations do nothing.
    void start();
    /// The user's check.
    void checkForUpdates();
    /// Replaces the program by what is ready; nothing happens if nothing is.
    void installUpdate();
    /// Removes the result of a check from the state; does nothing while a check runs.
    void dismissManualCheck();
    void dismissFailure();

    const UpdateState& state() const { return core->state(); }

    /// Every state, beginning with the present one.
    template <class Target>
    void observeState(Target& target, std::type_identity_t<std::function<void(Target&, const UpdateState&)>> action) {
        core->subscribe(target, std::move(action));
        core->resend(target);
    }
    /// A subset of the state now, and when it changes.
    template <UpdateViewModel Model, class Target>
    void observeModel(Target& target, std::type_identity_t<std::function<void(Target&, const Model&)>> action) {
        core->template subscribeSubset<Model>(target, std::move(action));
        core->resend(target);
    }

    /// The URL of the manifest from a text that somebody has written: a URL with a scheme, or an absolute path.
    /// @return nothing for any other text
    static std::optional<Url> normalizedUrl(std::string_view text);

private:
    std::optional<Url> manifestUrl() const;
    void beginManualCheck();
    void setManualCheck(std::optional<ManualCheckStatus> status);
    void manualCheckTimedOut();
    bool isChecking() const;

    void updateReady(const ReadyUpdateInfo& info);
    void updateFailed(const UpdateFailureInfo& info);
    void noUpdate(const UpdateNoUpdateInfo& info);

    const AppUpdaterEnvironment environment;
    const std::shared_ptr<Core<UpdateState>> core;
    std::unique_ptr<UpdateKit> updater;  // once configured
    std::optional<Timer> manualCheckTimeoutTask;
    bool hasStarted = false;
};
