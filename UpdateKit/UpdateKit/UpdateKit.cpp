#include "UpdateKit/UpdateKit.h"

#include "UpdateKit/UpdateKitError.h"

#include <utility>
#include <variant>

namespace {

constexpr char lastSeenVersion[] = "UpdateKit.lastSeenVersion";

/// A completion for another thread to call: it calls the given one on the main thread, if the owner still lives.
template <class Value>
Completion<Value> onMainThread(MainLoop& loop, const SignalTarget& owner, Completion<Value> completion) {
    return [&loop, life = owner.lifeToken(), completion = std::move(completion)](Outcome<Value> outcome) {
        loop.post([life, completion, outcome = std::move(outcome)] {
            if (!life.expired()) completion(outcome);
        });
    };
}

}  // namespace

UpdateKit::UpdateKit(MainLoop& mainLoop, MainLoop& coordinatorLoop, UserDefaults& defaults, const Url& manifestUrl,
                     const UpdateEnvironment& environment)
    : mainLoop(mainLoop),
      coordinatorLoop(coordinatorLoop),
      defaults(defaults),
      bundleInfo(environment.bundleInfo),
      ready(mainLoop),
      failed(mainLoop),
      checkedNoUpdate(mainLoop) {
    const auto sink = [&mainLoop, self = Weak<UpdateKit>(this)](UpdateEvent event) {
        mainLoop.post([self, event = std::move(event)] {
            if (UpdateKit* kit = self.get()) kit->deliver(event);
        });
    };
    core = std::make_shared<UpdateCoordinator>(coordinatorLoop, manifestUrl, environment, sink);
    post([](UpdateCoordinator& coordinator) { coordinator.startAutomaticChecks(); });
}

UpdateKit::~UpdateKit() {
    // The coordinator dies on its own thread, behind what was posted before.
    coordinatorLoop.post([dying = std::move(core)]() mutable { dying.reset(); });
}

void UpdateKit::post(std::function<void(UpdateCoordinator&)> work) {
    coordinatorLoop.post([weak = std::weak_ptr(core), work = std::move(work)] {
        if (const auto coordinator = weak.lock()) work(*coordinator);
    });
}

void UpdateKit::checkForUpdates() {
    post([](UpdateCoordinator& coordinator) { coordinator.runCheck(UpdateCheckMode::manual); });
}

void UpdateKit::installUpdate() {
    post([](UpdateCoordinator& coordinator) { coordinator.install(); });
}

void UpdateKit::availableUpdate(Completion<std::optional<ReadyUpdateInfo>> completion) {
    post([completion = onMainThread(mainLoop, *this, std::move(completion))](UpdateCoordinator& coordinator) {
        coordinator.availableUpdate([completion](Outcome<std::optional<AvailableUpdate>> outcome) {
            completion(Outcome<std::optional<ReadyUpdateInfo>>::of([&]() -> std::optional<ReadyUpdateInfo> {
                if (const auto available = outcome.take()) return available->info;
                return std::nullopt;
            }));
        });
    });
}

void UpdateKit::prepareUpdate(Completion<std::optional<StagedUpdate>> completion) {
    post([completion = onMainThread(mainLoop, *this, std::move(completion))](UpdateCoordinator& coordinator) {
        coordinator.prepareLatestUpdate(completion);
    });
}

bool UpdateKit::noteLaunchedVersion() {
    std::string version;
    try {
        version = runningVersion(bundleInfo).description();
    } catch (const UpdateKitError&) {
        return false;
    }
    if (defaults.stringForKey(lastSeenVersion) == version) return false;
    defaults.setString(lastSeenVersion, version);
    return true;
}

void UpdateKit::deliver(const UpdateEvent& event) {
    if (const auto* info = std::get_if<ReadyUpdateInfo>(&event))
        ready.send({*info});
    else if (const auto* failure = std::get_if<UpdateFailureInfo>(&event))
        failed.send({*failure});
    else if (const auto* nothing = std::get_if<UpdateNoUpdateInfo>(&event))
        checkedNoUpdate.send({*nothing});
}
