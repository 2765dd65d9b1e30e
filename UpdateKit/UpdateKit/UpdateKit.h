#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"
#include "StateKit/UserDefaults.h"
#include "UpdateKit/StagedUpdate.h"
#include "UpdateKit/UpdateCoordinator.h"
#include "UpdateKit/UpdateEnvironment.h"
#include "UpdateKit/UpdateMessages.h"

#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

/// The door to the updater for the application: stands on the main thread, and has the coordinator work on
/// another.
///
/// Main thread only. What is asked for is posted to the coordinator, what that has to tell is posted back and
/// sent to the observers, each event once and in order; nothing ever waits. After its death nobody is told of
/// anything, and the coordinator calls off what it is about and dies on its own thread.
class UpdateKit : public SignalTarget {
public:
    /// Begins automatic checks.
    /// @param mainLoop, coordinatorLoop  must outlive the coordinator, which the facade's death posts away: that
    ///        is, run the second to the end of its queue before either dies. Tests may give one loop for both
    /// @param defaults  must outlive this object
    UpdateKit(MainLoop& mainLoop, MainLoop& coordinatorLoop, UserDefaults& defaults, const Url& manifestUrl,
              const UpdateEnvironment& environment);
    ~UpdateKit();

    /// A check that the user wants.
    void checkForUpdates();
    /// Has the staged update installed, which ends this process. A failure is told as any other.
    void installUpdate();

    /// Looks at the manifest alone. Told on the main thread.
    void availableUpdate(Completion<std::optional<ReadyUpdateInfo>> completion);
    /// Prepares without a word to the observers, and beside a check that may be running. Told on the main thread.
    void prepareUpdate(Completion<std::optional<StagedUpdate>> completion);

    /// Notes the running version as seen. @return whether it is another than the last time; false if it is not
    /// known
    bool noteLaunchedVersion();

    template <class Target>
    void observeReady(Target& target,
                      std::type_identity_t<std::function<void(Target&, const UpdateReadyMessage&)>> action) {
        ready.subscribe(target, std::move(action));
    }
    template <class Target>
    void observeFailed(Target& target,
                       std::type_identity_t<std::function<void(Target&, const UpdateFailedMessage&)>> action) {
        failed.subscribe(target, std::move(action));
    }
    template <class Target>
    void observeCheckedNoUpdate(
        Target& target,
        std::type_identity_t<std::function<void(Target&, const UpdateCheckedNoUpdateMessage&)>> action) {
        checkedNoUpdate.subscribe(target, std::move(action));
    }

private:
    void deliver(const UpdateEvent& event);
    void post(std::function<void(UpdateCoordinator&)> work);

    MainLoop& mainLoop;
    MainLoop& coordinatorLoop;
    UserDefaults& defaults;
    const std::function<std::optional<std::string>(std::string_view key)> bundleInfo;
    Signal<UpdateReadyMessage> ready;
    Signal<UpdateFailedMessage> failed;
    Signal<UpdateCheckedNoUpdateMessage> checkedNoUpdate;
    std::shared_ptr<UpdateCoordinator> core;
};
