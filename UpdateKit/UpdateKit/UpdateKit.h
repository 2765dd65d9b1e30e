#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"
#include "StateKit/UserDefaults.h"
#include "UpdateKit/UpdateCoordinator.h"
#include "UpdateKit/UpdateEnvironment.h"
#include "UpdateKit/UpdateMessages.h"
#include "UpdateKit/UpdateStages.h"

#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

/// The application's access to the updater: lives on the main thread, and has the coordinator work on
/// another.
///
/// Main thread only. Requests are posted to the coordinator; its events are posted back and sent to the
/// observers, each once and in order. No call waits. After the death of this object no observer and no
/// completion is called, and the coordinator calls off its operations and dies on its own thread.
class UpdateKit : public SignalTarget {
public:
    /// Begins automatic checks.
    /// @param mainLoop, coordinatorLoop  must outlive the coordinator. This object's destructor posts the
    ///        coordinator's destruction to the second, so run that one to the end of its queue before either dies.
    ///        Tests may give one loop for both
    /// @param defaults  must outlive this object
    UpdateKit(MainLoop& mainLoop, MainLoop& coordinatorLoop, UserDefaults& defaults, const Url& manifestUrl,
              const UpdateEnvironment& environment);
    ~UpdateKit();

    /// Begins a check that the user has asked for.
    void checkForUpdates();
    /// Has the staged update installed, which ends this process. The observers hear of a failure.
    void installUpdate();

    /// Looks at the manifest alone. The completion runs on the main thread.
    void availableUpdate(Completion<std::optional<ReadyUpdateInfo>> completion);
    /// Prepares an update without telling the observers, even while a check is running. The completion runs on the
    /// main thread.
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
