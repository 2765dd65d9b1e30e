#include "UpdateKit/UpdateCoordinator.h"

#include "StateKit/Log.h"
#include "Text/Text.h"
#include "UpdateKit/FileUrl.h"
#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/UpdateEvent.h"
#include "UpdateKit/UpdateKitError.h"

#include <exception>
#include <string>
#include <utility>

namespace {

using Code = UpdateKitError::Code;
using Path = std::filesystem::path;

constexpr char nothingNewer[] = "No update is currently available.";

const Log updateLog("zorvane.UpdateKit", "UpdateCoordinator");

std::string summary(const std::exception_ptr& error) { return UpdateFailureInfo::of(error).summary; }

UpdateKitError wrapped(Code code, const std::exception_ptr& error) { return UpdateKitError(code, summary(error)); }

/// The outcome's value. The updater's own errors are thrown as they are, others as one of the given code.
template <class Value>
Value takeOr(Code code, Outcome<Value> outcome) {
    try {
        return outcome.take();
    } catch (const UpdateKitError&) {
        throw;
    } catch (const InstallerClientError&) {
        throw;
    } catch (...) {
        throw wrapped(code, std::current_exception());
    }
}

/// Whether the installer itself has answered that it has not installed. Without an answer it may still be at
/// work.
bool isRefusal(const std::exception_ptr& error) {
    if (!error) return false;
    try {
        std::rethrow_exception(error);
    } catch (const InstallerClientError& failure) {
        return failure.code() == InstallerClientError::Code::installationFailed;
    } catch (...) {
        return false;
    }
}

std::string archiveName(const Url& url) {
    return Path(FileUrl::percentDecoded(url.path.substr(url.path.rfind('/') + 1))).stem().native();
}

/// Why the manifest is no update; nothing if it is one.
std::optional<UpdateNoUpdateInfo> noUpdateInfo(const ReleaseManifest& manifest, const SemanticVersion& current,
                                               const SemanticVersion& system) {
    using Unsupported = UpdateNoUpdateReason::SystemVersionUnsupported;
    if (manifest.version <= current) return UpdateNoUpdateInfo{{}, nothingNewer};
    if (manifest.supportsSystem(system)) return std::nullopt;
    const std::string available = manifest.version.description();
    const std::string required = manifest.minimumSystemVersion->description();
    return UpdateNoUpdateInfo{
        {Unsupported{available, required}},
        "Version " + available + " is available, but it requires macOS " + required + " or newer."};
}

void logCheck(UpdateCheckMode mode, const std::string& rest) {
    updateLog.info(std::string("UpdateKit: ") + name(mode) + " check " + rest);
}

}  // namespace

/// An update that is being prepared. It removes its staging directory at its end, unless it was staged.
struct UpdateCoordinator::Preparation {
    AvailableUpdate available;
    Path directory;
    std::function<void(const Path&)> removeFolder;
    Completion<std::optional<StagedUpdate>> completion;
    Path application = {};  // once found
    bool isDirectoryOurs = true;

    ~Preparation() { discard(); }

    void discard() {
        if (std::exchange(isDirectoryOurs, false)) removeFolder(directory);
    }

    /// Completes with an outcome. Only the first call counts.
    void end(Outcome<std::optional<StagedUpdate>> outcome) {
        if (!outcome.hasValue()) discard();
        if (const auto done = std::exchange(completion, {})) done(std::move(outcome));
    }

    /// Runs a step of the preparation, which ends if the step throws.
    template <class Step>
    void attempt(Step&& step) {
        try {
            step();
        } catch (...) {
            end(std::current_exception());
        }
    }
};

UpdateCoordinator::UpdateCoordinator(MainLoop& loop, Url manifestUrl, UpdateEnvironment environment,
                                     EventSink eventSink)
    : loop(loop),
      manifestUrl(std::move(manifestUrl)),
      environment(std::move(environment)),
      eventSink(std::move(eventSink)) {}

UpdateCoordinator::~UpdateCoordinator() = default;

/// Begins an operation and keeps it until it has completed.
template <class Value, class Begin>
void UpdateCoordinator::await(Begin&& begin, Completion<Value> completion) {
    const std::uint64_t operation = ++lastOperation;
    operations.emplace(operation, nullptr);
    UpdateEnvironment::Handle handle;
    try {
        handle = begin(Completion<Value>(
            [weak = weak_from_this(), operation, completion = std::move(completion)](Outcome<Value> outcome) {
                const auto self = weak.lock();
                if (!self) return;
                const auto ended = self->operations.extract(operation);
                if (!ended.empty()) completion(std::move(outcome));
            }));
    } catch (...) {
        operations.erase(operation);
        throw;
    }
    if (const auto found = operations.find(operation); found != operations.end()) found->second = std::move(handle);
}

// ---- when to look

void UpdateCoordinator::startAutomaticChecks() {
    if (std::exchange(hasStartedAutomaticChecks, true)) return;
    schedulePeriodicChecks();
    if (FileUrl::isFile(manifestUrl)) {
        triggerAutomaticCheck();
        return;
    }
    pathMonitor = environment.watchReachability([&loop = loop, weak = weak_from_this()](bool isReachable) {
        loop.post([weak, isReachable] {
            if (const auto self = weak.lock()) self->updateReachability(isReachable);
        });
    });
}

void UpdateCoordinator::schedulePeriodicChecks() {
    periodicCheck.emplace(loop, checkInterval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->runCheck(UpdateCheckMode::automatic, [weak] {
            if (const auto next = weak.lock()) next->schedulePeriodicChecks();
        });
    });
}

void UpdateCoordinator::triggerAutomaticCheck() {
    loop.post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->runCheck(UpdateCheckMode::automatic);
    });
}

void UpdateCoordinator::updateReachability(bool isReachable) {
    const bool wasReachable = networkIsReachable.value_or(false);
    networkIsReachable = isReachable;
    if (isReachable && !wasReachable) triggerAutomaticCheck();
}

// ---- looking

void UpdateCoordinator::runCheck(UpdateCheckMode mode, std::function<void()> finished) {
    if (!checkState.begin(mode, manifestUrl, networkIsReachable)) {
        logCheck(mode, "skipped (already in progress or network unreachable)");
        if (finished) finished();
        return;
    }
    logCheck(mode, "starting (manifest: " + manifestUrl.text() + ")");
    std::optional<SemanticVersion> previous;
    if (_stagedUpdate) previous = _stagedUpdate->version;
    prepareLatestUpdate(
        [this, mode, previous, finished = std::move(finished)](Outcome<std::optional<StagedUpdate>> outcome) {
            report(mode, previous, std::move(outcome));
            checkState.isCheckingForUpdates = false;
            if (finished) finished();
        });
}

void UpdateCoordinator::report(UpdateCheckMode mode, const std::optional<SemanticVersion>& previous,
                               Outcome<std::optional<StagedUpdate>> outcome) {
    if (!outcome.hasValue()) {
        const auto failure = UpdateFailureInfo::of(outcome.error());
        // Escaped, so that it is one line whatever a server has put into it.
        updateLog.error(std::string("UpdateKit: ") + name(mode) + " check failed — " + Text::escaped(failure.summary));
        eventSink(failure);
        return;
    }
    const auto staged = outcome.take();
    if (!staged) {
        logCheck(mode, "completed — no update available");
        eventSink(_lastNoUpdateInfo.value_or(UpdateNoUpdateInfo{{}, nothingNewer}));
    } else if (staged->version == previous) {
        logCheck(mode, "completed — previously prepared update " + staged->version.description() + " still current");
    } else {
        logCheck(mode, "prepared update " + staged->version.description());
        eventSink(staged->info);
    }
}

SemanticVersion UpdateCoordinator::currentVersion() const { return runningVersion(environment.bundleInfo); }

SemanticVersion UpdateCoordinator::currentSystemVersion() const { return environment.systemVersion(); }

void UpdateCoordinator::fetchManifest(Completion<ReleaseManifest> completion) {
    const auto decoded = [this](Outcome<Bytes> outcome) {
        if (!outcome.hasValue()) throw wrapped(Code::manifestLoadingFailed, outcome.error());
        return ReleaseManifest::decode(outcome.take()).resolved(manifestUrl);
    };
    await<Bytes>([this](Completion<Bytes> loaded) { return environment.load(manifestUrl, std::move(loaded)); },
                 [decoded, completion = std::move(completion)](Outcome<Bytes> outcome) {
                     completion(Outcome<ReleaseManifest>::of([&] { return decoded(std::move(outcome)); }));
                 });
}

void UpdateCoordinator::availableUpdate(Completion<std::optional<AvailableUpdate>> completion) {
    fetchManifest([this, completion = std::move(completion)](Outcome<ReleaseManifest> outcome) {
        completion(Outcome<std::optional<AvailableUpdate>>::of([&] { return judge(outcome.take()); }));
    });
}

std::optional<AvailableUpdate> UpdateCoordinator::judge(const ReleaseManifest& manifest) {
    const SemanticVersion current = currentVersion();
    const SemanticVersion system = currentSystemVersion();
    const std::string version = manifest.version.description();
    updateLog.info("UpdateKit: manifest version " + version + " vs current version " + current.description());
    _lastNoUpdateInfo = noUpdateInfo(manifest, current, system);
    if (!_lastNoUpdateInfo)
        return AvailableUpdate{manifest, current, {version, archiveName(manifest.url), std::nullopt, manifest.url}};
    using Unsupported = UpdateNoUpdateReason::SystemVersionUnsupported;
    if (const auto* unsupported = std::get_if<Unsupported>(&_lastNoUpdateInfo->reason.value))
        updateLog.info("UpdateKit: skipping manifest " + unsupported->availableVersion + " because it requires macOS " +
                       unsupported->requiredSystemVersion + " and current macOS is " + system.description());
    return std::nullopt;
}

// ---- bringing it here

void UpdateCoordinator::prepareLatestUpdate(Completion<std::optional<StagedUpdate>> completion) {
    availableUpdate([this, completion = std::move(completion)](Outcome<std::optional<AvailableUpdate>> outcome) {
        if (!outcome.hasValue()) return completion(outcome.error());
        const auto available = outcome.take();
        if (!available) return completion(std::optional<StagedUpdate>());
        prepare(*available, completion);
    });
}

void UpdateCoordinator::prepare(const AvailableUpdate& available,
                                const Completion<std::optional<StagedUpdate>>& completion) {
    if (_stagedUpdate && _stagedUpdate->version == available.manifest.version &&
        environment.exists(_stagedUpdate->application))
        return completion(_stagedUpdate);
    discardStagedUpdate();
    const auto directory = Outcome<Path>::of([this] { return environment.makeStagingDirectory(); });
    if (!directory.hasValue()) return completion(directory.error());
    // With braces, since clang 14 does not make an aggregate with parentheses (`make_shared`).
    const std::shared_ptr<Preparation> preparation(
        new Preparation{available, Outcome(directory).take(), environment.removeFolder, completion});
    preparation->attempt([&] {
        await<Done>(
            [&](Completion<Done> downloaded) {
                return environment.download(available.manifest.url, preparation->directory / "update.zip",
                                            std::move(downloaded));
            },
            [this, preparation](Outcome<Done> outcome) {
                preparation->attempt([&] {
                    takeOr(Code::downloadFailed, std::move(outcome));
                    extract(preparation);
                });
            });
    });
}

void UpdateCoordinator::extract(const std::shared_ptr<Preparation>& preparation) {
    const Path extracted = preparation->directory / "extracted";
    environment.makeFolder(extracted);
    await<Done>(
        [&](Completion<Done> unpacked) {
            return environment.extract(preparation->directory / "update.zip", extracted, std::move(unpacked));
        },
        [this, preparation, extracted](Outcome<Done> outcome) {
            preparation->attempt([&] {
                if (!outcome.hasValue()) {
                    // Log the reason: the text of the error that is thrown does not contain it.
                    updateLog.error("UpdateKit: extraction failed — " + Text::escaped(summary(outcome.error())));
                    throw UpdateKitError(Code::extractionFailed);
                }
                preparation->application = environment.findAppBundle(extracted);
                validate(preparation);
            });
        });
}

void UpdateCoordinator::validate(const std::shared_ptr<Preparation>& preparation) {
    const DownloadExpectation expectation{preparation->available.manifest.version,
                                          preparation->available.currentVersion, currentSystemVersion(),
                                          environment.currentApplication};
    await<ValidatedAppBundle>(
        [&](Completion<ValidatedAppBundle> validated) {
            return environment.validate(preparation->application, expectation, std::move(validated));
        },
        [this, preparation](Outcome<ValidatedAppBundle> outcome) {
            preparation->attempt([&] { stage(*preparation, outcome.take()); });
        });
}

void UpdateCoordinator::stage(Preparation& preparation, const ValidatedAppBundle& bundle) {
    // An update is staged already only if two preparations have run at a time.
    discardStagedUpdate();
    _stagedUpdate = StagedUpdate{
        bundle.version,
        preparation.application,
        preparation.directory,
        {bundle.version.description(), bundle.displayName, std::nullopt, preparation.available.manifest.url}};
    preparation.isDirectoryOurs = false;
    preparation.end(_stagedUpdate);
}

void UpdateCoordinator::discardStagedUpdate() {
    if (!_stagedUpdate) return;
    // Without its folder, an installer that is at work in it would install half a bundle.
    if (!handedOver.contains(_stagedUpdate->stagingDirectory))
        environment.removeFolder(_stagedUpdate->stagingDirectory);
    _stagedUpdate.reset();
}

// ---- handing it over

void UpdateCoordinator::installStagedUpdate(Completion<Done> completion) {
    if (!_stagedUpdate) return completion(Outcome<Done>::failure(UpdateKitError(Code::noPreparedUpdate)));
    const InstallerRequest request{_stagedUpdate->application, environment.currentApplication,
                                   environment.processIdentifier};
    const Path directory = _stagedUpdate->stagingDirectory;
    handedOver.insert(directory);
    await<Done>(
        [&](Completion<Done> installed) { return environment.installer->install(request, std::move(installed)); },
        [this, directory, completion = std::move(completion)](Outcome<Done> outcome) {
            if (isRefusal(outcome.error())) takeBack(directory);
            completion(Outcome<Done>::of([&] { return takeOr(Code::installationFailed, std::move(outcome)); }));
        });
}

void UpdateCoordinator::takeBack(const Path& directory) {
    handedOver.erase(directory);
    // If this update was discarded meanwhile, its folder was kept for the installer only.
    if (!_stagedUpdate || _stagedUpdate->stagingDirectory != directory) environment.removeFolder(directory);
}

void UpdateCoordinator::install() {
    if (std::exchange(isInstalling, true)) {
        updateLog.info("UpdateKit: installation asked for again while the installer is at work");
        return;
    }
    installStagedUpdate([this](Outcome<Done> outcome) {
        isInstalling = false;
        if (outcome.hasValue()) return;
        const auto failure = UpdateFailureInfo::of(outcome.error());
        updateLog.error("UpdateKit: installation failed — " + Text::escaped(failure.summary));
        eventSink(failure);
    });
}
