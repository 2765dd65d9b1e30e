#pragma once

#include "StateKit/MainLoop.h"
#include "UpdateKit/Outcome.h"
#include "UpdateKit/UpdateCheckState.h"
#include "UpdateKit/UpdateEnvironment.h"
#include "UpdateKit/UpdateEvent.h"
#include "UpdateKit/UpdateStages.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

/// Decides when to look for an update, looks, brings a newer release to this machine, and keeps the one that is
/// ready to install.
///
/// A serial object: everything happens on the thread of its loop, one thing at a time. While it waits for
/// something (the network, the unpacking, the installer), other work that was posted to that loop goes on.
/// Owned by `shared_ptr`, since pending operations hold it weakly. It may be made on any thread; it is used, and
/// dies, on its loop's. Its death calls off the operations that it waits for, with no event; completions are
/// dropped uncalled. A staged update stays on disk, since the installer may be about to take it.
class UpdateCoordinator : public std::enable_shared_from_this<UpdateCoordinator> {
public:
    /// Told of each event, on the coordinator's thread. Must not block.
    using EventSink = std::function<void(UpdateEvent)>;

    /// From the end of an automatic check to the beginning of the next.
    static constexpr Seconds checkInterval = 3600;

    /// @param loop  its own; must outlive it
    UpdateCoordinator(MainLoop& loop, Url manifestUrl, UpdateEnvironment environment, EventSink eventSink);
    ~UpdateCoordinator();

    /// Starts the automatic checks. A manifest in a file is checked at once, any other as soon as there is said
    /// to be a network. Later calls do nothing.
    void startAutomaticChecks();
    /// (Re)starts the hourly checks, the first of which comes after an hour.
    void schedulePeriodicChecks();
    /// Posts a check.
    void triggerAutomaticCheck();
    /// A network that comes back, or is reported for the first time, triggers a check.
    void updateReachability(bool isReachable);

    /// One check from admission to event. There is no event for an update that was staged before and is still the
    /// newest.
    /// @param finished  called in every case
    void runCheck(UpdateCheckMode mode, std::function<void()> finished = {});

    /// Fetches a manifest and makes its `url` absolute. Errors: manifestLoadingFailed, invalidManifest,
    /// invalidVersion.
    void fetchManifest(Completion<ReleaseManifest> completion);
    /// Judges the manifest alone. Nothing means: no update, for the reason in `lastNoUpdateInfo`.
    void availableUpdate(Completion<std::optional<AvailableUpdate>> completion);
    /// The above, then all that is needed to have that release in `stagedUpdate`. An update that was staged before
    /// is discarded when another release is to be staged, even if that one is broken, but not if there is none.
    void prepareLatestUpdate(Completion<std::optional<StagedUpdate>> completion);
    /// Forgets the staged update. Its folder is removed too, unless an installer may be at work in it.
    void discardStagedUpdate();

    /// Hands the staged update to the installer, which ends this process if all goes well.
    /// Errors: noPreparedUpdate, installationFailed, `InstallerClientError`.
    void installStagedUpdate(Completion<Done> completion);
    /// The above, with an event for a failure. Does nothing while an installer has not answered yet.
    void install();

    /// @throws UpdateKitError  missingBundleVersion, invalidVersion
    SemanticVersion currentVersion() const;
    SemanticVersion currentSystemVersion() const;

    const std::optional<StagedUpdate>& stagedUpdate() const { return _stagedUpdate; }
    const std::optional<UpdateNoUpdateInfo>& lastNoUpdateInfo() const { return _lastNoUpdateInfo; }

private:
    struct Preparation;

    template <class Value, class Begin>
    void await(Begin&& begin, Completion<Value> completion);

    [[nodiscard]] std::optional<AvailableUpdate> judge(const ReleaseManifest& manifest);
    void prepare(const AvailableUpdate& available, const Completion<std::optional<StagedUpdate>>& completion);
    void extract(const std::shared_ptr<Preparation>& preparation);
    void validate(const std::shared_ptr<Preparation>& preparation);
    void stage(Preparation& preparation, const ValidatedAppBundle& bundle);
    void takeBack(const std::filesystem::path& directory);
    void report(UpdateCheckMode mode, const std::optional<SemanticVersion>& previous,
                Outcome<std::optional<StagedUpdate>> outcome);

    MainLoop& loop;
    const Url manifestUrl;
    const UpdateEnvironment environment;
    const EventSink eventSink;
    std::optional<StagedUpdate> _stagedUpdate;
    std::optional<UpdateNoUpdateInfo> _lastNoUpdateInfo;
    bool hasStartedAutomaticChecks = false;
    std::optional<bool> networkIsReachable;  // nothing until the first report
    std::optional<Timer> periodicCheck;
    UpdateEnvironment::Handle pathMonitor;
    UpdateCheckState checkState;
    bool isInstalling = false;
    std::set<std::filesystem::path> handedOver;  // staging directories that an installer may be at work in
    std::uint64_t lastOperation = 0;
    std::map<std::uint64_t, UpdateEnvironment::Handle> operations;  // those that have not completed
};
